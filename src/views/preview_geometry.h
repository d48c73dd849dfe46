#pragma once

#include <optional>

#include <QPointF>
#include <QRectF>
#include <QSize>

#include "base/geometry.h"
#include "render/frame_renderer.h"

namespace quillo::views {

// Where the preview's picture goes and what lies under a point: plain functions, so the mapping
// between the widget, the finished frame and the recording is tested without painting.

// The pixel size to render for a widget of `widget` logical pixels at `dpr` device pixels per
// logical pixel: the finished canvas's shape as large as fits, sides even and at least 2.
Size previewRenderSize(Size canvas, QSizeF widget, double dpr);

// Where a frame of `pixels` device pixels shows in a widget of `widget` logical pixels: centred,
// in logical coordinates.
QRectF previewImageRect(QSizeF widget, QSize pixels, double dpr);

// How one shown frame sits in the widget and where the recording lies in it.
struct PreviewPlacement {
    QRectF shown;  // the frame in widget coordinates
    QSize pixels;  // the frame's pixel size
    render::PictureMapping mapping;
    Size source;  // the recording's pixel size

    // The recording point (unit fractions, unclamped) under widget position p.
    Point recordingPoint(QPointF p) const;
    // The widget position showing recording point `unit`.
    QPointF widgetPoint(Point unit) const;
    // Whether widget position p lies on the recording's picture (not the backdrop).
    bool onPicture(QPointF p) const;
    // The unit rectangle of the recording spanned by two widget positions, clipped to the
    // recording; none when nothing of it is left.
    std::optional<Rect> recordingRect(QPointF a, QPointF b) const;
};

}  // namespace quillo::views
