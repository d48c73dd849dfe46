#include "source_preview.h"

#include <QPainter>
#include <QPainterPath>

#include "app/studio_model.h"
#include "capture/capture_session.h"

namespace quillo::views {

namespace {

constexpr int kInterval = 250;  // ms: four looks a second
constexpr qreal kRadius = 6;

}  // namespace

SourcePreview::SourcePreview(app::StudioModel& studio, QWidget* parent)
    : QWidget(parent), m_studio(studio) {
    setFixedSize(sizeHint());
    setAccessibleName(tr("Source preview"));
    m_timer.setInterval(kInterval);
    connect(&m_timer, &QTimer::timeout, this, [this] { tick(); });
}

void SourcePreview::follow() {
    bool wanted =
        isVisible() && m_studio.source().has_value() && !(window() && window()->isMinimized());
    if (wanted && !m_timer.isActive()) {
        m_timer.start();
        tick();
    } else if (!wanted && m_timer.isActive()) {
        m_timer.stop();
    }
    if (!m_studio.source() && m_frame) {
        m_frame.reset();
        update();
    }
}

void SourcePreview::tick() {
    if (window() && window()->isMinimized()) {
        return;
    }
    capture::FramePtr latest = m_studio.capture().latestFrame();
    if (latest == m_frame || (latest && m_frame && latest->serial == m_frame->serial)) {
        return;
    }
    m_frame = std::move(latest);
    update();
}

void SourcePreview::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    follow();
}

void SourcePreview::hideEvent(QHideEvent* event) {
    m_timer.stop();
    QWidget::hideEvent(event);
}

void SourcePreview::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QRectF frame = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QPainterPath clip;
    clip.addRoundedRect(frame, kRadius, kRadius);
    painter.setClipPath(clip);
    if (m_frame && m_frame->width > 0 && m_frame->height > 0) {
        painter.fillRect(rect(), QColor(18, 18, 22));
        // BGRA rows are Qt's RGB32 on a little-endian machine; nothing is copied.
        QImage image(m_frame->pixels, m_frame->width, m_frame->height, m_frame->stride,
                     QImage::Format_RGB32);
        QSize fitted = image.size().scaled(size(), Qt::KeepAspectRatio);
        QRect target(
            rect().center() - QPoint(fitted.width() / 2, fitted.height() / 2) + QPoint(1, 1),
            fitted);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(target, image);
    } else {
        QColor base = palette().color(QPalette::Base);
        QColor text = palette().color(QPalette::Text);
        painter.fillRect(rect(), QColor::fromRgbF(base.redF() * 0.9 + text.redF() * 0.1,
                                                  base.greenF() * 0.9 + text.greenF() * 0.1,
                                                  base.blueF() * 0.9 + text.blueF() * 0.1));
        painter.setPen(palette().color(QPalette::PlaceholderText));
        QFont font = this->font();
        font.setPointSizeF(std::max(7.0, font.pointSizeF() - 1));
        painter.setFont(font);
        painter.drawText(rect(), Qt::AlignCenter,
                         m_studio.source() ? tr("Waiting for a picture…") : tr("No source"));
    }
    painter.setClipping(false);
    QColor edge = palette().color(QPalette::Text);
    edge.setAlpha(40);
    painter.setPen(QPen(edge, 1));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(frame, kRadius, kRadius);
}

}  // namespace quillo::views
