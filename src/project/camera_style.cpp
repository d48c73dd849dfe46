// Camera layout geometry: where the screen picture and the webcam go on a canvas.

#include <algorithm>
#include <cmath>

#include "edits.h"

namespace quillo::project {

namespace {

// `source` scaled to fit inside `area` keeping its shape, centred.
Rect fitted(Size source, const Rect& area) {
    if (!(source.width > 0 && source.height > 0) || !(area.width > 0 && area.height > 0)) {
        return {area.x + area.width / 2, area.y + area.height / 2, 0, 0};
    }
    const double scale = std::min(area.width / source.width, area.height / source.height);
    const double width = source.width * scale;
    const double height = source.height * scale;
    return {area.x + (area.width - width) / 2, area.y + (area.height - height) / 2, width, height};
}

}  // namespace

bool CameraStyle::isCorner() const {
    return layout == CameraLayout::TopLeft || layout == CameraLayout::TopRight ||
           layout == CameraLayout::BottomLeft || layout == CameraLayout::BottomRight;
}

bool CameraStyle::isSide() const {
    return layout == CameraLayout::SideLeft || layout == CameraLayout::SideRight;
}

double CameraStyle::radius(const Rect& camera) const {
    const double shorter = std::min(camera.width, camera.height);
    return shape == CameraShape::Circle ? 0.5 * shorter : cornerRadius * shorter;
}

CameraStyle::Frames CameraStyle::frames(const Rect& canvas, Size screen, double padding) const {
    const double s = std::min(canvas.width, canvas.height);
    const double inset = std::round(s * padding);
    const Rect content{canvas.x + inset, canvas.y + inset, canvas.width - 2 * inset,
                       canvas.height - 2 * inset};
    const double share = std::clamp(size, 0.1, 0.5);
    Frames frames;
    if (isCorner()) {
        const double side = std::round(share * s);
        const double margin = std::round(std::max(padding * 0.5, 0.03) * s);
        const bool left = layout == CameraLayout::TopLeft || layout == CameraLayout::BottomLeft;
        const bool top = layout == CameraLayout::TopLeft || layout == CameraLayout::TopRight;
        frames.screen = fitted(screen, content);
        frames.camera =
            Rect{left ? content.x + margin : content.x + content.width - margin - side,
                 top ? content.y + margin : content.y + content.height - margin - side, side, side};
    } else if (isSide()) {
        const double gap = std::round(s * 0.03);
        const bool cameraFirst = layout == CameraLayout::SideLeft;
        Rect camera;
        Rect picture;
        if (canvas.width < canvas.height) {
            // Stacked: camera above or below, as wide as the screen picture.
            const double height = std::round(share * content.height);
            picture = fitted(screen, {0, 0, content.width, content.height - height - gap});
            const double total = height + gap + picture.height;
            const double top = std::round(content.y + (content.height - total) / 2);
            const double x = content.x + (content.width - picture.width) / 2;
            camera = {x, cameraFirst ? top : top + picture.height + gap, picture.width, height};
            picture.x = x;
            picture.y = cameraFirst ? top + height + gap : top;
        } else {
            // Side by side: camera left or right, as tall as the screen picture.
            const double width = std::round(share * content.width);
            picture = fitted(screen, {0, 0, content.width - width - gap, content.height});
            const double total = width + gap + picture.width;
            const double left = std::round(content.x + (content.width - total) / 2);
            const double y = content.y + (content.height - picture.height) / 2;
            camera = {cameraFirst ? left : left + picture.width + gap, y, width, picture.height};
            picture.x = cameraFirst ? left + width + gap : left;
            picture.y = y;
        }
        frames.screen = picture;
        frames.camera = camera;
    } else if (layout == CameraLayout::CameraOnly) {
        frames.camera = fitted(screen, content);
    } else {
        frames.screen = fitted(screen, content);
    }
    if (frames.camera && shape == CameraShape::Circle) {
        Rect& c = *frames.camera;
        const double side = std::min(c.width, c.height);
        c = {c.x + (c.width - side) / 2, c.y + (c.height - side) / 2, side, side};
    }
    return frames;
}

}  // namespace quillo::project
