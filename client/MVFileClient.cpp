// SPDX-License-Identifier: MIT
#include <MorvaneOperation/MVFileClient.h>
#include <MorvaneOperation/MVItemFailures.h>
#include <MorvaneOperation/MVOperationError.h>
#include <MorvaneOperation/ResolvedUrl.h>
#include <MorvaneOperation/platform/archive/Unicode.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "ClientOperation.h"
#include "EntrySnapshot.h"
#include "NamesLater.h"

namespace morvane {

namespace {

using Operations = std::shared_ptr<MVFileClient::State>;

NSURL itemFor(bool privileged, const NSURL& url) {
    return privileged ? withoutLinks(url) : url;
}

std::vector<NSURL> itemsFor(bool privileged, const std::vector<NSURL>& urls) {
    std::vector<NSURL> items;
    for (const auto& url : urls)
        items.push_back(privileged ? withoutLinksOnTheWay(url) : url);
    return items;
}

template <class Answer>
std::shared_ptr<ClientOperationFor<Answer>> operation(
    Operations client, MVOperationOptions options, const char* right, bool isLong,
    typename ClientOperationFor<Answer>::Request request,
    MVFileClient::Completion<Answer> completion) {
    return std::make_shared<ClientOperationFor<Answer>>(std::move(client), std::move(options),
                                                        right, isLong, std::move(request),
                                                        std::move(completion));
}

template <class T>
auto asResult(std::function<void(Result<T>)> reply) {
    return [reply = std::move(reply)](T value, NSErrorRef error) {
        if (error)
            reply(Failure{std::move(error)});
        else
            reply(std::move(value));
    };
}

/// Passes an answer to the executor, once. Only the task there holds the completion.
template <class Answer>
auto telling(const MVFileClient::Executor& executor, std::function<void(Answer)> completion) {
    const auto held = std::make_shared<std::function<void(Answer)>>(std::move(completion));
    return [executor, held](Answer answer) {
        executor([completion = std::move(*held), answer = std::move(answer)] {
            if (completion)
                completion(answer);
        });
    };
}

/// The list of `item`, to which the host refers as `url`.
MVFileAcl aclOf(const NSURL& url, const NSURL& item, MVFileAcl::Entries entries) {
    MVFileAcl acl{url, std::move(entries)};
    moveOrigins(acl.entries, item, url);
    acl.list = ItemList::asRead(acl.entries);
    const auto told = std::find_if(acl.entries.begin(), acl.entries.end(),
                                   [](const auto& entry) { return entry->origin() != nullptr; });
    if (told != acl.entries.end())
        acl.origin = (*told)->origin();
    return acl;
}

/// The list with who its entries are for: looked up here, or beside it if the host has said where
/// it is told of names.
MVFileAcl namedAclOf(const NSURL& url, const NSURL& item, MVFileAcl::Entries entries,
                     const MVFileClient::Executor& later, DispatchQueue& queue) {
    if (!later) {
        for (const auto& entry : entries)
            entry->identity();  // here nobody waits at a window for it
        return aclOf(url, item, std::move(entries));
    }
    const auto names = std::make_shared<NamesLater>(entries, later);
    names->lookUp(queue);
    auto acl = aclOf(url, item, std::move(entries));
    names->handOver();
    return acl;
}

/// The names that are asked for, and which items have them so far.
struct Renaming {
    std::vector<NSURL> urls;
    std::vector<std::string> names;
    /// The answer of the file service, if some items are asked for again.
    std::optional<MVFileRenames> first;
    /// The places of those items in it.
    std::vector<std::size_t> places;

