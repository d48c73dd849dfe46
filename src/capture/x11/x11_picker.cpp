// The pointer picker: grabs pointer and keyboard on the root window of a connection of its own,
// shows a crosshair, and turns the first click into a window or a monitor.

#include <chrono>
#include <poll.h>
#include <thread>

#include <X11/cursorfont.h>
#include <X11/keysym.h>

#include "x11_internal.h"

namespace quillo::capture::x11 {

namespace {

constexpr int kPollMilliseconds = 50;  // how often cancel and the deadline are checked

// Pointer and keyboard grabs with the crosshair, released on every way out.
class PickerGrab {
public:
    explicit PickerGrab(Display* display)
        : m_display(display), m_cursor(XCreateFontCursor(display, XC_crosshair)) {}
    ~PickerGrab() {
        XUngrabPointer(m_display, CurrentTime);
        XUngrabKeyboard(m_display, CurrentTime);
        XFreeCursor(m_display, m_cursor);
        XSync(m_display, False);
    }
    PickerGrab(const PickerGrab&) = delete;
    PickerGrab& operator=(const PickerGrab&) = delete;

    // Another app may hold a grab for a moment (a menu closing): tries until `deadline`.
    bool take(std::chrono::steady_clock::time_point deadline) {
        Window root = DefaultRootWindow(m_display);
        while (XGrabPointer(m_display, root, False, ButtonPressMask, GrabModeAsync, GrabModeAsync,
                            0, m_cursor, CurrentTime) != GrabSuccess) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(kPollMilliseconds));
        }
        // Without the keyboard Escape is missed, but a click still picks.
        XGrabKeyboard(m_display, root, False, GrabModeAsync, GrabModeAsync, CurrentTime);
        XSync(m_display, False);
        return true;
    }

private:
    Display* m_display;
    Cursor m_cursor;
};

// The app window under the root point: the first window on the way down that carries WM_STATE
// (over a frame's decorations, the client inside that frame), or without a window manager the
// child of the root. None over the bare root.
std::optional<Window> windowAt(Display* display, const Atoms& atoms, Window topLevel, int x,
                               int y) {
    if (topLevel == 0) {
        return std::nullopt;
    }
    Window root = DefaultRootWindow(display);
    ErrorTrap trap(display);
    for (Window current = topLevel; current != 0;) {
        if (hasProperty(display, current, atoms.wmState)) {
            return current;
        }
        int localX = 0;
        int localY = 0;
        Window child = 0;
        if (!XTranslateCoordinates(display, root, current, x, y, &localX, &localY, &child)) {
            break;
        }
        current = child;
    }
    (void)trap.failed();
    return clientWindowOf(display, atoms, topLevel).value_or(topLevel);
}

SourceRef monitorAt(Display* display, int x, int y) {
    for (const MonitorInfo& monitor : listMonitors(display)) {
        const Rect& frame = monitor.frame;
        if (x >= frame.x && x < frame.x + frame.width && y >= frame.y &&
            y < frame.y + frame.height) {
            return {SourceRef::Kind::Display, monitor.id};
        }
    }
    return {SourceRef::Kind::Display, 0};
}

}  // namespace

Result<std::optional<SourceRef>> pickSource(const std::string& displayName, bool displayOnly,
                                            double timeout, const CancelToken& cancel) {
    auto opened = openDisplay(displayName);
    if (!opened) {
        return opened.error();
    }
    Display* display = opened->get();
    Atoms atoms = Atoms::load(display);
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::milliseconds(static_cast<int64_t>(timeout * 1000));
    PickerGrab grab(display);
    if (!grab.take(deadline)) {
        return AppError("Another app is holding the pointer. Try again.", "XGrabPointer failed");
    }
    pollfd connection{ConnectionNumber(display), POLLIN, 0};
    while (!cancel.isCancelled() && std::chrono::steady_clock::now() < deadline) {
        while (XPending(display) > 0) {
            XEvent event;
            XNextEvent(display, &event);
            if (event.type == KeyPress && XLookupKeysym(&event.xkey, 0) == XK_Escape) {
                return std::optional<SourceRef>();
            }
            if (event.type != ButtonPress || event.xbutton.button > Button3) {
                continue;
            }
            int x = event.xbutton.x_root;
            int y = event.xbutton.y_root;
            if (!displayOnly) {
                if (auto window = windowAt(display, atoms, event.xbutton.subwindow, x, y)) {
                    return std::optional<SourceRef>(
                        SourceRef{SourceRef::Kind::Window, static_cast<uint32_t>(*window)});
                }
            }
            return std::optional<SourceRef>(monitorAt(display, x, y));
        }
        ::poll(&connection, 1, kPollMilliseconds);
    }
    return std::optional<SourceRef>();
}

}  // namespace quillo::capture::x11
