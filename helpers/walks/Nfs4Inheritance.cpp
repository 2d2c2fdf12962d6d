// SPDX-License-Identifier: MIT
#include "Nfs4Inheritance.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "ItemOwner.h"
#include "Nfs4Storing.h"

namespace morvane {
namespace {

constexpr std::uint32_t execute = 0x20;

class EntriesWriter final : public InheritedWriter {
  public:
    EntriesWriter(InheritedEntries entries, const Nfs4Item& folder, Nfs4Names names)
        : entries_(std::move(entries)), folder_(folder), names_(std::move(names)) {}

    void tellLosses(EntryLossSet& losses) const {
        const Nfs4Acl none;
        for (const auto& level : entries_) {
            for (const bool isFolder : {false, true}) {
                const Nfs4Target target{folder_.target.owner, folder_.target.group, isFolder};
                const auto& entries = isFolder ? level.folder : level.file;
                const auto replaced = nfs4AclOfEntries(entries, none, target, names_);
                losses.insert(replaced.losses.begin(), replaced.losses.end());
            }
        }
    }

    Result<std::vector<EntryLoss>, WriteFailure> write(const OpenItem& item,
                                                       const struct stat& status,
                                                       std::size_t level) const override {
        const bool isFolder = S_ISDIR(status.st_mode);
        const auto held = AclItem::borrowed(item.descriptor);
        const auto old = readNfs4Item(held);
        if (!old)
            return Failure{WriteFailure{old.error() == ENODATA ? EOPNOTSUPP : old.error()}};
        const auto& [owner, group, folder] = folder_.target;
        const bool changesOwner = status.st_uid != owner || status.st_gid != group;
        if (changesOwner) {
            if (const int code = changeOwner(item, status, owner, group))
                return Failure{WriteFailure{code}};
        }
        const Nfs4Target target{owner, group, isFolder};
        auto acl = nfs4AclOfEntries(isFolder ? entries_[level].folder : entries_[level].file,
                                    old->acl, target, names_)
                       .acl;
        // Identities that inherit nothing get the rights that the mode of the folder shows, so that
        // nobody is left without any.
        acl = withOthersAllowedFirst(withRightsOfFolder(acl, folder_.acl, isFolder), {}, target,
                                     names_);
        if (!isFolder && (status.st_mode & 0111) == 0) {
            for (auto& entry : acl.entries) {
                if (entry.type == Nfs4Allow)
                    entry.mask &= ~execute;
            }
        }
        auto written = writer_.write(held, *old, acl);
        if (written)
            return *std::move(written);
        if (changesOwner)
            giveBack(item, status);
        return Failure{
            WriteFailure{written.error(), whyNfs4AclIsRefused(written.error(), *old, acl)}};
    }

  private:
    const InheritedEntries entries_;
    const Nfs4Item folder_;
    const Nfs4Names names_;
    const Nfs4Writer writer_;
};

}  // namespace

std::unique_ptr<const InheritedWriter> inheritedEntriesWriter(InheritedEntries entries,
                                                              const Nfs4Item& folder,
                                                              Nfs4Names names,
                                                              EntryLossSet& losses) {
    auto writer = std::make_unique<EntriesWriter>(std::move(entries), folder, std::move(names));
    writer->tellLosses(losses);
    return writer;
}

}  // namespace morvane
