// SPDX-License-Identifier: MIT
// The Permissions dialog of a file manager.
//     cmake -S . -B build && cmake --build build && build/permissions_dialog PATH
#include <MorvaneOperation/qt/MorvaneAclBoxModel.h>
#include <MorvaneOperation/qt/MorvaneIdentityModel.h>

#include <QtWidgets>

/// A menu in a cell of the table.
class ChoiceDelegate final : public QStyledItemDelegate {
  public:
    using QStyledItemDelegate::QStyledItemDelegate;
    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem&,
                          const QModelIndex& index) const override {
        const auto choices = index.data(MorvaneAclModel::ChoicesRole).value<QList<MorvaneChoice>>();
        if (choices.isEmpty())
            return nullptr;
        auto* const menu = new QComboBox(parent);
        for (int i = 0; i != choices.size(); ++i) {
            menu->addItem(choices[i].text, choices[i].code);
            auto* const row = qobject_cast<QStandardItemModel*>(menu->model())->item(i);
            row->setEnabled(choices[i].isPossible());
            row->setToolTip(choices[i].whyNot);
        }
        // The choice counts when the menu has lost the focus.
        connect(menu, &QComboBox::activated, parent, [parent] { parent->setFocus(); });
        return menu;
    }
    void setEditorData(QWidget* editor, const QModelIndex& index) const override {
        auto* const menu = static_cast<QComboBox*>(editor);
        menu->setCurrentIndex(menu->findData(index.data(Qt::EditRole)));
    }
    void setModelData(QWidget* editor, QAbstractItemModel* model,
                      const QModelIndex& index) const override {
        model->setData(index, static_cast<QComboBox*>(editor)->currentData());
    }
};

class PermissionsDialog final : public QDialog {
  public:
    explicit PermissionsDialog(const QString& path) : path_(path) {
        using Buttons = QDialogButtonBox;
        auto* const layout = new QVBoxLayout(this);
        layout->addWidget(table_);
        layout->addWidget(tree_);
        auto* const buttons = new Buttons(Buttons::Save | Buttons::Cancel);
        const auto add = buttons->addButton("&Add…", Buttons::ActionRole);
        const auto remove = buttons->addButton("&Remove", Buttons::ActionRole);
        layout->addWidget(buttons);
        resize(720, 560);
        table_->setModel(acl_);
        table_->setItemDelegate(new ChoiceDelegate(this));
        table_->setTabKeyNavigation(false);
        table_->verticalHeader()->hide();
        tree_->setModel(boxes_);
        tree_->header()->hide();
        connect(boxes_, &QAbstractItemModel::modelReset, tree_, &QTreeView::expandAll);
        connect(table_->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
                [=, this](const QModelIndex& current) {
                    boxes_->setEntry(acl_, current.row());
                    remove->setEnabled(acl_->whyNotRemoved(current.row()).isEmpty());
                });
        connect(add, &QPushButton::clicked, this, &PermissionsDialog::addSomebody);
        connect(remove, &QPushButton::clicked, acl_,
                [this] { acl_->removeRow(table_->currentIndex().row()); });
        connect(buttons, &Buttons::accepted, this, &PermissionsDialog::save);
        connect(buttons, &Buttons::rejected, this, &QDialog::reject);

        const auto url = QUrl::fromLocalFile(path);
        const auto reading = client_.readAcl(url, MorvaneFileClient::WhenRefused);
        connect(reading, &MorvaneFileOperation::finished, this, [this, reading] {
            if (!succeeded(reading))
                return reject();
            acl_->setAcl(reading->answer());
            show(0);
            setWindowTitle("Permissions of " + path_);
        });
    }

  private:
    bool succeeded(const MorvaneFileOperation* operation) {
        if (operation->error())
            QMessageBox::warning(this, path_, operation->error().text());
        return !operation->error();
    }

    void show(int row) {
        table_->resizeColumnsToContents();
        table_->setCurrentIndex(acl_->index(row, MorvaneAclModel::PermissionsColumn));
        table_->setFocus();
    }

    void addSomebody() {
        QDialog search(this);
        search.setWindowTitle("Add an entry for");
        QLineEdit text;
        QListView list;
        MorvaneIdentityModel found(&client_);
        list.setModel(&found);
        QVBoxLayout layout(&search);
        layout.addWidget(&text);
        layout.addWidget(&list);
        connect(&text, &QLineEdit::textChanged, &found, &MorvaneIdentityModel::setText);
        connect(&found, &QAbstractItemModel::modelReset, &list,
                [&] { list.setCurrentIndex(found.index(0)); });
        const auto choose = [&] {
            if (list.currentIndex().isValid())
                search.accept();
        };
        connect(&text, &QLineEdit::returnPressed, &search, choose);
        connect(&list, &QListView::activated, &search, choose);
        if (search.exec() == QDialog::Accepted)
            show(acl_->addEntry(found.identity(list.currentIndex().row())));
    }

    void save() {
        const auto asking = client_.lossesOfAcl(acl_->acl());
        connect(asking, &MorvaneFileOperation::finished, this, [this, asking] {
            if (!succeeded(asking))
                return;
            if (const auto lost = asking->answer(); !lost.texts.isEmpty()) {
                const auto texts = "This cannot be stored:\n\n" + lost.texts.join('\n');
                const auto answer = QMessageBox::question(this, "Save the nearest list?", texts);
                if (answer != QMessageBox::Yes)
                    return;
                acl_->setEntries(lost.nearest);
            }
            const auto writing = client_.writeAcl(acl_->acl(), MorvaneFileClient::WhenRefused);
            connect(writing, &MorvaneFileOperation::finished, this, [this, writing] {
                if (succeeded(writing))
                    accept();
            });
        });
    }

    const QString path_;
    QTableView* const table_ = new QTableView;
    QTreeView* const tree_ = new QTreeView;
    MorvaneFileClient client_;
    MorvaneAclModel* const acl_ = new MorvaneAclModel(this);
    MorvaneAclBoxModel* const boxes_ = new MorvaneAclBoxModel(this);
};

int main(int argc, char** argv) {
    const QApplication application(argc, argv);
    if (argc != 2)
        qFatal("usage: permissions_dialog PATH");
    return PermissionsDialog(QFile::decodeName(argv[1])).exec() == QDialog::Accepted ? 0 : 1;
}
