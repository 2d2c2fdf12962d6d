// SPDX-License-Identifier: MIT
#include "PlistDocument.h"

#include <plist/plist.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <utility>

namespace bench {
namespace {

using morvane::MVTreeNode;

struct PlistDeleter {
    void operator()(void* plist) const { plist_free(plist); }
};
using Plist = std::unique_ptr<void, PlistDeleter>;

// ---- Writing

class Writer {
  public:
    Writer() : objects_(plist_new_array()) {
        plist_array_append_item(objects_, plist_new_string("$null"));
    }

    /// Places are taken before what they hold is made, as objects refer to later ones.
    std::uint64_t add(plist_t object) {
        plist_array_append_item(objects_, object);
        return plist_array_get_size(objects_) - 1;
    }

    std::uint64_t classNamed(std::initializer_list<const char*> ancestry) {
        for (const auto& [name, uid] : classes_) {
            if (name == *ancestry.begin())
                return uid;
        }
        plist_t names = plist_new_array();
        for (const char* name : ancestry)
            plist_array_append_item(names, plist_new_string(name));
        plist_t description = plist_new_dict();
        plist_dict_set_item(description, "$classname", plist_new_string(*ancestry.begin()));
        plist_dict_set_item(description, "$classes", names);
        const auto uid = add(description);
        classes_.emplace_back(*ancestry.begin(), uid);
        return uid;
    }

    std::uint64_t array(const std::vector<std::uint64_t>& elements) {
        plist_t list = plist_new_array();
        for (auto uid : elements)
            plist_array_append_item(list, plist_new_uid(uid));
        plist_t object = plist_new_dict();
        plist_dict_set_item(object, "NS.objects", list);
        plist_dict_set_item(object, "$class", plist_new_uid(classNamed({"NSArray", "NSObject"})));
        return add(object);
    }

    std::uint64_t node(const PlistBox& box) {
        plist_t permission = plist_new_dict();
        plist_dict_set_item(permission, "name",
                            plist_new_uid(add(plist_new_string(box.name.c_str()))));
        plist_dict_set_item(permission, "permission",
                            plist_new_uint(static_cast<std::uint64_t>(box.permission)));
        plist_dict_set_item(permission, "state",
                            plist_new_uint(static_cast<std::uint64_t>(box.state)));
        plist_dict_set_item(permission, "$class",
                            plist_new_uid(classNamed({"MVAclPermission", "NSObject"})));
        const auto permissionUID = add(permission);

        std::vector<std::uint64_t> children;
        for (const auto& child : box.children) {
            Writer nested;
            const auto root = nested.node(child);
            const auto archive = nested.finish(root);
            children.push_back(
                add(plist_new_data(reinterpret_cast<const char*>(archive.data()), archive.size())));
        }
        plist_t object = plist_new_dict();
        plist_dict_set_item(object, "object", plist_new_uid(permissionUID));
        plist_dict_set_item(object, "children", plist_new_uid(array(children)));
        plist_dict_set_item(object, "$class",
                            plist_new_uid(classNamed({"MVTreeNode", "NSTreeNode", "NSObject"})));
        return add(object);
    }

    std::vector<std::uint8_t> finish(std::uint64_t root) {
        plist_t top = plist_new_dict();
        plist_dict_set_item(top, "root", plist_new_uid(root));
        const Plist archive(plist_new_dict());
        plist_dict_set_item(archive.get(), "$version", plist_new_uint(100000));
        plist_dict_set_item(archive.get(), "$archiver", plist_new_string("NSKeyedArchiver"));
        plist_dict_set_item(archive.get(), "$top", top);
        plist_dict_set_item(archive.get(), "$objects", objects_);
        char* bytes = nullptr;
        std::uint32_t length = 0;
        plist_to_bin(archive.get(), &bytes, &length);
        const auto* begin = reinterpret_cast<const std::uint8_t*>(bytes);
        std::vector<std::uint8_t> data(begin, begin + length);
        plist_to_bin_free(bytes);
        return data;
    }

  private:
    plist_t objects_;  // the archive's, from finish() on
    std::vector<std::pair<std::string, std::uint64_t>> classes_;
};

// ---- Reading

[[noreturn]] void refuse(const char* why) {
    throw std::runtime_error(std::string("libplist read something else: ") + why);
}

class Reader {
  public:
    explicit Reader(std::span<const std::uint8_t> bytes) {
        plist_t archive = nullptr;
        plist_from_bin(reinterpret_cast<const char*>(bytes.data()),
                       static_cast<std::uint32_t>(bytes.size()), &archive);
        archive_.reset(archive);
        if (!archive)
            refuse("no property list");
        objects_ = item(archive, "$objects");
    }

    plist_t root() const { return follow(item(item(archive_.get(), "$top"), "root")); }

    plist_t object(plist_t holder, const char* key, const char* className) const {
        plist_t object = follow(item(holder, key));
        requireClass(object, className);
        return object;
    }

    void requireClass(plist_t object, const char* className) const {
        plist_t name = item(follow(item(object, "$class")), "$classname");
        std::uint64_t length = 0;
        if (std::strcmp(plist_get_string_ptr(name, &length), className) != 0)
            refuse("another class");
    }

