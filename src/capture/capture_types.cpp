#include "capture_types.h"

#include <algorithm>

namespace quillo::capture {

std::shared_ptr<CapturedFrame> makeFrame(int width, int height, uint64_t serial) {
    auto buffer = std::make_shared<std::vector<uint8_t>>(static_cast<size_t>(width) * height * 4);
    auto frame = std::make_shared<CapturedFrame>();
    frame->pixels = buffer->data();
    frame->width = width;
    frame->height = height;
    frame->stride = width * 4;
    frame->serial = serial;
    frame->owner = buffer;
    return frame;
}

Rect clipToScreen(const Rect& area, const std::vector<MonitorInfo>& monitors) {
    if (monitors.empty()) {
        return area;
    }
    double left = monitors[0].frame.x, top = monitors[0].frame.y;
    double right = left + monitors[0].frame.width, bottom = top + monitors[0].frame.height;
    for (const auto& monitor : monitors) {
        left = std::min(left, monitor.frame.x);
        top = std::min(top, monitor.frame.y);
        right = std::max(right, monitor.frame.x + monitor.frame.width);
        bottom = std::max(bottom, monitor.frame.y + monitor.frame.height);
    }
    double x = std::clamp(area.x, left, right), y = std::clamp(area.y, top, bottom);
    double r = std::clamp(area.x + area.width, left, right);
    double b = std::clamp(area.y + area.height, top, bottom);
    return {x, y, r - x, b - y};
}

}  // namespace quillo::capture
