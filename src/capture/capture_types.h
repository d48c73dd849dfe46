#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/geometry.h"

namespace quillo::capture {

// A top-level window of another app. `frame` is in screen pixels, origin top left.
struct WindowInfo {
    uint32_t id = 0;
    std::string title;
    std::string app;  // the app's name (from /proc/PID or WM_CLASS)
    int32_t pid = 0;  // 0 when the window does not say
    Rect frame;
};

// A monitor: `id` is its index, `name` the output's name ("HDMI-1", "screen").
struct MonitorInfo {
    uint32_t id = 0;
    std::string name;
    Rect frame;
};

// What the user or an agent chose to share.
struct SourceRef {
    enum class Kind { Window, Display };
    Kind kind = Kind::Display;
    uint32_t id = 0;
    bool operator==(const SourceRef&) const = default;
};

// The system cursor's picture: premultiplied ARGB (one uint32 per pixel, row by row), its hot
// spot in pixels from the top left, and the server's serial, which changes with the picture.
struct CursorImage {
    int width = 0;
    int height = 0;
    int hotX = 0;
    int hotY = 0;
    uint64_t serial = 0;
    std::vector<uint32_t> argb;
};

// One captured picture: BGRA rows `stride` bytes apart. `pixels` stays valid while the frame is
// alive; `owner` keeps the memory (a shared-memory segment or a heap buffer). `serial` changes
// exactly when the picture does, so a consumer can tell a repeated frame without looking at it.
struct CapturedFrame {
    const uint8_t* pixels = nullptr;
    int width = 0;
    int height = 0;
    int stride = 0;
    uint64_t serial = 0;
    std::shared_ptr<void> owner;
};
using FramePtr = std::shared_ptr<const CapturedFrame>;

// A frame of `width`×`height` in its own heap buffer (stride width × 4).
std::shared_ptr<CapturedFrame> makeFrame(int width, int height, uint64_t serial);

// Input seen anywhere on the desktop (raw device events, not where they were delivered).
struct InputEvent {
    enum class Kind { Press, Key };
    Kind kind = Kind::Press;
    int button = 0;         // 1 left, 2 middle, 3 right (Press)
    int keycode = 0;        // the server's key code (Key)
    bool modifier = false;  // a Shift, Control, Alt or Super key alone
};

// `area` clipped to the union of the monitors; the area itself when none are known.
Rect clipToScreen(const Rect& area, const std::vector<MonitorInfo>& monitors);

}  // namespace quillo::capture
