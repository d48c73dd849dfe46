#pragma once

// Shared pieces of the X11 backend: connections, error trapping, atoms, window properties and
// the window and monitor descriptions that the backend and the picker both need. Included only
// by x11/*.cpp.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <X11/Xlib.h>

#include "base/cancel_token.h"
#include "base/result.h"
#include "capture/display_backend.h"

namespace quillo::capture::x11 {

struct DisplayCloser {
    void operator()(Display* display) const { XCloseDisplay(display); }
};
using DisplayPtr = std::unique_ptr<Display, DisplayCloser>;

// Opens a connection of its own to `name` (DISPLAY when empty).
Result<DisplayPtr> openDisplay(const std::string& name);

// Catches the X errors of this thread's requests while alive; the global handler logs only
// errors that no trap expects. Use on one thread, around requests on one connection.
class ErrorTrap {
public:
    explicit ErrorTrap(Display* display);
    ~ErrorTrap();
    ErrorTrap(const ErrorTrap&) = delete;
    ErrorTrap& operator=(const ErrorTrap&) = delete;

    // Waits for the server to answer every request sent so far; true when one of them failed.
    bool failed();
    // The error code of the first failure (BadWindow, ...), 0 without one.
    int code() const;

private:
    Display* m_display;
    int m_savedCode;
};

// The atoms the backend reads, interned once per connection.
struct Atoms {
    Atom netClientList = 0;
    Atom netClientListStacking = 0;
    Atom netSupportingWmCheck = 0;
    Atom netWmName = 0;
    Atom netWmPid = 0;
    Atom netMoveResizeWindow = 0;
    Atom utf8String = 0;
    Atom wmState = 0;

    static Atoms load(Display* display);
};

// A property of 32-bit items (CARDINAL, WINDOW, ...) as longs, as Xlib hands them over; none
// when the window lacks it or is gone.
std::optional<std::vector<unsigned long>> longProperty(Display* display, Window window,
                                                       Atom property, Atom type);
bool hasProperty(Display* display, Window window, Atom property);

// True when an EWMH window manager runs (its check window answers).
bool hasWindowManager(Display* display, const Atoms& atoms);

// The app window inside `topLevel` (a child of the root): `topLevel` itself or, under a
// reparenting window manager, the descendant that carries WM_STATE. None without one.
std::optional<Window> clientWindowOf(Display* display, const Atoms& atoms, Window topLevel);

// The app windows, front first: the window manager's client list, or without one the mapped
// children of the root that look like apps.
std::vector<Window> clientWindows(Display* display, const Atoms& atoms);

// Title, app, pid and the client area in root coordinates; none when the window is gone or
// not mapped.
std::optional<WindowInfo> describeWindow(Display* display, const Atoms& atoms, Window window);

// The monitors (RandR), or the whole screen as one named "screen".
std::vector<MonitorInfo> listMonitors(Display* display);

class Exclusions;

// The thread-owned parts, each on a connection of its own to `displayName`. The grabber leaves
// out the windows of `exclusions` (none when null).
Result<std::unique_ptr<ScreenGrabber>> makeGrabber(const std::string& displayName,
                                                   std::shared_ptr<const Exclusions> exclusions);
Result<std::unique_ptr<InputWatcher>> makeInputWatcher(
    const std::string& displayName, std::function<void(const InputEvent&)> onInput);
Result<std::unique_ptr<GlobalKeys>> makeGlobalKeys(const std::string& displayName);
Result<std::optional<SourceRef>> pickSource(const std::string& displayName, bool displayOnly,
                                            double timeout, const CancelToken& cancel);

}  // namespace quillo::capture::x11
