#include "frame_geometry.h"

#include <algorithm>
#include <cmath>

namespace quillo::render {

Rect fit(Size source, const Rect& area) {
    if (!(source.width > 0 && source.height > 0)) {
        return {area.x + area.width / 2, area.y + area.height / 2, 0, 0};
    }
    double scale = std::min(area.width / source.width, area.height / source.height);
    double width = source.width * scale;
    double height = source.height * scale;
    return {area.x + (area.width - width) / 2, area.y + (area.height - height) / 2, width, height};
}

FrameLayout frameLayout(const project::FrameStyle& style, const Rect& output, Size source) {
    const double shorter = std::min(output.width, output.height);
    const double inset = std::round(shorter * style.padding);
    FrameLayout layout;
    layout.content = {output.x + inset, output.y + inset, output.width - 2 * inset,
                      output.height - 2 * inset};
    layout.picture = fit(source, layout.content);
    layout.radius = shorter * style.cornerRadius;
    if (style.shadow) {
        layout.shadowSigma = shorter * 0.025;
        layout.shadowOffset = 0.6 * layout.shadowSigma;
    }
    return layout;
}

const project::Backdrop& backdropFor(int64_t index) {
    const int64_t last = static_cast<int64_t>(project::kBackgrounds.size()) - 1;
    return project::kBackgrounds[static_cast<size_t>(std::clamp<int64_t>(index, 0, last))];
}

ZoomView zoomView(double amount, Point focus, const Rect& output) {
    ZoomView view;
    view.amount = std::max(amount, 1.0);
    const double z = view.amount;
    const double w = output.width;
    const double h = output.height;
    view.offsetX = std::clamp(z * focus.x * w - 0.5 * w, 0.0, (z - 1) * w);
    view.offsetY = std::clamp(z * focus.y * h - 0.5 * h, 0.0, (z - 1) * h);
    view.visible = {output.x + view.offsetX / z, output.y + view.offsetY / z, w / z, h / z};
    return view;
}

}  // namespace quillo::render
