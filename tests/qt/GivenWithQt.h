// SPDX-License-Identifier: MIT
#pragma once

// What the pieces of code with Qt in the documentation take as given: a widget of the host and what
// it holds.
#include <Given.h>
#include <MorvaneOperation/qt/MorvaneAclBoxModel.h>
#include <MorvaneOperation/qt/MorvaneAclModel.h>
#include <MorvaneOperation/qt/MorvaneFileClient.h>
#include <MorvaneOperation/qt/MorvaneIdentityModel.h>

#include <QtWidgets>

namespace given {

struct QtHost : QWidget {
    MorvaneFileClient* client = nullptr;
    MorvaneAclModel* model = nullptr;
    MorvaneAnswer<MVFileAcl>* reading = nullptr;
    MorvaneFileOperation* operation = nullptr;
    MVFileAcl acl = shown;
    QTableView* tableView = nullptr;
    QTreeView* treeView = nullptr;
    QListView* listView = nullptr;
    QLineEdit* lineEdit = nullptr;
    QProgressBar* progressBar = nullptr;
    QPushButton* cancelButton = nullptr;
    QUrl folder;
};

}  // namespace given
