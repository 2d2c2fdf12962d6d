// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileSizeInfo.h>
#include <MorvaneOperation/MVFileSizeItem.h>
#include <MorvaneOperation/platform/archive/NSKeyedArchiver.h>
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>
#include <MorvaneOperation/platform/foundation/NSNumberFormatter.h>
#include <MorvaneOperation/platform/foundation/NSURLResourceValues.h>

#include <utility>

namespace morvane {
namespace {
constexpr NSKeyPath pathOf(std::string_view name) {
    return {name, nullptr};
}
}  // namespace

constexpr NSKeyPath MVFileSizeItem::busyKeyPath = pathOf("busy");
constexpr NSKeyPath MVFileSizeItem::initializedKeyPath = pathOf("initialized");
constexpr NSKeyPath MVFileSizeItem::leafKeyPath = pathOf("leaf");
constexpr NSKeyPath MVFileSizeItem::sizeKeyPath = pathOf("size");
constexpr NSKeyPath MVFileSizeItem::urlKeyPath = pathOf("url");
constexpr NSKeyPath MVFileSizeItem::pathKeyPath = pathOf("path");
constexpr NSKeyPath MVFileSizeItem::iconKeyPath = pathOf("icon");
constexpr NSKeyPath MVFileSizeItem::nameKeyPath = pathOf("name");
constexpr NSKeyPath MVFileSizeItem::colorKeyPath = pathOf("color");

const NSClass& MVFileSizeItem::classObject() {
    using Kind = NSPlainCoding::Kind;
    static constexpr NSPlainCoding::Field fields[] = {{"size", Kind::integer},
                                                      {"busy", Kind::boolean}};
    static constexpr NSPlainCoding coding{
        .fields = fields,
        .get =
            [](const NSObject& object, NSPlainCoding::Values& values) {
                const auto& item = static_cast<const MVFileSizeItem&>(object);
                values[0] = item.size_;
                values[1] = item.busy_;
            },
        .make = [](NSKeyedUnarchiver& coder,
                   const NSPlainCoding::Values& values) -> std::shared_ptr<NSObject> {
            return coder.makeObject<MVFileSizeItem>(values[0], values[1] != 0);
        }};
    static const NSClass object{"MVFileSizeItem", &NSObject::classObject(), &initWithCoder, false,
                                &coding};
    return object;
}

std::shared_ptr<MVFileSizeItem> MVFileSizeItem::initWithSize(std::int64_t size) {
    return std::make_shared<MVFileSizeItem>(size);
}

std::shared_ptr<NSObject> MVFileSizeItem::initWithCoder(NSKeyedUnarchiver& coder) {
    const auto size = coder.decodeInt64("size");
    return coder.makeObject<MVFileSizeItem>(size, coder.decodeBool("busy"));
}

void MVFileSizeItem::encodeWithCoder(NSKeyedArchiver& coder) const {
    coder.encodeInt64(size_, "size");
    coder.encodeBool(busy_, "busy");
}

MVFileSizeItem::~MVFileSizeItem() = default;

const MVFileSizeItem::Display& MVFileSizeItem::placeholder() {
    static const auto* const display = new Display;
    return *display;
}

MVFileSizeItem::Display& MVFileSizeItem::mutableDisplay() {
    if (!display_)
        display_ = std::make_unique<Display>();
    return *display_;
}

void MVFileSizeItem::setBusy(bool busy) {
    busy_ = busy;
    didChangeValueForKey(busyKeyPath);
}

void MVFileSizeItem::setInitialized(bool initialized) {
    initialized_ = initialized;
    didChangeValueForKey(initializedKeyPath);
}

void MVFileSizeItem::setLeaf(bool leaf) {
    leaf_ = leaf;
    didChangeValueForKey(leafKeyPath);
}

void MVFileSizeItem::setSize(std::int64_t size) {
    size_ = size;
    didChangeValueForKey(sizeKeyPath);
}

void MVFileSizeItem::setUrl(std::optional<NSURL> url) {
    mutableDisplay().url = url;
    setPath(url ? std::optional(url->path()) : std::nullopt);
    auto values = url ? NSURLResourceValues::valuesForURL(*url) : NSURLResourceValues();
    setName(std::move(values.localizedName));
    setIcon(std::move(values.effectiveIcon));
    setLeaf(!values.isDirectory.value_or(false));
    didChangeValueForKey(urlKeyPath);
}

void MVFileSizeItem::setPath(std::optional<std::string> path) {
    mutableDisplay().path = std::move(path);
    didChangeValueForKey(pathKeyPath);
}

void MVFileSizeItem::setIcon(std::optional<NSImage> icon) {
    mutableDisplay().icon = std::move(icon);
    didChangeValueForKey(iconKeyPath);
}

void MVFileSizeItem::setName(std::optional<std::string> name) {
    mutableDisplay().name = std::move(name);
    didChangeValueForKey(nameKeyPath);
}

void MVFileSizeItem::setColor(std::optional<NSColor> color) {
    mutableDisplay().color = color;
    didChangeValueForKey(colorKeyPath);
}

std::string MVFileSizeItem::displaySize() const {
    return MVFileSizeInfo::sharedFileSizeInfo()->stringWithFileSize(size_, true);
}

std::string MVFileSizeItem::displayInfo() const {
    static const auto& formatter =
        *NSNumberFormatter::numberFormatterWithFormat("#,##0.##").release();
    if (size_ < 0)
        return "-- (--)";
    auto text = displaySize();
    const auto number = formatter.stringFromNumber(size_);
    text.reserve(text.size() + 2 + number.size() + 7);
    text.append(" (").append(number).append(" bytes)");
    return text;
}

bool MVFileSizeItem::busy() const {
    return busy_;
}

bool MVFileSizeItem::initialized() const {
    return initialized_;
}

bool MVFileSizeItem::isLeaf() const {
    return leaf_;
}

std::int64_t MVFileSizeItem::size() const {
    return size_;
}

const std::optional<NSURL>& MVFileSizeItem::url() const {
    return display().url;
}

const std::optional<std::string>& MVFileSizeItem::path() const {
    return display().path;
}

const std::optional<NSImage>& MVFileSizeItem::icon() const {
    return display().icon;
}

const std::optional<std::string>& MVFileSizeItem::name() const {
    return display().name;
}

const std::optional<NSColor>& MVFileSizeItem::color() const {
    return display().color;
}

const MVFileSizeItem::Display& MVFileSizeItem::display() const {
    return display_ ? *display_ : placeholder();
}

}  // namespace morvane
