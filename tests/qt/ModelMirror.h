// SPDX-License-Identifier: MIT
#pragma once

#include <MorvaneOperation/qt/MorvaneAclModel.h>
#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <map>
#include <string>
#include <vector>

namespace morvane {

/// Has of a model what its signals tell, as a view has. What a model shows otherwise than a view
/// was told has not been told. Qt's own tester watches the model too, and ends the program.
class ModelMirror {
  public:
    explicit ModelMirror(QAbstractItemModel& model)
        : model_(model), tester_(&model, QAbstractItemModelTester::FailureReportingMode::Fatal) {
        const auto readAll = [this] { shown_ = allOf({}); };
        QObject::connect(&model, &QAbstractItemModel::modelReset, &context_, readAll);
        QObject::connect(&model, &QAbstractItemModel::rowsInserted, &context_, readAll);
        QObject::connect(&model, &QAbstractItemModel::rowsRemoved, &context_, readAll);
        QObject::connect(&model, &QAbstractItemModel::dataChanged, &context_,
                         [this](const QModelIndex& first, const QModelIndex& last) {
                             ++changes_;
                             for (int row = first.row(); row <= last.row(); ++row) {
                                 for (int column = first.column(); column <= last.column();
                                      ++column)
                                     shown_[pathOf(first.sibling(row, column))] =
                                         cell(first.sibling(row, column));
                             }
                         });
        readAll();
    }

    /// Sees that everything is as it was told. `edit` is what was done last.
    void compare(const std::string& edit) {
        const auto now = allOf({});
        for (const auto& [path, content] : now) {
            const auto place = shown_.find(path);
            ASSERT_TRUE(place != shown_.end()) << edit;
            EXPECT_EQ(place->second, content) << edit << ", " << path;
        }
        EXPECT_EQ(shown_.size(), now.size()) << edit;
    }
    int changes() const { return changes_; }

  private:
    using Cells = std::map<std::string, std::string>;

    static std::string pathOf(const QModelIndex& index) {
        return (index.parent().isValid() ? pathOf(index.parent()) + '/' : std::string()) +
               std::to_string(index.row()) + ',' + std::to_string(index.column());
    }
    static std::string cell(const QModelIndex& index) {
        QStringList parts{QString::number(index.flags())};
        for (const int role : {int(Qt::DisplayRole), int(Qt::EditRole), int(Qt::CheckStateRole),
                               int(Qt::ToolTipRole), int(MorvaneAclModel::SubjectRole)}) {
            const auto value = index.data(role);
            parts << (value.canConvert<MorvaneIdentity>() ? value.value<MorvaneIdentity>().text()
                                                          : value.toString());
        }
        for (const auto& choice :
             index.data(MorvaneAclModel::ChoicesRole).value<QList<MorvaneChoice>>())
            parts << choice.text << QString::number(choice.code) << choice.whyNot;
        return parts.join('|').toStdString();
    }
    Cells allOf(const QModelIndex& parent) const {
        Cells cells;
        for (int row = 0; row != model_.rowCount(parent); ++row) {
            for (int column = 0; column != model_.columnCount(parent); ++column) {
                const auto index = model_.index(row, column, parent);
                cells[pathOf(index)] = cell(index);
                cells.merge(allOf(index));
            }
        }
        return cells;
    }

    QAbstractItemModel& model_;
    QAbstractItemModelTester tester_;
    Cells shown_;
    int changes_ = 0;
    // Its connections end first.
    QObject context_;
};

}  // namespace morvane
