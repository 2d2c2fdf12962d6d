// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/ItemList.h>
#include <MorvaneOperation/MVFileConnector.h>
#include <MorvaneOperation/platform/foundation/Result.h>
#include <MorvaneOperation/platform/identity/CBIdentity.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

namespace morvane {

/// Who does the work.
enum class MVPrivilege {
    /// The file service, with the user's own rights.
    never,
    /// The privileged helper, once the right was obtained.
    always,
    /// The file service; if that is refused by the file system's rights (isPermissionError()), the
    /// helper does it again.
    whenRefused,
};

/// What of an operation is the host's choice.
struct MVOperationOptions {
    MVPrivilege privilege = MVPrivilege::never;
    std::stop_token stop = {};
    /// The sizes so far, of the items that were asked for, in their order; empty where the service
    /// tells only that it is at work.
    std::function<void(const std::vector<std::shared_ptr<MVFileSizeItem>>& sizes)> progress = {};
    /// Of a propagation: the items so far, and before the completion those of the whole work. They
    /// begin anew if the helper does the work again. Not called where the service does not tell.
    std::function<void(const MVItemCounts& counts)> itemCounts = {};
    /// Of readAcl(): if given, the list does not wait for names that a directory is slow to tell.
    /// Its entries are without an identity() then, and a text shows their number, until a task of
    /// this executor sets it and their observers are told.
    std::function<void(std::function<void()> task)> namesLater = {};
};

/// The access-control list of an item, as it is read, edited and written.
struct MVFileAcl {
    using Entries = std::vector<std::shared_ptr<MVAclEntry>>;

    NSURL url;
    /// In the order in which they count.
    Entries entries;
    /// What they were read from; null if the service does not tell. Entries that the host adds are
    /// written with it, so that a list that has changed meanwhile is refused (MVAclChanged).
    std::shared_ptr<const MVAclOrigin> origin = nullptr;
    /// What the item's list can hold; empty if the service does not tell.
    std::optional<ItemList> list = std::nullopt;
};

/// What a list would lose.
struct MVAclLosses {
    /// Empty if it would hold all of the entries.
    std::vector<EntryLoss> losses;
    /// The entries of the nearest list that grants no more.
    MVFileAcl::Entries nearest;
};

struct MVFileSizes {
    /// One for each URL, in their order; empty if nothing is known. They have no URL: set it on the
    /// rows that are shown.
    std::vector<std::shared_ptr<MVFileSizeItem>> items;
    /// Null means that all was counted.
    NSErrorRef error = nullptr;
};

struct MVFileRenames {
    /// Where each item is now and, in `codes`, 0 or the errno value that says why it has not its
    /// new name; both are empty if nothing is known.
    std::vector<NSURL> urls;
    std::vector<std::int64_t> codes;
    /// Null means that all have their new names.
    NSErrorRef error = nullptr;
};

/// Why a right was not obtained.
enum class MVRefusal {
    /// The error is another one.
    none,
    /// The user may not have it, or did not prove to be who may.
    denied,
    /// The user did not want to be asked.
    cancelled,
    /// There is no agent that could ask.
    nobodyToAsk,
};
MORVANE_EXPORT MVRefusal refusalOfError(const NSErrorRef& error);
/// Whether the error says that an operation was cancelled by its stop token.
MORVANE_EXPORT bool isCancellation(const NSErrorRef& error);

/// The operations of the file services in a host's words, for a host's main loop.
///
///     auto client = MVFileClient::init();
///     client->readAcl(url, {}, [=](Result<MVFileAcl> acl) {
///         if (!acl)
///             return show(acl.error());
///         if (acl->entries.empty())
///             return;
///         acl->entries[0]->setPermissionGroup(MVAclGroupRead);
///         client->writeAcl(*acl, {.privilege = MVPrivilege::whenRefused}, [](NSErrorRef error) {
///             if (error) show(error);
///         });
///     });
///
/// Each operation returns at once, and nothing is sent, encoded for the service or started on the
/// caller's thread. Its completion comes exactly once, as a task of the executor, which is the main
/// queue unless the host gives one, and never inside the call. Progress comes before the
/// completion, in the same way; what the host is too slow to look at is left out. (A program
/// without a loop may give an executor that runs each task at once: it then comes on a thread of
/// the client's, or inside the call of an operation that was cancelled before it began.)
///
/// Order: operations run beside each other, each on a connection of its own, as a service's
/// questions do not say which request they belong to. Some are started at once and the others in
/// their turn (see mostConnections). What depends on an operation is begun in its completion.
///
/// Cancelling: a request that has not been sent when its stop token is triggered is not sent; the
/// completion then brings the error ECANCELED of NSPOSIXErrorDomain. Once it was sent, the service
/// gets a no when it asks next, and what it answers is what the completion brings: ECANCELED, or
/// the result of work that was done before.
///
/// Privilege: where an operation needs a right, the system asks the user on a thread of the
/// client's. However many operations are refused by the user's own rights, the user is asked once:
/// the right holds for those that follow, and a no counts for every operation that was begun before
/// it was said. The helper takes no symbolic links, so a path is resolved before it is sent there.
///
/// Ownership: the end of a client cancels its operations; their completions still come. Threads:
/// any, but the objects of the model, which are used on one, the main thread. Failure: a request
/// that cannot be sent for want of memory or threads ends with an error; only a null entry throws
/// in the call (std::invalid_argument), and nothing is begun then. Executor, completions and
/// progress should not throw: see NSUncaughtException.h.
class MORVANE_EXPORT MVFileClient final {
  public:
    /// Runs a task later, on the thread on which completions are wanted, in the order in which it
    /// is given them. Called on any thread.
    using Executor = std::function<void(std::function<void()> task)>;
    /// Makes a connector for each connection that is needed: on any thread, on several at once. An
    /// operation for which it throws, or makes none, ends with an error.
    using ConnectorMaker = std::function<std::shared_ptr<MVFileConnector>()>;
    template <class Answer>
    using Completion = std::function<void(Answer)>;

