// SPDX-License-Identifier: MIT
#include <MorvaneOperation/Nfs4AclEntries.h>
#include <MorvaneOperation/PosixAcl.h>

#include <span>
#include <string>

namespace morvane {

namespace {

/// Two sums with different starting values, so that the chance that two different lists have the
/// same digest is negligible. (Whoever makes two such lists on purpose deceives nobody but
/// himself.)
class Digest {
  public:
    void add(std::span<const std::uint8_t> bytes) {
        add(bytes.size());
        for (const auto byte : bytes)
            addByte(byte);
    }
    void add(std::uint64_t value) {
        for (unsigned shift = 0; shift != 64; shift += 8)
            addByte(static_cast<std::uint8_t>(value >> shift));
    }

    std::string text() const {
        constexpr const char* digits = "0123456789abcdef";
        std::string text;
        for (const auto sum : sums_) {
            for (unsigned shift = 64; shift != 0;) {
                shift -= 4;
                text += digits[sum >> shift & 0xf];
            }
        }
        return text;
    }

  private:
    void addByte(std::uint8_t byte) {
        for (auto& sum : sums_)
            sum = (sum ^ byte) * 0x100000001b3;
    }

    std::uint64_t sums_[2] = {0xcbf29ce484222325, 0x9ae16a3b2f90404f};
};

}  // namespace

std::string digestOf(const PosixAcl& acl) {
    Digest digest;
    digest.add(acl.owner);
    digest.add(acl.group);
    digest.add(attributeOfPosixList(acl.access));
    digest.add(acl.defaults ? attributeOfPosixList(*acl.defaults) : std::vector<std::uint8_t>());
    return digest.text();
}

std::string digestOf(const Nfs4Acl& acl, const Nfs4Target& target) {
    Digest digest;
    digest.add(target.owner);
    digest.add(target.group);
    digest.add(acl.flags);
    for (const auto& entry : acl.entries) {
        digest.add(entry.type);
        digest.add(entry.flags);
        digest.add(entry.mask);
        digest.add({reinterpret_cast<const std::uint8_t*>(entry.who.data()), entry.who.size()});
    }
    return digest.text();
}

}  // namespace morvane
