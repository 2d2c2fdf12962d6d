// SPDX-License-Identifier: MIT
#include <MorvaneOperation/platform/archive/NSKeyedUnarchiver.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

/// Decodes a class that reads a value of every type, and holds others of its kind.
namespace {

using namespace morvane;

class Everything final : public NSObject {
  public:
    static std::shared_ptr<NSObject> initWithCoder(NSKeyedUnarchiver& coder) {
        static const NSClassSet classes{&classObject(), &NSArrayClass};
        auto object = std::make_shared<Everything>();
        coder.decodeBool("flag");
        coder.decodeInt32("narrow");
        coder.decodeDouble("real");
        coder.decodeString("text");
        coder.decodeData("data");
        coder.decodeUUID("uuid");
        coder.decodeURL("url");
        coder.decodeIndexPath("path");
        coder.decodeError("error");
        coder.decodeURLs("urls");
        coder.decodeStrings("strings");
        coder.decodeIntegers("integers");
        coder.decodeObject("next", classes);
        coder.decodeObjects("objects", classes);
        coder.decodeArchives("archives", classObject());
        return object;
    }
    static const NSClass& classObject() {
        static const NSClass c{"Values", &NSObject::classObject(), initWithCoder};
        return c;
    }
    const NSClass& objectClass() const override { return classObject(); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    NSErrorRef error;
    const auto object = NSKeyedUnarchiver::unarchivedObjectOfClasses({&Everything::classObject()},
                                                                     {data, size}, &error);
    // Either an object or an error, never both.
    if (object && error)
        std::abort();
    return 0;
}
