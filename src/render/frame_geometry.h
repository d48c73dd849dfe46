#pragma once

#include <cstdint>

#include "base/geometry.h"
#include "project/edits.h"

namespace quillo::render {

// Geometry of the finished frame, in output pixels with the origin at the top left (frames are
// stored top row first). The compositor draws what these describe.

// `source` scaled to fit inside `area` keeping its shape, centred.
Rect fit(Size source, const Rect& area);

// Where the backdrop frame puts things in output rectangle `output`.
struct FrameLayout {
    Rect content;             // output inset by the padding
    Rect picture;             // the recording fitted into the content
    double radius = 0;        // corner radius of the picture
    double shadowSigma = 0;   // Gaussian sigma of the shadow (0: no shadow)
    double shadowOffset = 0;  // the shadow's downward shift
};
FrameLayout frameLayout(const project::FrameStyle& style, const Rect& output, Size source);

// The backdrop row for a stored index, held to the table (9 reads as 5, −1 as 0).
const project::Backdrop& backdropFor(int64_t index);

// The zoom camera for magnification `amount` around unit focus (x from the left, y from the
// top) on output rectangle `output`: the frame is scaled by `amount` about the output's origin
// and shifted back by (offsetX, offsetY), clamped so nothing beyond the frame's edges shows.
// `visible` is the part of the unzoomed output that fills the output.
struct ZoomView {
    double amount = 1;
    double offsetX = 0;
    double offsetY = 0;
    Rect visible;
};
ZoomView zoomView(double amount, Point focus, const Rect& output);

}  // namespace quillo::render
