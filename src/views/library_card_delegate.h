#pragma once

#include <QFont>
#include <QRect>
#include <QStyledItemDelegate>

namespace quillo::views {

// Where the parts of one library card go inside its item rectangle (device-independent pixels).
struct CardLayout {
    QRect card;       // the card's own rounded rectangle
    QRect thumbnail;  // the 16:9 picture frame
    QRect title;      // one line of title
    QRect date;       // one line of date and time
};

// Fonts of a card: the title is the base font made bold, the date a point smaller.
QFont cardTitleFont(const QFont& base);
QFont cardDetailFont(const QFont& base);
// The card size for a base font: a fixed width, the height following the two text lines.
QSize cardSize(const QFont& base);
CardLayout cardLayout(const QRect& item, const QFont& base);
// The duration badge's rectangle in the picture's bottom-right corner for `text` in `font`.
QRect badgeRect(const QRect& thumbnail, const QString& text, const QFont& font);

// Paints a LibraryModel row as a card: the thumbnail (or a placeholder while it is made) with
// rounded corners and a duration badge, the title and the date, in the palette's colours, with
// hover, selection and focus states. Editing the card puts a line editor over its title.
// Thread: the GUI thread.
class LibraryCardDelegate : public QStyledItemDelegate {
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                          const QModelIndex& index) const override;
    void setEditorData(QWidget* editor, const QModelIndex& index) const override;
    void setModelData(QWidget* editor, QAbstractItemModel* model,
                      const QModelIndex& index) const override;
    void updateEditorGeometry(QWidget* editor, const QStyleOptionViewItem& option,
                              const QModelIndex& index) const override;

private:
    void paintThumbnail(QPainter* painter, const QStyleOptionViewItem& option,
                        const QModelIndex& index, const QRect& frame) const;
};

}  // namespace quillo::views
