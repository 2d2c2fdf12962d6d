// SPDX-License-Identifier: MIT
#include "SizeTree.h"

#include <MorvaneOperation/MVFileSizeInfo.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "Text.h"

namespace morvane {
namespace {

constexpr std::size_t barColumns = 10;
constexpr std::size_t percentColumns = 4;

std::int64_t sizeOf(const SizeNode& node) {
    return node.item ? std::max<std::int64_t>(node.item->size(), 0) : 0;
}

/// The name below a path, and the path itself.
std::string nameOf(const SizeNode& node, std::size_t depth) {
    return escaped(depth == 0 ? node.path : node.url.lastPathComponent());
}

double partOf(std::int64_t size, std::int64_t whole) {
    return whole > 0 ? static_cast<double>(size) / static_cast<double>(whole) : 0;
}

/// " 42%  ####      "
std::string partText(std::int64_t size, std::int64_t whole) {
    constexpr double hundred = 100;
    // What is small is still there.
    const auto part = std::min(partOf(size, whole), 1.0);
    const auto percent = std::to_string(static_cast<int>(part * hundred + 0.5)) + '%';
    const auto filled = static_cast<std::size_t>(part * barColumns + 0.5);
    return std::string(percentColumns - std::min(percentColumns, percent.size()), ' ') + percent +
           "  " + padded(std::string(filled, '#'), barColumns);
}

template <class T>
Json orNull(const std::optional<T>& value) {
    return value ? Json(*value) : Json(nullptr);
}

void forEach(const std::vector<SizeNode>& nodes, const std::function<void(const SizeNode&)>& work) {
    for (const auto& node : nodes) {
        work(node);
        forEach(node.children, work);
    }
}

}  // namespace

std::int64_t sumOfSizes(const std::vector<std::int64_t>& sizes) {
    std::int64_t sum = 0;
    for (const auto size : sizes) {
        // Sparse files can claim more than there is.
        if (__builtin_add_overflow(sum, std::max<std::int64_t>(size, 0), &sum))
            return std::numeric_limits<std::int64_t>::max();
    }
    return sum;
}

std::string sizeText(std::int64_t bytes) {
    return MVFileSizeInfo::sharedFileSizeInfo()->stringWithFileSize(bytes, true);
}

Json jsonOfSize(const SizeNode& node) {
    const auto& item = *node.item;
    auto json = jsonOfPath(node.path);
    json["name"] = orNull(item.name());
    json["size"] = item.size() < 0 ? Json(nullptr) : Json(item.size());
    json["displaySize"] = item.displaySize();
    json["displayInfo"] = item.displayInfo();
    json["leaf"] = item.isLeaf();
    json["icon"] = item.icon() ? Json(item.icon()->names) : Json(nullptr);
    json["elsewhere"] = node.isElsewhere;
    auto children = Json::array();
    for (const auto& child : node.children)
        children.push_back(jsonOfSize(child));
    json["children"] = std::move(children);
    json["others"] = node.others == 0 ? Json(nullptr)
                                      : Json{{"count", node.others}, {"size", node.sizeOfOthers}};
    return json;
}

SizeTree::SizeTree(const SizeOptions& options, const SizeSources& sources) : options_(options) {
    for (const auto& path : options.paths) {
        roots_.push_back({path, NSURL::fileURLWithPath(path)});
        if (options.depth == 0)
            continue;
        const auto facts = sources.facts(roots_.back().url.path());
        if (!facts || facts->isFolder())
            lookInto(roots_.back(), sources, options.depth, facts ? facts->mount : 0);
    }
    if (roots_.size() > 1)
        markCounted(sources);
}

void SizeTree::markCounted(const SizeSources& sources) {
    const auto mountOf = [&](const SizeNode& root) {
        const auto facts = sources.facts(root.url.path());
        return facts ? facts->mount : 0;
    };
    std::map<std::filesystem::path, const SizeNode*> known;
    for (auto& root : roots_) {
        auto path = std::filesystem::path(root.url.path()).lexically_normal();
        if (!path.has_filename())  // "folder/"
            path = path.parent_path();
        root.isCounted = !known.emplace(std::move(path), &root).second;
    }
    for (const auto& [path, root] : known) {
        for (auto above = path.parent_path();; above = above.parent_path()) {
            const auto holder = known.find(above);
            if (holder != known.end() && holder->second != root &&
                mountOf(*holder->second) == mountOf(*root)) {
                roots_[static_cast<std::size_t>(root - roots_.data())].isCounted = true;
                break;
            }
            if (!above.has_relative_path())
                break;
        }
    }
}

void SizeTree::lookInto(SizeNode& node, const SizeSources& sources, std::size_t levels,
                        std::uint64_t mount) {
    const auto contents = sources.contents(node.url);
    if (!contents)
        return;
    for (const auto& url : *contents) {
        auto& child =
            node.children.emplace_back(SizeNode{pathIn(node.path, url.lastPathComponent()), url});
        const auto seen = sources.facts(url.path());
        child.isElsewhere = seen && seen->mount != mount;
        if (child.isElsewhere)
            child.item = MVFileSizeItem::init();
        else if (seen && !seen->isFolder())
            child.item = MVFileSizeItem::initWithSize(seen->ownSize());
        else if (levels > 1)
            lookInto(child, sources, levels - 1, mount);
    }
}

MVFileSizes SizeTree::addUp(const SizeSource& source) {
    // Level by level, so that what was asked for comes first.
    std::vector<SizeNode*> nodes;
    for (auto& root : roots_)
        nodes.push_back(&root);
    for (std::size_t i = 0; i != nodes.size(); ++i) {
        for (auto& child : nodes[i]->children) {
            if (!child.item)
                nodes.push_back(&child);
        }
    }
    std::vector<NSURL> urls;
    for (const auto* node : nodes)
        urls.push_back(node->url);
    auto answer = source(urls, roots_.size());
    for (std::size_t i = 0; i < std::min(nodes.size(), answer.items.size()); ++i)
        nodes[i]->item = answer.items[i];
    for (auto i = answer.items.size(); i < nodes.size(); ++i)
        nodes[i]->item = MVFileSizeItem::init();
    arrange(roots_, options_.order.value_or(SizeOrder::asGiven));
    // Names and icons are looked up for programs only, and of what is shown.
    if (options_.json || options_.lines)
        forEach(roots_, [](const SizeNode& node) { node.item->setUrl(node.url); });
    return answer;
}

void SizeTree::arrange(std::vector<SizeNode>& nodes, SizeOrder order) const {
    if (order != SizeOrder::asGiven)
        std::stable_sort(nodes.begin(), nodes.end(), [&](const SizeNode& a, const SizeNode& b) {
            return order == SizeOrder::bySize && sizeOf(a) != sizeOf(b) ? sizeOf(a) > sizeOf(b)
                                                                        : a.path < b.path;
        });
    for (auto& node : nodes) {
        auto& children = node.children;
        if (options_.top != 0 && children.size() > options_.top) {
            // The largest, whatever order they are shown in.
            arrange(children, SizeOrder::bySize);
            std::vector<std::int64_t> left;
            for (std::size_t i = options_.top; i != children.size(); ++i)
                left.push_back(sizeOf(children[i]));
            node.others = left.size();
            node.sizeOfOthers = sumOfSizes(left);
            children.erase(children.begin() + static_cast<std::ptrdiff_t>(options_.top),
                           children.end());
        }
        arrange(children, options_.order.value_or(SizeOrder::bySize));
    }
}

std::int64_t SizeTree::total() const {
    std::vector<std::int64_t> sizes;
    for (const auto& root : roots_) {
        if (!root.isCounted)
            sizes.push_back(sizeOf(root));
    }
    return sumOfSizes(sizes);
}

std::string SizeTree::asTable(const Style& style) const {
    std::size_t width = 0;
    forEach(roots_, [&](const SizeNode& node) {
        width = std::max({width, columnsOf(node.item->displaySize()),
                          node.others == 0 ? 0 : columnsOf(sizeText(node.sizeOfOthers))});
    });
    if (roots_.size() > 1)
        width = std::max(width, columnsOf(sizeText(total())));
    std::string text;
    const auto addLine = [&](const std::string& size, const std::string& part, std::size_t depth,
                             const std::string& name) {
        text += std::string(width - columnsOf(size), ' ') + size + "  " + part +
                std::string(2 * depth, ' ') + name + '\n';
    };
    const std::function<void(const SizeNode&, std::size_t, std::int64_t)> addAll =
        [&](const SizeNode& node, std::size_t depth, std::int64_t whole) {
            const auto part = [&](std::int64_t size) {
                return options_.depth == 0 ? std::string()
                                           : style.faint(partText(size, whole)) + "  ";
            };
            addLine(node.item->displaySize(), part(sizeOf(node)), depth, nameOf(node, depth));
            for (const auto& child : node.children)
                addAll(child, depth + 1, whole);
            if (node.others != 0)
                addLine(
                    sizeText(node.sizeOfOthers), part(node.sizeOfOthers), depth + 1,
                    // TRANSLATORS: The last line of a list of sizes: the sum of those not shown.
                    countedPhrase("%1 other", "%1 others", node.others).localized());
        };
    for (const auto& root : roots_)
        addAll(root, 0, sizeOf(root));
    if (roots_.size() > 1)
        addLine(sizeText(total()),
                options_.depth == 0 ? "" : padded("", percentColumns + 2 + barColumns + 2), 0,
                style.heading(say("total")));
    return text + style.faint(notes());
}

std::string SizeTree::notes() const {
    std::size_t elsewhere = 0;
    bool countsTwice = false;
    forEach(roots_, [&](const SizeNode& node) {
        std::vector<std::int64_t> parts{node.sizeOfOthers};
        for (const auto& child : node.children)
            parts.push_back(sizeOf(child));
        countsTwice |= sumOfSizes(parts) > sizeOf(node);
        elsewhere += node.isElsewhere ? 1 : 0;
    });
    std::string text;
    if (countsTwice)
        text += say("A file with several names counts once in each folder that has one: together "
                    "the parts may have more than the whole.") +
                '\n';
    if (elsewhere != 0)
        text += countedPhrase(
                    "%1 item is on another file system or a bind mount, which is not added up.",
                    "%1 items are on other file systems or bind mounts, which are not added up.",
                    elsewhere)
                    .localized() +
                '\n';
    return text;
}

Json SizeTree::asJson() const {
    auto array = Json::array();
    for (const auto& root : roots_)
        array.push_back(jsonOfSize(root));
    return array;
}

}  // namespace morvane
