// SPDX-License-Identifier: MIT
#include "MorvaneFileOperation.h"

#include <utility>

MorvaneFileOperation::MorvaneFileOperation(QObject* parent) : QObject(parent) {}

MorvaneFileOperation::~MorvaneFileOperation() {
    stop_.request_stop();
}

void MorvaneFileOperation::cancel() {
    stop_.request_stop();
}

void MorvaneFileOperation::finish(morvane::NSErrorRef error) {
    error_ = MorvaneError(std::move(error));
    finished_ = true;
    // First, as a slot may delete it.
    deleteLater();
    Q_EMIT finished();
}
