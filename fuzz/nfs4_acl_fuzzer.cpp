// SPDX-License-Identifier: MIT
#include <MorvaneOperation/Nfs4AclEntries.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

/// Decodes allow/deny lists in both forms: what decodes encodes to the same bytes, and its entries,
/// written back, are the same list.
namespace {

using namespace morvane;

void require(bool condition) {
    if (!condition)
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Nfs4Names nobody{[](const std::string&, bool) { return std::nullopt; },
                           [](const CBPosixIdentity&) { return std::nullopt; }};
    for (const auto form : {Nfs4Form::named, Nfs4Form::numbered}) {
        const auto acl = decodeNfs4Acl({data, size}, form);
        if (!acl)
            continue;
        require(encodeNfs4Acl(*acl, form) == std::vector<std::uint8_t>(data, data + size));
        for (const bool isFolder : {false, true}) {
            const Nfs4Target target{1, 2, isFolder};
            const auto entries = entriesOfNfs4Acl(*acl, target, nobody);
            const auto back = nfs4AclOfEntries(entries, *acl, target, nobody);
            require(back.acl == *acl);
            require(back.losses.empty());
        }
    }
    return 0;
}
