#pragma once

#include <QStyledItemDelegate>

namespace quillo::views {

// Paints a SourceListModel row as a card: the source's picture (a placeholder while it is
// made), the app's icon and name on one line and the window title (or display size) below, in
// the palette's colours, with hover, selection and focus states. Thread: the GUI thread.
class SourceCardDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // The size of a thumbnail's frame on a card.
    static QSize thumbnailSize();

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

private:
    void paintPicture(QPainter* painter, const QStyleOptionViewItem& option,
                      const QModelIndex& index, const QRect& frame) const;
};

}  // namespace quillo::views
