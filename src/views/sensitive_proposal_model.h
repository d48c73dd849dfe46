#pragma once

#include <vector>

#include <QAbstractTableModel>
#include <QStyledItemDelegate>

#include "project/edits.h"

namespace quillo::views {

// Proposed redactions of a sensitive-info scan as a table: what was found, when in the finished
// video, and a Hide button. Read-only. GUI thread only.
class SensitiveProposalModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column { Kind, Time, Hide, ColumnCount };

    explicit SensitiveProposalModel(QObject* parent = nullptr) : QAbstractTableModel(parent) {}

    // Shows `proposals` with times mapped through `edits`. Unchanged rows keep the view's
    // current row (the playhead moving is a recipe change too).
    void setProposals(const std::vector<project::Redaction>& proposals,
                      const project::Edits& edits);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

private:
    struct Row {
        QString kind;
        double start = 0;  // seconds of the finished video
        double end = 0;
        bool operator==(const Row&) const = default;
    };
    std::vector<Row> m_rows;
};

// Draws the Hide column as a small button and reports clicks on it. GUI thread only.
class SensitiveHideDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    bool editorEvent(QEvent* event, QAbstractItemModel* model, const QStyleOptionViewItem& option,
                     const QModelIndex& index) override;

    // The button's rectangle inside a cell.
    static QRect buttonRect(const QRect& cell, const QFontMetrics& metrics);

signals:
    void hideRequested(int row);
};

}  // namespace quillo::views
