// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <cstdio>
#include <cstdlib>

namespace {

/// A warning of Qt is a failure.
void failAtMessages(QtMsgType type, const QMessageLogContext&, const QString& text) {
    std::fprintf(stderr, "%s\n", text.toLocal8Bit().constData());
    if (type == QtFatalMsg)
        std::abort();
    if (type != QtDebugMsg && type != QtInfoMsg)
        ADD_FAILURE() << "Qt warns: " << text.toStdString();
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler(failAtMessages);
    return RUN_ALL_TESTS();
}
