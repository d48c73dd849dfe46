#include "preview_geometry.h"

#include <algorithm>
#include <cmath>

namespace quillo::views {

namespace {

double evenDown(double value) { return std::max(2.0, 2 * std::floor(value / 2)); }

}  // namespace

Size previewRenderSize(Size canvas, QSizeF widget, double dpr) {
    const double room = std::max(widget.width() * dpr, 2.0);
    const double roomHeight = std::max(widget.height() * dpr, 2.0);
    if (canvas.width <= 0 || canvas.height <= 0) {
        return {evenDown(room), evenDown(roomHeight)};
    }
    const double scale = std::min(room / canvas.width, roomHeight / canvas.height);
    return {evenDown(canvas.width * scale), evenDown(canvas.height * scale)};
}

QRectF previewImageRect(QSizeF widget, QSize pixels, double dpr) {
    const QSizeF size(pixels.width() / dpr, pixels.height() / dpr);
    return QRectF(
        QPointF((widget.width() - size.width()) / 2, (widget.height() - size.height()) / 2), size);
}

Point PreviewPlacement::recordingPoint(QPointF p) const {
    // Widget → frame pixels → recording pixels → unit fractions.
    const double fx = (p.x() - shown.x()) * pixels.width() / shown.width();
    const double fy = (p.y() - shown.y()) * pixels.height() / shown.height();
    const double sx = (fx - mapping.originX) / mapping.scaleX;
    const double sy = (fy - mapping.originY) / mapping.scaleY;
    return {sx / source.width, sy / source.height};
}

QPointF PreviewPlacement::widgetPoint(Point unit) const {
    const double fx = mapping.originX + unit.x * source.width * mapping.scaleX;
    const double fy = mapping.originY + unit.y * source.height * mapping.scaleY;
    return {shown.x() + fx * shown.width() / pixels.width(),
            shown.y() + fy * shown.height() / pixels.height()};
}

bool PreviewPlacement::onPicture(QPointF p) const {
    const double fx = (p.x() - shown.x()) * pixels.width() / shown.width();
    const double fy = (p.y() - shown.y()) * pixels.height() / shown.height();
    const render::PixelRect& c = mapping.clip;
    return fx >= c.x && fy >= c.y && fx < c.x + c.width && fy < c.y + c.height;
}

std::optional<Rect> PreviewPlacement::recordingRect(QPointF a, QPointF b) const {
    Point p = recordingPoint(a);
    Point q = recordingPoint(b);
    const double left = std::clamp(std::min(p.x, q.x), 0.0, 1.0);
    const double right = std::clamp(std::max(p.x, q.x), 0.0, 1.0);
    const double top = std::clamp(std::min(p.y, q.y), 0.0, 1.0);
    const double bottom = std::clamp(std::max(p.y, q.y), 0.0, 1.0);
    if (right - left <= 0 || bottom - top <= 0) {
        return std::nullopt;
    }
    return Rect{left, top, right - left, bottom - top};
}

}  // namespace quillo::views
