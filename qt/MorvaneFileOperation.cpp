// SPDX-License-Identifier: MIT
#include "MorvaneFileOperation.h"

#include <utility>

struct MorvaneFileOperation::State {
    std::stop_source stop;
    MorvaneError error;
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

void MorvaneFileOperation::finish(morvane::NSErrorRef error) {
    state_->error = MorvaneError(std::move(error));
    state_->isFinished = true;
    // First, as a slot may delete it.
    deleteLater();
    Q_EMIT finished();
}
