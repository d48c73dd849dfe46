#include "library_card_delegate.h"

#include <QAbstractItemView>
#include <QLineEdit>
#include <QPainter>
#include <QPainterPath>

#include "colour_mix.h"
#include "library_model.h"

namespace quillo::views {

namespace {

constexpr int kCardWidth = 256;
constexpr int kInset = 8;  // between the card's edge and the picture
constexpr int kThumbnailHeight = (kCardWidth - 2 * kInset) * 9 / 16;
constexpr int kTextGap = 8;
constexpr int kLineGap = 2;
constexpr int kBottom = 10;
constexpr qreal kCardRadius = 10;
constexpr qreal kThumbnailRadius = 7;

}  // namespace

QFont cardTitleFont(const QFont& base) {
    QFont font = base;
    font.setWeight(QFont::DemiBold);
    return font;
}

QFont cardDetailFont(const QFont& base) {
    QFont font = base;
    if (font.pointSizeF() > 0) {
        font.setPointSizeF(std::max(7.0, font.pointSizeF() - 1));
    }
    return font;
}

QSize cardSize(const QFont& base) {
    int title = QFontMetrics(cardTitleFont(base)).height();
    int detail = QFontMetrics(cardDetailFont(base)).height();
    return {kCardWidth, kInset + kThumbnailHeight + kTextGap + title + kLineGap + detail + kBottom};
}

CardLayout cardLayout(const QRect& item, const QFont& base) {
    QSize size = cardSize(base);
    CardLayout layout;
    layout.card = QRect(item.topLeft() + QPoint((item.width() - size.width()) / 2, 0), size);
    layout.thumbnail = QRect(layout.card.left() + kInset, layout.card.top() + kInset,
                             size.width() - 2 * kInset, kThumbnailHeight);
    int title = QFontMetrics(cardTitleFont(base)).height();
    int detail = QFontMetrics(cardDetailFont(base)).height();
    layout.title = QRect(layout.thumbnail.left() + 2, layout.thumbnail.bottom() + 1 + kTextGap,
                         layout.thumbnail.width() - 4, title);
    layout.date = QRect(layout.title.left(), layout.title.bottom() + 1 + kLineGap,
                        layout.title.width(), detail);
    return layout;
}

QRect badgeRect(const QRect& thumbnail, const QString& text, const QFont& font) {
    QFontMetrics metrics(font);
    int width = metrics.horizontalAdvance(text) + 12;
    int height = metrics.height() + 4;
    return {thumbnail.right() + 1 - 6 - width, thumbnail.bottom() + 1 - 6 - height, width, height};
}

void LibraryCardDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                                const QModelIndex& index) const {
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QPalette& palette = option.palette;
    CardLayout layout = cardLayout(option.rect, option.font);
    bool selected = option.state & QStyle::State_Selected;
    bool hovered = option.state & QStyle::State_MouseOver;
    bool focused =
        (option.state & QStyle::State_HasFocus) && option.widget && option.widget->hasFocus();
    QColor highlight = palette.color(QPalette::Active, QPalette::Highlight);

    QRectF card = QRectF(layout.card).adjusted(1, 1, -1, -1);
    if (selected) {
        painter->setPen(QPen(highlight, focused ? 2 : 1.25));
        painter->setBrush(withAlpha(highlight, 44));
        painter->drawRoundedRect(card, kCardRadius, kCardRadius);
    } else if (hovered || focused) {
        QColor fill = mix(palette.color(QPalette::Base), palette.color(QPalette::Text), 0.06);
        painter->setPen(focused ? QPen(highlight, 2) : Qt::NoPen);
        painter->setBrush(fill);
        painter->drawRoundedRect(card, kCardRadius, kCardRadius);
    }

    paintThumbnail(painter, option, index, layout.thumbnail);

    painter->setPen(palette.color(QPalette::Text));
    QFont title = cardTitleFont(option.font);
    painter->setFont(title);
    QString text = index.data(Qt::DisplayRole).toString();
    painter->drawText(layout.title, Qt::AlignLeft | Qt::AlignVCenter,
                      QFontMetrics(title).elidedText(text, Qt::ElideRight, layout.title.width()));

    QFont detail = cardDetailFont(option.font);
    painter->setFont(detail);
    painter->setPen(palette.color(QPalette::PlaceholderText));
    QString date = index.data(LibraryModel::DateRole).toString();
    painter->drawText(layout.date, Qt::AlignLeft | Qt::AlignVCenter,
                      QFontMetrics(detail).elidedText(date, Qt::ElideRight, layout.date.width()));
    painter->restore();
}