    /// At most so many connections are open to the file service, each of which is a process, and so
    /// many to the helper; propagations and sizes have all but one of them. When nothing is to be
    /// done, one of each is kept.
    static constexpr std::size_t mostConnections = 4;

    /// Without an executor completions come on the main queue (DispatchQueue.h).
    static std::shared_ptr<MVFileClient> init(Executor executor = {}, ConnectorMaker maker = {});
    ~MVFileClient();
    MVFileClient(const MVFileClient&) = delete;
    MVFileClient& operator=(const MVFileClient&) = delete;

    void readAcl(const NSURL& url, MVOperationOptions options,
                 Completion<Result<MVFileAcl>> completion);
    /// Replaces the list of the item. The entries are taken as they are during the call.
    void writeAcl(const MVFileAcl& acl, MVOperationOptions options,
                  Completion<NSErrorRef> completion);
    /// Gives everything below the folder what it inherits of the entries. An error tells of each
    /// item that has failed (failuresOfError()).
    void propagateAcl(const MVFileAcl& acl, MVOperationOptions options,
                      Completion<NSErrorRef> completion);
    /// Works out what writing would lose; of the options the stop token counts. Asks no service,
    /// but the user database. The error ENOTSUP if `acl.list` is empty.
    void lossesOfAcl(const MVFileAcl& acl, MVOperationOptions options,
                     Completion<Result<MVAclLosses>> completion);
    /// What the user or group can really do to the item.
    void effectiveAccess(const NSURL& url, const NSUUID& who, MVOperationOptions options,
                         Completion<Result<std::vector<std::shared_ptr<MVTreeNode>>>> completion);
    /// Gives each of `urls` the name at its place in `names`, all as if at once. The error EINVAL,
    /// with nothing renamed, if a new name is not UTF-8.
    void rename(std::vector<NSURL> urls, std::vector<std::string> names, MVOperationOptions options,
                Completion<MVFileRenames> completion);
    /// Adds up each item with all that is below it.
    void sizes(std::vector<NSURL> urls, MVOperationOptions options,
               Completion<MVFileSizes> completion);
    /// The items inside the folder, in its own order.
    void contents(const NSURL& directory, MVOperationOptions options,
                  Completion<Result<std::vector<NSURL>>> completion);

    /// At most so many identities are found at once.
    static constexpr std::size_t mostIdentities = 1000;
    /// Whom an entry can be for: users, groups and everyone, whose names contain `text` in letters
    /// of either case. Those of exactly that name come first, then those that begin with it, then
    /// the others, each in alphabetical order; for an empty text all are found. Somebody whom a
    /// directory knows but does not list is found by the whole name. Nothing is waited for on the
    /// caller's thread, and when the user has typed on, the stop token ends the search for what was
    /// typed before at once, even if a directory does not answer. Of the options the stop token
    /// counts.
    void identities(std::string text, MVOperationOptions options,
                    Completion<Result<std::vector<CBIdentityRef>>> completion);

    class MORVANE_INTERNAL State;
    explicit MVFileClient(std::shared_ptr<State> state);

  private:
    std::shared_ptr<State> state_;
};

}  // namespace morvane
