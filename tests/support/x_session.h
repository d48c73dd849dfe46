#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "base/geometry.h"
#include "desktop_processes.h"

namespace quillo::testing {

// A private X server (Xvfb on a free display) for tests that need a real desktop, with, when
// asked, a D-Bus session with the accessibility bus and a window manager (openbox). While it is
// alive, this process's DISPLAY (and the bus addresses) point at it. The destructor ends every
// program it started, then the buses and the server, by pid.
class XSession : public desktop::Desktop {
public:
    struct Options {
        int width = 1280;
        int height = 800;
        bool accessibility = false;  // dbus-launch + at-spi-bus-launcher
        bool windowManager = false;  // openbox, for EWMH (_NET_CLIENT_LIST, resizing)
    };

    // None (with the reason in `why`) when Xvfb or a helper is missing or fails to start.
    static std::unique_ptr<XSession> start(const Options& options, std::string& why);
    XSession(const XSession&) = delete;
    XSession& operator=(const XSession&) = delete;

    const std::string& display() const { return m_display; }  // ":57"

    // Starts a program in the session's environment; it is ended with the session.
    pid_t spawn(const std::vector<std::string>& argv);
    // The first top-level window whose _NET_WM_PID is `pid` (or, with pid 0, whose title
    // contains `title`), waiting up to `seconds` for it to be mapped.
    std::optional<uint32_t> waitForWindow(pid_t pid, const std::string& title = "",
                                          double seconds = 10);
    // The window's client area in root coordinates, inside its border, as xwininfo sees it.
    Rect clientArea(uint32_t window);
    // Runs xdotool with `arguments` against this display; its output.
    std::string xdotool(const std::string& arguments);

private:
    XSession();
    std::string m_display;
};

}  // namespace quillo::testing