void LibraryCardDelegate::paintThumbnail(QPainter* painter, const QStyleOptionViewItem& option,
                                         const QModelIndex& index, const QRect& frame) const {
    const QPalette& palette = option.palette;
    QPainterPath clip;
    clip.addRoundedRect(QRectF(frame), kThumbnailRadius, kThumbnailRadius);
    painter->save();
    painter->setClipPath(clip);
    QColor base = palette.color(QPalette::Base);
    QColor text = palette.color(QPalette::Text);
    painter->fillRect(frame, mix(base, text, 0.10));

    QImage image = index.data(LibraryModel::ThumbnailRole).value<QImage>();
    if (!image.isNull()) {
        // Letterboxed onto a near-black frame, as a player would show it.
        painter->fillRect(frame, QColor(18, 18, 22));
        QSize fitted = image.size().scaled(frame.size(), Qt::KeepAspectRatio);
        QRect target(frame.center() - QPoint(fitted.width() / 2, fitted.height() / 2), fitted);
        painter->setRenderHint(QPainter::SmoothPixmapTransform);
        painter->drawImage(target, image);
    } else if (index.data(LibraryModel::ThumbnailFailedRole).toBool()) {
        painter->setPen(palette.color(QPalette::PlaceholderText));
        painter->setFont(cardDetailFont(option.font));
        painter->drawText(frame, Qt::AlignCenter, tr("No preview"));
    } else {
        // A faint play mark while the picture is made.
        QColor mark = mix(base, text, 0.25);
        painter->setPen(Qt::NoPen);
        painter->setBrush(mark);
        QPointF c = QRectF(frame).center();
        painter->drawPolygon(
            QPolygonF({c + QPointF(-7, -10), c + QPointF(-7, 10), c + QPointF(11, 0)}));
    }
    painter->restore();

    // A hairline edge keeps light pictures apart from a light card.
    painter->setPen(QPen(withAlpha(text, 28), 1));
    painter->setBrush(Qt::NoBrush);
    painter->drawRoundedRect(QRectF(frame).adjusted(0.5, 0.5, -0.5, -0.5), kThumbnailRadius,
                             kThumbnailRadius);

    QString duration = index.data(LibraryModel::DurationRole).toString();
    if (!duration.isEmpty()) {
        QFont font = cardDetailFont(option.font);
        font.setWeight(QFont::DemiBold);
        QRect badge = badgeRect(frame, duration, font);
        painter->setPen(Qt::NoPen);
        painter->setBrush(QColor(0, 0, 0, 175));
        painter->drawRoundedRect(QRectF(badge), 5, 5);
        painter->setPen(Qt::white);
        painter->setFont(font);
        painter->drawText(badge, Qt::AlignCenter, duration);
    }
}

QSize LibraryCardDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const {
    return cardSize(option.font);
}

QWidget* LibraryCardDelegate::createEditor(QWidget* parent, const QStyleOptionViewItem&,
                                           const QModelIndex&) const {
    auto* editor = new QLineEdit(parent);
    editor->setAccessibleName(tr("Title"));
    editor->setFont(cardTitleFont(parent->font()));
    return editor;
}

void LibraryCardDelegate::setEditorData(QWidget* editor, const QModelIndex& index) const {
    if (auto* line = qobject_cast<QLineEdit*>(editor)) {
        line->setText(index.data(Qt::EditRole).toString());
        line->selectAll();
    }
}

void LibraryCardDelegate::setModelData(QWidget* editor, QAbstractItemModel* model,
                                       const QModelIndex& index) const {
    if (auto* line = qobject_cast<QLineEdit*>(editor)) {
        model->setData(index, line->text(), Qt::EditRole);
    }
}

void LibraryCardDelegate::updateEditorGeometry(QWidget* editor, const QStyleOptionViewItem& option,
                                               const QModelIndex&) const {
    CardLayout layout = cardLayout(option.rect, option.font);
    int height = std::max(editor->sizeHint().height(), layout.title.height() + 6);
    QRect area(layout.title.left() - 4, layout.title.center().y() - height / 2,
               layout.title.width() + 8, height);
    editor->setGeometry(area);
}

}  // namespace quillo::views
