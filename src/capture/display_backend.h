#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent_devices.h"
#include "base/cancel_token.h"
#include "base/result.h"
#include "capture_types.h"
#include "global_keys.h"

namespace quillo::capture {

// Grabs pictures of one area of the screen. Owned and used by one thread only (the frames queue):
// it holds its own connection to the display server.
class ScreenGrabber {
public:
    virtual ~ScreenGrabber() = default;

    // True when something inside `area` (screen pixels) may have changed since the last call
    // (always true the first time). Cheap: no pixels are read.
    virtual bool changed(const Rect& area) = 0;
    // The pixels of `area` as they are now. `area` is clipped to the screen by the caller. The
    // frame's memory is reused once every reference to it is gone (a small pool), so holding
    // one is free. With `drawCursor` the pointer's picture is drawn in.
    virtual Result<FramePtr> grab(const Rect& area, bool drawCursor) = 0;
};

// Watches raw mouse and key presses anywhere on the desktop, on a thread of its own, until
// destroyed. `onInput` runs on that thread.
class InputWatcher {
public:
    virtual ~InputWatcher() = default;
};

// The display server: windows, monitors, the pointer and its picture, window resizing, the
// source picker, and the factories for the thread-owned grabber and input watcher. Methods are
// safe from any thread (the backend serialises its own connection).
class DisplayBackend {
public:
    virtual ~DisplayBackend() = default;

    // "x11", "portal", "none".
    virtual std::string name() const = 0;

    // Top-level windows of apps, front to back where known. Quillo's own windows are listed
    // too (the session refuses them).
    virtual Result<std::vector<WindowInfo>> windows() = 0;
    virtual Result<std::vector<MonitorInfo>> monitors() = 0;
    // The window's frame now; none when it is gone or unmapped.
    virtual std::optional<WindowInfo> window(uint32_t id) = 0;

    // The desktop pointer in screen pixels; none when it can't be read.
    virtual std::optional<Point> pointer() = 0;
    // The current cursor picture; none without one.
    virtual std::optional<CursorImage> cursorImage() = 0;

    // Asks the window manager to resize the window's client area to `size` pixels, keeping its
    // position; waits up to a second for the new size to show. Returns the size it got.
    virtual Result<Size> resizeWindow(uint32_t id, Size size) = 0;

    // The pointer picker: a crosshair until a click (on a window: that window unless
    // `displayOnly`; elsewhere: the monitor under the point) or Escape (none). Blocks the
    // calling thread up to `timeout` seconds or until `cancel` (none then too).
    virtual Result<std::optional<SourceRef>> pick(bool displayOnly, double timeout,
                                                  CancelToken cancel) = 0;

    // Brings the window to the front and gives it the keyboard (through the window manager);
    // backends that can't do nothing.
    virtual void activate(uint32_t /*id*/) {}

    // True when the pointer is part of the captured picture (a portal that can only embed
    // it), so the recording must not draw a second one.
    virtual bool pointerInPicture() const { return false; }
    // The most frames a second the session will take; backends that push frames ask for no
    // more than that.
    virtual void setFrameRate(int /*fps*/) {}
    // Whether input can be posted at pointer level (a click anywhere, drags, scrolls, keys);
    // where it can't, agents reach apps through accessibility alone.
    virtual bool postsPointerInput() const { return true; }
    // The agent's pointer and keyboard (X11: a second pointer of its own).
    virtual Result<std::unique_ptr<AgentDevices>> agentDevices() { return makeAgentDevices(); }
    // How agent input arrives: "own pointer" (the user's pointer never moves), "accessibility"
    // (elements only), or "accessibility, then the user's pointer" (pointer-level input moves
    // the user's own pointer).
    virtual std::string agentInput() const { return "own pointer"; }
    // The app windows shown in the shared picture, frames in picture pixels, front last, and
    // the process with the keyboard. Empty where each window's place is known otherwise (X11).
    virtual std::vector<WindowInfo> windowsInPicture() { return {}; }
    virtual std::optional<int32_t> focusedProcess() { return std::nullopt; }
    // The kind of source (window: true) the desktop can share again without asking, as chosen
    // last, possibly by an earlier run; none when the user must choose.
    virtual std::optional<bool> rememberedChoice() { return std::nullopt; }
    // Something the user should read about the last choice of source (once each), if any.
    virtual std::optional<std::string> takeNotice() { return std::nullopt; }
    // Windows (X11 ids) that grabs leave out, Quillo's countdown and recording controls:
    // where they cover the grabbed area, what lies beneath them is shown. Replaces the previous
    // list; returns once the next grab honours it. Backends that can't leave windows out
    // (excludesWindows() false) ignore it.
    virtual void setExcludedWindows(std::vector<uint64_t> /*ids*/) {}
    virtual bool excludesWindows() const { return false; }

    // Desktop-wide keys; an error where the session offers none.
    virtual Result<std::unique_ptr<GlobalKeys>> globalKeys() {
        return AppError("Global shortcuts aren't available in this session.");
    }

    virtual Result<std::unique_ptr<ScreenGrabber>> grabber() = 0;
    virtual Result<std::unique_ptr<InputWatcher>> watchInput(
        std::function<void(const InputEvent&)> onInput) = 0;
};

// The backend for this session: the portal on a Wayland session (WAYLAND_DISPLAY, or
// XDG_SESSION_TYPE=wayland), X11 when a display is reachable, else the null backend;
// QUILLO_CAPTURE=x11|portal|none overrides. Never null.
std::shared_ptr<DisplayBackend> makeDisplayBackend();

// A backend without a display: no windows, no monitors, every action fails with
// "No display is available. Start Quillo in a desktop session to record."
std::shared_ptr<DisplayBackend> makeNullBackend();

}  // namespace quillo::capture
