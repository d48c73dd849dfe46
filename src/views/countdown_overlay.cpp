#include "countdown_overlay.h"

#include <algorithm>
#include <cmath>

#include <QPainter>
#include <QPainterPath>
#include <QRegion>

#include "overlay_window.h"

namespace quillo::views {

namespace {

const QColor kDisc(18, 18, 22, 200);
const QColor kOpaqueDisc(30, 30, 36);
const QColor kTrack(255, 255, 255, 46);
const QColor kRing(255, 77, 109);
constexpr int kFrameMs = 33;

}  // namespace

CountdownOverlay::CountdownOverlay() {
    setObjectName("countdown");
    setWindowTitle(tr("Countdown"));
    setAccessibleName(tr("Countdown"));
    makeOverlayWindow(*this, true);
    m_blends = desktopBlends();
    m_frames.setInterval(kFrameMs);
    connect(&m_frames, &QTimer::timeout, this, qOverload<>(&QWidget::update));
}

void CountdownOverlay::showCount(int value, int total, const QRect& screen) {
    if (value != m_value || !isVisible()) {
        m_second.restart();
    }
    m_value = value;
    m_total = std::max(1, total);
    setAccessibleDescription(QString::number(value));
    int side = std::clamp(static_cast<int>(screen.height() * 0.3), 180, 340);
    setGeometry(QRect(screen.center().x() - side / 2, screen.center().y() - side / 2, side, side));
    if (!m_blends) {
        // Without a compositing manager a translucent window would show black corners: the
        // window is cut to the disc instead.
        setMask(QRegion(rect(), QRegion::Ellipse));
    }
    if (!isVisible()) {
        show();
        m_frames.start();
    }
    update();
}

void CountdownOverlay::setHint(const QString& hint) {
    m_hint = hint;
    update();
}

void CountdownOverlay::cancel() {
    if (onCancel) {
        onCancel();
    }
}

void CountdownOverlay::hideEvent(QHideEvent* event) {
    m_frames.stop();
    QWidget::hideEvent(event);
}

void CountdownOverlay::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const double side = width();
    const QRectF disc(0.5, 0.5, side - 1, side - 1);
    painter.setPen(Qt::NoPen);
    painter.setBrush(m_blends ? kDisc : kOpaqueDisc);
    painter.drawEllipse(disc);

    // The ring: what is left of the whole countdown, running down smoothly within each second.
    const double stroke = std::max(6.0, side * 0.035);
    const QRectF ring = disc.adjusted(stroke * 1.6, stroke * 1.6, -stroke * 1.6, -stroke * 1.6);
    painter.setPen(QPen(kTrack, stroke, Qt::SolidLine, Qt::RoundCap));
    painter.setBrush(Qt::NoBrush);
    painter.drawEllipse(ring);
    double withinSecond = std::min(1.0, m_second.isValid() ? m_second.elapsed() / 1000.0 : 0.0);
    double left = std::clamp((m_value - withinSecond) / m_total, 0.0, 1.0);
    if (left > 0) {
        painter.setPen(QPen(kRing, stroke, Qt::SolidLine, Qt::RoundCap));
        painter.drawArc(ring, 90 * 16, static_cast<int>(std::lround(left * 360 * 16)));
    }

    QFont number = font();
    number.setPixelSize(static_cast<int>(side * 0.42));
    number.setWeight(QFont::DemiBold);
    painter.setFont(number);
    painter.setPen(Qt::white);
    QRectF numberBox = disc;
    if (!m_hint.isEmpty()) {
        numberBox.translate(0, -side * 0.05);
    }
    painter.drawText(numberBox, Qt::AlignCenter, QString::number(m_value));

    if (!m_hint.isEmpty()) {
        QFont small = font();
        small.setPixelSize(std::max(11, static_cast<int>(side * 0.055)));
        painter.setFont(small);
        painter.setPen(QColor(255, 255, 255, 170));
        painter.drawText(QRectF(0, side * 0.68, side, side * 0.1), Qt::AlignCenter, m_hint);
    }
}

}  // namespace quillo::views
