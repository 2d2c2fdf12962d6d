// SPDX-License-Identifier: MIT
#include "MorvaneFileOperation.h"

#include <utility>

struct MorvaneFileOperation::State {
    std::stop_source stop;
    MorvaneError error;
    morvane::MVItemCounts counts;
    bool isFinished = false;
};

MorvaneFileOperation::MorvaneFileOperation(QObject* parent)
    : QObject(parent), state_(std::make_unique<State>()) {}

MorvaneFileOperation::~MorvaneFileOperation() {
    state_->stop.request_stop();
}

bool MorvaneFileOperation::isFinished() const {
    return state_->isFinished;
}

const MorvaneError& MorvaneFileOperation::error() const {
    return state_->error;
}

std::stop_token MorvaneFileOperation::stopToken() const {
    return state_->stop.get_token();
}

void MorvaneFileOperation::cancel() {
    state_->stop.request_stop();
}

qint64 MorvaneFileOperation::itemsDone() const {
    return static_cast<qint64>(state_->counts.done);
}

qint64 MorvaneFileOperation::itemsFailed() const {
    return static_cast<qint64>(state_->counts.failed);
}

void MorvaneFileOperation::count(const morvane::MVItemCounts& counts) {
    if (std::exchange(state_->counts, counts) != counts)
        Q_EMIT itemsCounted();
}

void MorvaneFileOperation::finish(morvane::NSErrorRef error) {
    state_->error = MorvaneError(std::move(error));
    state_->isFinished = true;
    // This comes first, as a slot may delete the operation.
    deleteLater();
    Q_EMIT finished();
}
