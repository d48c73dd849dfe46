#include "source_card_delegate.h"

#include <QPainter>
#include <QPainterPath>

#include "colour_mix.h"
#include "library_card_delegate.h"
#include "source_list.h"

namespace quillo::views {

namespace {

constexpr int kCardWidth = 232;
constexpr int kInset = 8;
constexpr int kPictureWidth = kCardWidth - 2 * kInset;
constexpr int kPictureHeight = kPictureWidth * 10 / 16;
constexpr int kIconSize = 18;
constexpr int kTextGap = 8;
constexpr int kLineGap = 2;
constexpr int kBottom = 10;
constexpr qreal kCardRadius = 10;
constexpr qreal kPictureRadius = 7;

int titleLine(const QFont& base) {
    return std::max(kIconSize, QFontMetrics(cardTitleFont(base)).height());
}

}  // namespace

QSize SourceCardDelegate::thumbnailSize() { return {kPictureWidth, kPictureHeight}; }

QSize SourceCardDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex&) const {
    int detail = QFontMetrics(cardDetailFont(option.font)).height();
    return {kCardWidth + 8, kInset + kPictureHeight + kTextGap + titleLine(option.font) + kLineGap +
                                detail + kBottom + 8};
}

void SourceCardDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                               const QModelIndex& index) const {
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QPalette& palette = option.palette;
    bool selected = option.state & QStyle::State_Selected;
    bool hovered = option.state & QStyle::State_MouseOver;
    bool focused =
        (option.state & QStyle::State_HasFocus) && option.widget && option.widget->hasFocus();
    QColor highlight = palette.color(QPalette::Active, QPalette::Highlight);

    QRect card = option.rect.adjusted(4, 4, -4, -4);
    QRectF outline = QRectF(card).adjusted(1, 1, -1, -1);
    if (selected) {
        painter->setPen(QPen(highlight, focused ? 2 : 1.25));
        painter->setBrush(withAlpha(highlight, 44));
        painter->drawRoundedRect(outline, kCardRadius, kCardRadius);
    } else if (hovered) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(mix(palette.color(QPalette::Base), palette.color(QPalette::Text), 0.06));
        painter->drawRoundedRect(outline, kCardRadius, kCardRadius);
    }

    QRect picture(card.left() + (card.width() - kPictureWidth) / 2, card.top() + kInset,
                  kPictureWidth, kPictureHeight);
    paintPicture(painter, option, index, picture);

    int line = titleLine(option.font);
    QRect title(picture.left() + 2, picture.bottom() + 1 + kTextGap, picture.width() - 4, line);
    QIcon icon = index.data(Qt::DecorationRole).value<QIcon>();
    if (!icon.isNull()) {
        QRect iconArea(title.left(), title.top() + (line - kIconSize) / 2, kIconSize, kIconSize);
        icon.paint(painter, iconArea);
        title.setLeft(iconArea.right() + 1 + 6);
    }
    QFont titleFont = cardTitleFont(option.font);
    painter->setFont(titleFont);
    painter->setPen(palette.color(QPalette::Text));
    QString name = index.data(Qt::DisplayRole).toString();
    painter->drawText(title, Qt::AlignLeft | Qt::AlignVCenter,
                      QFontMetrics(titleFont).elidedText(name, Qt::ElideRight, title.width()));

    QFont detailFont = cardDetailFont(option.font);
    QRect detail(picture.left() + 2, title.bottom() + 1 + kLineGap, picture.width() - 4,
                 QFontMetrics(detailFont).height());
    painter->setFont(detailFont);
    painter->setPen(palette.color(QPalette::PlaceholderText));
    QString text = index.data(SourceListModel::DetailRole).toString();
    painter->drawText(detail, Qt::AlignLeft | Qt::AlignVCenter,
                      QFontMetrics(detailFont).elidedText(text, Qt::ElideRight, detail.width()));
    painter->restore();
}

void SourceCardDelegate::paintPicture(QPainter* painter, const QStyleOptionViewItem& option,
                                      const QModelIndex& index, const QRect& frame) const {
    const QPalette& palette = option.palette;
    QColor base = palette.color(QPalette::Base);
    QColor text = palette.color(QPalette::Text);
    QPainterPath clip;
    clip.addRoundedRect(QRectF(frame), kPictureRadius, kPictureRadius);
    painter->save();
    painter->setClipPath(clip);
    painter->fillRect(frame, mix(base, text, 0.08));
    QImage image = index.data(SourceListModel::ThumbnailRole).value<QImage>();
    if (!image.isNull()) {
        QSize fitted = image.size().scaled(frame.size(), Qt::KeepAspectRatio);
        QRect target(frame.center() - QPoint(fitted.width() / 2, fitted.height() / 2), fitted);
        painter->setRenderHint(QPainter::SmoothPixmapTransform);
        painter->drawImage(target, image);
    } else {
        // The app's icon, large and faint, stands in until the picture comes (or for good when
        // it can't be had).
        QIcon icon = index.data(Qt::DecorationRole).value<QIcon>();
        QRect iconArea(frame.center() - QPoint(20, 20), QSize(40, 40));
        painter->setOpacity(index.data(SourceListModel::ThumbnailFailedRole).toBool() ? 0.8 : 0.45);
        icon.paint(painter, iconArea);
    }
    painter->restore();
    painter->setPen(QPen(withAlpha(text, 28), 1));
    painter->setBrush(Qt::NoBrush);
    painter->drawRoundedRect(QRectF(frame).adjusted(0.5, 0.5, -0.5, -0.5), kPictureRadius,
                             kPictureRadius);
}

}  // namespace quillo::views