    std::string string(plist_t holder, const char* key) const {
        std::uint64_t length = 0;
        const char* text = plist_get_string_ptr(follow(item(holder, key)), &length);
        return {text, length};
    }

    static std::uint64_t integer(plist_t holder, const char* key) {
        std::uint64_t value = 0;
        plist_get_uint_val(item(holder, key), &value);
        return value;
    }

    static bool boolean(plist_t holder, const char* key) {
        std::uint8_t value = 0;
        plist_get_bool_val(item(holder, key), &value);
        return value != 0;
    }

    static std::span<const std::uint8_t> data(plist_t node) {
        std::uint64_t length = 0;
        const char* bytes = plist_get_data_ptr(node, &length);
        if (!bytes)
            refuse("no data");
        return {reinterpret_cast<const std::uint8_t*>(bytes), length};
    }

    template <class Each>
    void forEach(plist_t holder, const char* key, Each&& each) const {
        plist_t list = item(object(holder, key, "NSArray"), "NS.objects");
        const auto count = plist_array_get_size(list);
        for (std::uint32_t i = 0; i < count; ++i)
            each(follow(plist_array_get_item(list, i)));
    }

    PlistBox node(plist_t node) const {
        requireClass(node, "MVTreeNode");
        plist_t permission = object(node, "object", "MVAclPermission");
        PlistBox box;
        box.name = string(permission, "name");
        box.permission = static_cast<std::int32_t>(integer(permission, "permission"));
        box.state = static_cast<std::int64_t>(integer(permission, "state"));
        forEach(node, "children", [&](plist_t child) {
            const Reader nested(data(child));
            box.children.push_back(nested.node(nested.root()));
        });
        return box;
    }

  private:
    static plist_t item(plist_t dictionary, const char* key) {
        plist_t value = plist_dict_get_item(dictionary, key);
        if (!value)
            refuse(key);
        return value;
    }

    plist_t follow(plist_t reference) const {
        if (plist_get_node_type(reference) != PLIST_UID)
            refuse("no reference");
        std::uint64_t uid = 0;
        plist_get_uid_val(reference, &uid);
        plist_t object = plist_array_get_item(objects_, static_cast<std::uint32_t>(uid));
        if (!object)
            refuse("a reference to nothing");
        return object;
    }

    Plist archive_;
    plist_t objects_ = nullptr;
};

PlistBox boxOf(const morvane::NSTreeNode& node) {
    const auto& permission = *MVTreeNode::permissionOf(node);
    PlistBox box{permission.name(), permission.permission(), permission.state(), {}};
    for (const auto& child : node.childNodes())
        box.children.push_back(boxOf(*child));
    return box;
}

}  // namespace

PlistEntry recordOf(const morvane::MVAclEntry& entry) {
    PlistEntry record;
    const auto& uuid = entry.uuid()->bytes();
    std::copy(uuid.begin(), uuid.end(), record.uuid.begin());
    record.tag = entry.tag();
    record.inherited = entry.inherited();
    for (const auto& group : entry.permissions())
        record.groups.push_back(boxOf(*group));
    return record;
}

std::vector<std::uint8_t> encodeWithPlist(const PlistEntry& entry) {
    Writer writer;
    plist_t uuid = plist_new_dict();
    plist_dict_set_item(
        uuid, "NS.uuidbytes",
        plist_new_data(reinterpret_cast<const char*>(entry.uuid.data()), entry.uuid.size()));
    plist_dict_set_item(uuid, "$class", plist_new_uid(writer.classNamed({"NSUUID", "NSObject"})));
    const auto uuidUID = writer.add(uuid);
    std::vector<std::uint64_t> groups;
    for (const auto& group : entry.groups)
        groups.push_back(writer.node(group));
    plist_t object = plist_new_dict();
    plist_dict_set_item(object, "uuid", plist_new_uid(uuidUID));
    plist_dict_set_item(object, "tag", plist_new_uint(static_cast<std::uint64_t>(entry.tag)));
    plist_dict_set_item(object, "permissions", plist_new_uid(writer.array(groups)));
    plist_dict_set_item(object, "inherited", plist_new_bool(entry.inherited ? 1 : 0));
    plist_dict_set_item(object, "$class",
                        plist_new_uid(writer.classNamed({"MVAclEntry", "NSObject"})));
    return writer.finish(writer.add(object));
}

PlistEntry decodeWithPlist(std::span<const std::uint8_t> bytes) {
    const Reader reader(bytes);
    plist_t root = reader.root();
    reader.requireClass(root, "MVAclEntry");
    PlistEntry entry;
    plist_t uuidBytes = plist_dict_get_item(reader.object(root, "uuid", "NSUUID"), "NS.uuidbytes");
    const auto uuid = Reader::data(uuidBytes);
    if (uuid.size() != entry.uuid.size())
        refuse("a short UUID");
    std::copy(uuid.begin(), uuid.end(), entry.uuid.begin());
    entry.tag = static_cast<std::int32_t>(Reader::integer(root, "tag"));
    entry.inherited = Reader::boolean(root, "inherited");
    reader.forEach(root, "permissions",
                   [&](plist_t group) { entry.groups.push_back(reader.node(group)); });
    return entry;
}

}  // namespace bench
