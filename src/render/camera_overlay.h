#pragma once

#include <vector>

#include "base/geometry.h"
#include "image.h"
#include "project/edits.h"

namespace quillo::render {

// Draws the webcam picture into finished frames at one fixed place: scaled to fill its
// rectangle (cropping the longer side), mirrored when the style says so, masked by a rounded
// rectangle or circle, over a soft shadow. The mask and the shadow are made once.
class CameraOverlay {
public:
    // `area` is the camera rectangle in output pixels (rounded to whole pixels here); `output`
    // the finished frame's size.
    CameraOverlay(const project::CameraStyle& style, const Rect& area, int outputWidth,
                  int outputHeight);

    // The camera rectangle in whole output pixels.
    int x() const { return m_x; }
    int y() const { return m_y; }
    int width() const { return m_width; }
    int height() const { return m_height; }

    // Every pixel drawPicture() may change, clipped to the frame.
    struct Area {
        int x = 0, y = 0, width = 0, height = 0;
    };
    Area pictureArea() const;

    // The smallest picture size (even sides) that covers the rectangle when `camera` pixels are
    // scaled to fill it: reading the footage at this size saves scaling work.
    Size readSize(Size camera) const;

    // Draws the shadow and then `camera` (any size, premultiplied BGRA) into `out`.
    void draw(const ImageView& camera, const ImageView& out) const;
    // The two halves of draw(): the shadow, which doesn't depend on the camera's picture, and
    // the picture over it.
    void drawShadow(const ImageView& out) const;
    void drawPicture(const ImageView& camera, const ImageView& out) const;

private:
    void prepareShadow(int outputWidth, int outputHeight);

    bool m_mirror = false;
    int m_outputWidth = 0, m_outputHeight = 0;
    int m_x = 0, m_y = 0, m_width = 0, m_height = 0;
    std::vector<uint8_t> m_mask;  // coverage over the rectangle, 255 inside
    struct Span {
        int begin = 0, end = 0;
    };
    std::vector<Span> m_inside;  // per row of the mask: the columns fully covered
    // The shadow's darkness (0–255) for each byte of its rectangle (none for alpha), clipped to
    // the frame.
    std::vector<uint8_t> m_shadow;
    int m_shadowX = 0, m_shadowY = 0, m_shadowWidth = 0, m_shadowHeight = 0;
};

}  // namespace quillo::render
