#pragma once

#include <functional>
#include <optional>

#include "base/geometry.h"
#include "project/edits.h"

namespace quillo::render {

// Width over height of a reframe; none unless both sides are positive and finite.
std::optional<double> reframeRatio(const project::Reframe& reframe);

// The canvas of the finished video for a recording of `source` pixels: the reframe's shape when
// one is set (cropping for "follow", growing around the picture for "fit"), else the aspect
// grown around the whole picture. Sides are even.
Size canvasSize(const project::Edits& edits, Size source);

// The pixel size frames are rendered at: `size` when given, else the canvas scaled down so its
// larger side is at most `maxDimension`; sides even and at least 2.
Size renderSize(const project::Edits& edits, Size source, std::optional<double> maxDimension,
                std::optional<Size> size = std::nullopt);

// Reframing helpers, in any one unit for both arguments.
// The smallest rectangle of shape `ratio` containing a picture of size `source`.
Size reframeCanvas(double ratio, Size source);
// The largest window of shape `ratio` inside `area`, at its origin.
Rect reframeWindow(double ratio, const Rect& area);
// That window centred on `around`, then moved to lie wholly inside `area`.
Rect reframeCrop(double ratio, Point around, const Rect& area);

// The reframe camera at recording time t: a critically damped spring (4.5 per second) that
// trails `focus` over the 3 seconds before t in 180 steps of 1/60 s, so the window glides
// instead of jumping. Unit coordinates; (0.5, 0.5) when there is never a focus.
Point reframeCamera(double t, const std::function<std::optional<Point>(double)>& focus);

}  // namespace quillo::render
