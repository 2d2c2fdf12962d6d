// SPDX-License-Identifier: MIT
#include "MorvaneFileClient.h"

#include <MorvaneOperation/MVFileSizeItem.h>
#include <MorvaneOperation/MVTreeNode.h>
#include <MorvaneOperation/platform/dispatch/DispatchQueue.h>

#include <QFile>
#include <QPointer>
#include <cerrno>
#include <optional>
#include <string>
#include <utility>

#include "QtMainLoop.h"
#include "QtTexts.h"

using namespace morvane;

namespace {

/// Keeps what has come, and returns the error.
template <class T>
auto keeping(const std::shared_ptr<std::optional<T>>& answer) {
    return [answer](Result<T> come) -> NSErrorRef {
        if (!come)
            return come.error();
        *answer = *std::move(come);
        return nullptr;
    };
}

NSErrorRef theErrorAlone(NSErrorRef error) {
    return error;
}

QList<qint64> bytesOf(const std::vector<std::shared_ptr<MVFileSizeItem>>& items) {
    QList<qint64> bytes;
    bytes.reserve(static_cast<qsizetype>(items.size()));
    for (const auto& item : items)
        bytes << item->size();
    return bytes;
}

QList<QUrl> urlsOf(const std::vector<NSURL>& places) {
    QList<QUrl> urls;
    urls.reserve(static_cast<qsizetype>(places.size()));
    for (const auto& place : places)
        urls << urlOf(place);
    return urls;
}

}  // namespace

struct MorvaneFileClient::State {
    std::shared_ptr<MVFileClient> client;
    bool namesLater = false;
};

MorvaneFileClient::MorvaneFileClient(QObject* parent) : MorvaneFileClient({}, parent) {}

MorvaneFileClient::MorvaneFileClient(MVFileClient::ConnectorMaker maker, QObject* parent)
    : QObject(parent), state_(new State{MVFileClient::init({}, std::move(maker))}) {
    useQtMainLoop();
}

MorvaneFileClient::~MorvaneFileClient() = default;

MVOperationOptions MorvaneFileClient::optionsOf(MorvaneFileOperation& operation,
                                                Privilege privilege) {
    static constexpr MVPrivilege privileges[] = {MVPrivilege::never, MVPrivilege::always,
                                                 MVPrivilege::whenRefused};
    return {privileges[privilege], operation.stopToken(),
            [operation = QPointer(&operation)](const auto& sizes) {
                if (operation)
                    Q_EMIT operation->progress(bytesOf(sizes));
            },
            [operation = QPointer(&operation)](const MVItemCounts& counts) {
                if (operation)
                    operation->count(counts);
            }};
}

template <class Come, class Take>
MVFileClient::Completion<Come> MorvaneFileClient::ending(MorvaneFileOperation& operation,
                                                         Take take) {
    return [operation = QPointer(&operation), take](Come come) {
        auto error = take(std::move(come));
        if (operation)
            operation->finish(std::move(error));
    };
}

void MorvaneFileClient::endLater(MorvaneFileOperation& operation, const Phrase& why) {
    const auto error = NSError::errorWithDescription(NSPOSIXErrorDomain, EINVAL, why);
    DispatchQueue::mainQueue().async(
        [end = ending<NSErrorRef>(operation, theErrorAlone), error] { end(error); });
}

std::vector<NSURL> MorvaneFileClient::placesOf(const QList<QUrl>& urls,
                                               MorvaneFileOperation& operation) {
    std::vector<NSURL> places;
    for (const auto& url : urls) {
        auto place = placeOf(url);
        if (!place) {
            endLater(operation, phrase("\"%1\" is not the URL of a file or folder.",
                                       url.toString().toStdString()));
            return {};
        }
        places.push_back(*std::move(place));
    }
    return places;
}

template <class Operation, class Begin>
Operation* MorvaneFileClient::begun(Begin begin) {
    auto operation = std::unique_ptr<Operation>(new Operation(this));
    begin(*operation);
    return operation.release();
}

void MorvaneFileClient::setNamesLater(bool later) {
    state_->namesLater = later;
}

bool MorvaneFileClient::namesLater() const {
    return state_->namesLater;
}

MorvaneAnswer<MVFileAcl>* MorvaneFileClient::readAcl(const QUrl& url, Privilege privilege) {
    return begun<MorvaneAnswer<MVFileAcl>>([&](auto& operation) {
        auto options = optionsOf(operation, privilege);
        if (state_->namesLater) {
            options.namesLater = [](std::function<void()> task) {
                DispatchQueue::mainQueue().async(std::move(task));
            };
        }
        for (const auto& place : placesOf({url}, operation))
            state_->client->readAcl(
                place, options, ending<Result<MVFileAcl>>(operation, keeping(operation.answer_)));
    });
}

