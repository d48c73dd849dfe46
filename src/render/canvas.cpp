#include "canvas.h"

#include <algorithm>
#include <cmath>

namespace quillo::render {

namespace {

double even(double side) { return std::max(2 * std::round(side * 0.5), 2.0); }

Point clampUnit(Point p) { return {std::clamp(p.x, 0.0, 1.0), std::clamp(p.y, 0.0, 1.0)}; }

}  // namespace

std::optional<double> reframeRatio(const project::Reframe& reframe) {
    if (!(std::isfinite(reframe.width) && std::isfinite(reframe.height) && reframe.width > 0 &&
          reframe.height > 0)) {
        return std::nullopt;
    }
    return reframe.width / reframe.height;
}

Size canvasSize(const project::Edits& edits, Size source) {
    const double w = source.width;
    const double h = source.height;
    std::optional<double> ratio = edits.reframe ? reframeRatio(*edits.reframe) : std::nullopt;
    if (ratio && w > 0 && h > 0) {
        bool narrower = *ratio < w / h;
        bool follow = edits.reframe->follow;
        if ((follow && narrower) || (!follow && !narrower)) {
            return {even(*ratio * h), even(h)};
        }
        return {even(w), even(w / *ratio)};
    }
    return project::outputSize(edits.aspect.value_or(project::AspectRatio::Original), source);
}

Size renderSize(const project::Edits& edits, Size source, std::optional<double> maxDimension,
                std::optional<Size> size) {
    if (size) {
        return *size;
    }
    Size canvas = canvasSize(edits, source);
    double larger = std::max(canvas.width, canvas.height);
    double scale = maxDimension && larger > 0 ? std::min(*maxDimension / larger, 1.0) : 1.0;
    return {even(canvas.width * scale), even(canvas.height * scale)};
}

Size reframeCanvas(double ratio, Size source) {
    if (source.width / source.height > ratio) {
        return {source.width, source.width / ratio};
    }
    return {ratio * source.height, source.height};
}

Rect reframeWindow(double ratio, const Rect& area) {
    if (area.width / area.height > ratio) {
        return {area.x, area.y, ratio * area.height, area.height};
    }
    return {area.x, area.y, area.width, area.width / ratio};
}

Rect reframeCrop(double ratio, Point around, const Rect& area) {
    Rect window = reframeWindow(ratio, area);
    window.x = std::clamp(around.x - window.width / 2, area.x, area.x + area.width - window.width);
    window.y =
        std::clamp(around.y - window.height / 2, area.y, area.y + area.height - window.height);
    return window;
}

Point reframeCamera(double t, const std::function<std::optional<Point>(double)>& focus) {
    constexpr double kHistory = 3.0;
    constexpr int kSteps = 180;
    constexpr double kDt = 1.0 / 60.0;
    constexpr double kOmega = 4.5;
    Point position = clampUnit(focus(t - kHistory).value_or(focus(t).value_or(Point{0.5, 0.5})));
    Point velocity{0, 0};
    Point target = position;
    for (int i = 1; i <= kSteps; ++i) {
        if (auto next = focus(t - kHistory + i * kDt)) {
            target = clampUnit(*next);
        }
        // Critically damped: acceleration ω²·(target − position) − 2ω·velocity.
        double ax = kOmega * kOmega * (target.x - position.x) - 2 * kOmega * velocity.x;
        double ay = kOmega * kOmega * (target.y - position.y) - 2 * kOmega * velocity.y;
        velocity.x += ax * kDt;
        velocity.y += ay * kDt;
        position.x += velocity.x * kDt;
        position.y += velocity.y * kDt;
    }
    return position;
}

}  // namespace quillo::render
