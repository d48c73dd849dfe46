#include "sensitive_proposal_model.h"

#include <algorithm>

#include <QApplication>
#include <QCursor>
#include <QMouseEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOption>

#include "analysis_parts.h"

namespace quillo::views {

namespace {
const QString kHide = QStringLiteral("Hide");
}  // namespace

void SensitiveProposalModel::setProposals(const std::vector<project::Redaction>& proposals,
                                          const project::Edits& edits) {
    std::vector<Row> rows;
    for (const auto& proposal : proposals) {
        rows.push_back({QString::fromStdString(proposal.label.value_or("Private text")),
                        edits.outputTime(proposal.start), edits.outputTime(proposal.end)});
    }
    if (rows == m_rows) {
        return;
    }
    beginResetModel();
    m_rows = std::move(rows);
    endResetModel();
}

int SensitiveProposalModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

int SensitiveProposalModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant SensitiveProposalModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) {
        return {};
    }
    const Row& row = m_rows[static_cast<size_t>(index.row())];
    switch (role) {
        case Qt::DisplayRole:
            switch (index.column()) {
                case Kind:
                    return row.kind;
                case Time:
                    return QStringLiteral("%1 – %2").arg(clockText(row.start), clockText(row.end));
                case Hide:
                    return kHide;
                default:
                    return {};
            }
        case Qt::AccessibleTextRole:
            if (index.column() == Hide) {
                return QStringLiteral("Hide %1").arg(row.kind);
            }
            return index.column() == Kind ? row.kind
                                          : QStringLiteral("From %1 to %2")
                                                .arg(clockText(row.start), clockText(row.end));
        case Qt::TextAlignmentRole:
            return QVariant(int(Qt::AlignLeft | Qt::AlignVCenter));
        default:
            return {};
    }
}

QRect SensitiveHideDelegate::buttonRect(const QRect& cell, const QFontMetrics& metrics) {
    const int width = metrics.horizontalAdvance(kHide) + 20;
    const int height = std::min(cell.height() - 4, metrics.height() + 8);
    return QRect(cell.right() - width - 4, cell.center().y() - height / 2, width, height);
}

void SensitiveHideDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                                  const QModelIndex& index) const {
    // The row's background and selection first, then the button over it.
    QStyleOptionViewItem plain = option;
    initStyleOption(&plain, index);
    plain.text.clear();
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &plain, painter, widget);

    QStyleOptionButton button;
    button.rect = buttonRect(option.rect, option.fontMetrics);
    button.text = kHide;
    button.palette = option.palette;
    button.fontMetrics = option.fontMetrics;
    button.state = QStyle::State_Enabled | QStyle::State_Raised;
    if (option.state & QStyle::State_MouseOver &&
        button.rect.contains(widget ? widget->mapFromGlobal(QCursor::pos()) : QPoint())) {
        button.state |= QStyle::State_MouseOver;
    }
    style->drawControl(QStyle::CE_PushButton, &button, painter, widget);
}

QSize SensitiveHideDelegate::sizeHint(const QStyleOptionViewItem& option,
                                      const QModelIndex& index) const {
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    size.setWidth(option.fontMetrics.horizontalAdvance(kHide) + 28);
    size.setHeight(std::max(size.height(), option.fontMetrics.height() + 14));
    return size;
}

bool SensitiveHideDelegate::editorEvent(QEvent* event, QAbstractItemModel* model,
                                        const QStyleOptionViewItem& option,
                                        const QModelIndex& index) {
    if (event->type() == QEvent::MouseButtonRelease) {
        auto* mouse = static_cast<QMouseEvent*>(event);
        if (mouse->button() == Qt::LeftButton &&
            buttonRect(option.rect, option.fontMetrics).contains(mouse->position().toPoint())) {
            emit hideRequested(index.row());
            return true;
        }
    }
    return QStyledItemDelegate::editorEvent(event, model, option, index);
}

}  // namespace quillo::views