MorvaneFileOperation* MorvaneFileClient::writeAcl(const MVFileAcl& acl, Privilege privilege) {
    return begun<MorvaneFileOperation>([&](auto& operation) {
        state_->client->writeAcl(acl, optionsOf(operation, privilege),
                                 ending<NSErrorRef>(operation, theErrorAlone));
    });
}

MorvaneFileOperation* MorvaneFileClient::propagateAcl(const MVFileAcl& acl, Privilege privilege) {
    return begun<MorvaneFileOperation>([&](auto& operation) {
        state_->client->propagateAcl(acl, optionsOf(operation, privilege),
                                     ending<NSErrorRef>(operation, theErrorAlone));
    });
}

MorvaneAnswer<MorvaneAclLosses>* MorvaneFileClient::lossesOfAcl(const MVFileAcl& acl) {
    using Come = Result<MVAclLosses>;
    return begun<MorvaneAnswer<MorvaneAclLosses>>([&](auto& operation) {
        state_->client->lossesOfAcl(
            acl, optionsOf(operation, Never),
            ending<Come>(operation, [answer = operation.answer_](Come come) {
                if (!come)
                    return come.error();
                auto texts = shownLosses(come->losses);
                *answer = {*std::move(come), std::move(texts)};
                return NSErrorRef();
            }));
    });
}

MorvaneAnswer<MorvaneFileClient::Nodes>* MorvaneFileClient::effectiveAccess(
    const QUrl& url, const MorvaneIdentity& who, Privilege privilege) {
    return begun<MorvaneAnswer<Nodes>>([&](auto& operation) {
        if (!who.identity())
            return endLater(operation, phrase("It was not said whose access is wanted."));
        for (const auto& place : placesOf({url}, operation))
            state_->client->effectiveAccess(
                place, who.identity()->uniqueIdentifier(), optionsOf(operation, privilege),
                ending<Result<Nodes>>(operation, keeping(operation.answer_)));
    });
}

MorvaneAnswer<MorvaneRenames>* MorvaneFileClient::rename(const QList<QUrl>& urls,
                                                         const QStringList& names,
                                                         Privilege privilege) {
    return begun<MorvaneAnswer<MorvaneRenames>>([&](auto& operation) {
        auto places = placesOf(urls, operation);
        if (places.empty() && !urls.empty())
            return;
        std::vector<std::string> bytes;
        for (const auto& name : names)
            bytes.push_back(QFile::encodeName(name).toStdString());
        state_->client->rename(
            std::move(places), std::move(bytes), optionsOf(operation, privilege),
            ending<MVFileRenames>(operation, [answer = operation.answer_](auto come) {
                *answer = {urlsOf(come.urls), {come.codes.begin(), come.codes.end()}};
                return come.error;
            }));
    });
}

MorvaneAnswer<QList<qint64>>* MorvaneFileClient::sizes(const QList<QUrl>& urls,
                                                       Privilege privilege) {
    return begun<MorvaneAnswer<QList<qint64>>>([&](auto& operation) {
        auto places = placesOf(urls, operation);
        if (places.empty() && !urls.empty())
            return;
        state_->client->sizes(
            std::move(places), optionsOf(operation, privilege),
            ending<MVFileSizes>(operation, [answer = operation.answer_](auto come) {
                *answer = bytesOf(come.items);
                return come.error;
            }));
    });
}

MorvaneAnswer<QList<QUrl>>* MorvaneFileClient::contents(const QUrl& folder, Privilege privilege) {
    using Come = Result<std::vector<NSURL>>;
    return begun<MorvaneAnswer<QList<QUrl>>>([&](auto& operation) {
        for (const auto& place : placesOf({folder}, operation))
            state_->client->contents(
                place, optionsOf(operation, privilege),
                ending<Come>(operation, [answer = operation.answer_](Come come) {
                    if (!come)
                        return come.error();
                    *answer = urlsOf(*come);
                    return NSErrorRef();
                }));
    });
}

MorvaneAnswer<QList<MorvaneIdentity>>* MorvaneFileClient::identities(const QString& text) {
    using Come = Result<std::vector<CBIdentityRef>>;
    return begun<MorvaneAnswer<QList<MorvaneIdentity>>>([&](auto& operation) {
        state_->client->identities(text.toStdString(), optionsOf(operation, Never),
                                   ending<Come>(operation, [answer = operation.answer_](Come come) {
                                       if (!come)
                                           return come.error();
                                       auto& found = answer->emplace();
                                       for (auto& identity : *come)
                                           found << MorvaneIdentity(std::move(identity));
                                       return NSErrorRef();
                                   }));
    });
}
