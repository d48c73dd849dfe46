#include "inspector_swatch.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

namespace quillo::views {

namespace {

QColor toQColor(const project::Colour& colour) {
    return QColor::fromRgbF(static_cast<float>(colour.red), static_cast<float>(colour.green),
                            static_cast<float>(colour.blue));
}

}  // namespace

SwatchButton::SwatchButton(const project::Backdrop& backdrop, QWidget* parent)
    : QAbstractButton(parent), m_backdrop(backdrop) {
    QString name = QString::fromUtf8(backdrop.name.data(), static_cast<int>(backdrop.name.size()));
    setText(name);
    setAccessibleName(name);
    setToolTip(name);
    setCheckable(true);
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::PointingHandCursor);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

QSize SwatchButton::sizeHint() const { return {34, 26}; }

void SwatchButton::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QRectF outer = QRectF(rect()).adjusted(1, 1, -1, -1);
    QRectF chip = outer.adjusted(3, 3, -3, -3);

    QLinearGradient gradient(chip.topLeft(), chip.bottomLeft());
    gradient.setColorAt(0, toQColor(m_backdrop.top));
    gradient.setColorAt(1, toQColor(m_backdrop.bottom));
    QColor edge = palette().color(QPalette::WindowText);
    edge.setAlphaF(0.18f);
    painter.setPen(QPen(edge, 1));
    painter.setBrush(gradient);
    if (!isEnabled()) {
        painter.setOpacity(0.4);
    }
    painter.drawRoundedRect(chip, 5, 5);
    painter.setOpacity(1);

    if (isChecked() || hasFocus()) {
        QColor ring = palette().color(QPalette::Highlight);
        if (!isChecked()) {
            ring.setAlphaF(0.55f);
        }
        painter.setPen(QPen(ring, 2));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(outer, 7, 7);
    }
}

}  // namespace quillo::views