    /// Enters the results of the items that were asked for again, which are all that had failed.
    MVFileRenames whole(MVFileRenames part) const {
        if (!first)
            return part;
        MVFileRenames all = *first;
        if (part.urls.size() == places.size() && part.codes.size() == places.size()) {
            for (std::size_t i = 0; i != places.size(); ++i) {
                all.urls[places[i]] = std::move(part.urls[i]);
                all.codes[places[i]] = part.codes[i];
            }
        }
        all.error = std::move(part.error);
        return all;
    }
};

/// Returns whether some were refused. All that have failed are asked for again then, as others may
/// have waited for the names of these.
bool asksAgain(Renaming& renaming, const MVFileRenames& answer) {
    Renaming again;
    bool isRefused = false;
    const auto known = std::min({answer.urls.size(), answer.codes.size(), renaming.names.size()});
    for (std::size_t i = 0; i != known; ++i) {
        const auto& url = answer.urls[i];
        if (answer.codes[i] == 0)
            continue;
        isRefused |= isPermissionError(
            NSError::errorWithDomain(NSPOSIXErrorDomain, answer.codes[i], {{NSURLErrorKey, url}}));
        again.urls.push_back(url);
        again.names.push_back(renaming.names[i]);
        again.places.push_back(i);
    }
    if (!isRefused)
        return false;
    again.first = answer;
    renaming = std::move(again);
    return true;
}

/// Returns whether somebody else may change an item that has failed. The error itself is about one
/// of them, which perhaps nobody may. What was cancelled is not to be done by anybody.
bool isRefusedForSome(const NSErrorRef& error) {
    if (!error || (error->domain() == NSPOSIXErrorDomain && error->code() == ECANCELED))
        return false;
    if (isPermissionError(error))
        return true;
    const auto failures = failuresOfError(*error).errors;
    return std::any_of(failures.begin(), failures.end(), isPermissionError);
}

/// The places of the items, named in the way in which the host has named them.
void moveBack(std::vector<NSURL>& now, const std::vector<NSURL>& items,
              const std::vector<NSURL>& meant) {
    for (std::size_t i = 0; i != std::min(now.size(), items.size()); ++i)
        now[i] = movedTo(now[i], folderOf(items[i]), folderOf(meant[i]));
}

}  // namespace

std::shared_ptr<MVFileClient> MVFileClient::init(Executor executor, ConnectorMaker maker) {
    if (!executor)
        executor = [](std::function<void()> task) {
            DispatchQueue::mainQueue().async(std::move(task));
        };
    if (!maker)
        maker = [] { return MVConnector::init<MVFileConnector>(); };
    return std::make_shared<MVFileClient>(
        std::make_shared<State>(std::move(executor), std::move(maker)));
}

MVFileClient::MVFileClient(std::shared_ptr<State> state) : state_(std::move(state)) {}

MVFileClient::~MVFileClient() {
    state_->cancelAll();
}

void MVFileClient::readAcl(const NSURL& url, MVOperationOptions options,
                           Completion<Result<MVFileAcl>> completion) {
    auto later = std::move(options.namesLater);
    operation<Result<MVFileAcl>>(
        state_, std::move(options), MVRightGetFileAcl, false,
        [url, later = std::move(later), queue = state_->names](MVFileRequest& service,
                                                               bool privileged, auto reply) {
            const auto item = itemFor(privileged, url);
            service.getAclEntriesWithUrl(item, [url, item, later, queue, reply](
                                                   MVFileAcl::Entries entries, NSErrorRef error) {
                if (error)
                    return reply(Failure{std::move(error)});
                std::optional<MVFileAcl> acl;
                try {
                    acl = namedAclOf(url, item, std::move(entries), later, *queue);
                } catch (const std::exception&) {
                    return reply(Failure{errorOfFailure(std::current_exception())});
                }
                reply(*std::move(acl));
            });
        },
        std::move(completion))
        ->start();
}

void MVFileClient::writeAcl(const MVFileAcl& acl, MVOperationOptions options,
                            Completion<NSErrorRef> completion) {
    operation<NSErrorRef>(
        state_, std::move(options), MVRightSetFileAcl, false,
        [url = acl.url, snapshot = EntrySnapshot(acl)](MVFileRequest& service, bool privileged,
                                                       auto reply) {
            const auto item = itemFor(privileged, url);
            service.setAclEntries(snapshot.entries(url, item), item, reply);
        },
        std::move(completion))
        ->start();
}

void MVFileClient::propagateAcl(const MVFileAcl& acl, MVOperationOptions options,
                                Completion<NSErrorRef> completion) {
    const auto propagation = operation<NSErrorRef>(
        state_, std::move(options), MVRightPropagateFileAcl, true,
        [url = acl.url, snapshot = EntrySnapshot(acl)](MVFileRequest& service, bool privileged,
                                                       auto reply) {
            const auto item = itemFor(privileged, url);
            service.propagateAclEntries(snapshot.entries(url, item), item, reply);
        },
        std::move(completion));
    propagation->setRefusal(isRefusedForSome);
    propagation->start();
}

void MVFileClient::lossesOfAcl(const MVFileAcl& acl, MVOperationOptions options,
                               Completion<Result<MVAclLosses>> completion) {
    const auto compare = [list = acl.list, url = acl.url, snapshot = EntrySnapshot(acl),
                          stop = std::move(options.stop)]() -> Result<MVAclLosses> {
        if (!list)
            return Failure{
                NSError::errorWithDomain(NSPOSIXErrorDomain, ENOTSUP, {{NSURLErrorKey, url}})};
        if (stop.stop_requested())
            return Failure{cancellation()};
        const auto entries = snapshot.entries(url, url);
        MVAclLosses losses{list->losses(entries), list->nearest(entries)};
        // One that loses nothing is the list that the host has.
        for (std::size_t i = 0; !losses.losses.empty() && i != losses.nearest.size(); ++i) {
            if (stop.stop_requested())
                return Failure{cancellation()};
            losses.nearest[i]->identity();  // here nobody waits at a window for it
        }
        return losses;
    };
    const auto tell = telling(state_->executor, std::move(completion));
    try {
        state_->work->async([compare, tell] {
            try {
                tell(compare());
            } catch (const std::exception&) {
                tell(Failure{errorOfFailure(std::current_exception())});
            }
        });
    } catch (const std::exception&) {
        tell(Failure{errorOfFailure(std::current_exception())});
    }
}

void MVFileClient::effectiveAccess(
    const NSURL& url, const NSUUID& who, MVOperationOptions options,
    Completion<Result<std::vector<std::shared_ptr<MVTreeNode>>>> completion) {
    using Nodes = std::vector<std::shared_ptr<MVTreeNode>>;
    operation<Result<Nodes>>(
        state_, std::move(options), MVRightGetFileAccess, false,
        [url, who](MVFileRequest& service, bool privileged, auto reply) {
            service.getAclAccessWithUrl(itemFor(privileged, url), who, asResult<Nodes>(reply));
        },
        std::move(completion))
        ->start();
}

void MVFileClient::rename(std::vector<NSURL> urls, std::vector<std::string> names,
                          MVOperationOptions options, Completion<MVFileRenames> completion) {
    for (const auto& name : names) {
        // A name is sent as a text, which must be UTF-8.
        if (auto shown = validUtf8(name); shown != name)
            return telling(state_->executor, std::move(completion))(
                {{},
                 {},
                 NSError::errorWithDescription(
                     NSPOSIXErrorDomain, EINVAL,
                     phrase("The new name \"%1\" is not UTF-8. Choose one that is.", shown))});
    }
    // The request and the look at its answer do not run at the same time.
    const auto asked = std::make_shared<Renaming>();
    asked->urls = std::move(urls);
    asked->names = std::move(names);
    const auto renaming = operation<MVFileRenames>(
        state_, std::move(options), MVRightRenameFiles, false,
        [asked](MVFileRequest& service, bool privileged, auto reply) {
            const auto items = itemsFor(privileged, asked->urls);
            service.renameUrls(
                items, asked->names, [asked, items, reply](auto now, auto codes, NSErrorRef error) {
                    moveBack(now, items, asked->urls);
                    reply(asked->whole({std::move(now), std::move(codes), std::move(error)}));
                });
        },
        std::move(completion));
    renaming->setRefusal(
        [asked](const MVFileRenames& answer) { return asksAgain(*asked, answer); });
    renaming->start();
}

void MVFileClient::sizes(std::vector<NSURL> urls, MVOperationOptions options,
                         Completion<MVFileSizes> completion) {
    operation<MVFileSizes>(
        state_, std::move(options), MVRightGetFileSize, true,
        [urls = std::move(urls)](MVFileRequest& service, bool privileged, auto reply) {
            service.getSizesWithUrls(itemsFor(privileged, urls),
                                     [reply](auto items, NSErrorRef error) {
                                         reply(MVFileSizes{std::move(items), std::move(error)});
                                     });
        },
        std::move(completion))
        ->start();
}

void MVFileClient::contents(const NSURL& directory, MVOperationOptions options,
                            Completion<Result<std::vector<NSURL>>> completion) {
    operation<Result<std::vector<NSURL>>>(
        state_, std::move(options), MVRightGetFileSize, false,
        [directory](MVFileRequest& service, bool privileged, auto reply) {
            const auto item = itemFor(privileged, directory);
            service.getContentsOfDirectory(
                item, {}, [directory, item, reply](std::vector<NSURL> urls, NSErrorRef error) {
                    for (auto& url : urls)
                        url = movedTo(url, item, directory);
                    asResult<std::vector<NSURL>>(reply)(std::move(urls), std::move(error));
                });
        },
        std::move(completion))
        ->start();
}

void MVFileClient::identities(std::string text, MVOperationOptions options,
                              Completion<Result<std::vector<CBIdentityRef>>> completion) {
    const auto tell = telling(state_->executor, std::move(completion));
    try {
        state_->people->find(std::move(text), options.stop, tell);
    } catch (const std::exception&) {
        tell(Failure{errorOfFailure(std::current_exception())});
    }
}

}  // namespace morvane
