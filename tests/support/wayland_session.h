#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "base/geometry.h"
#include "support/desktop_processes.h"

namespace quillo::testing {

// A private headless Wayland desktop for tests: sway on the headless backend with one output, a
// D-Bus session, PipeWire with WirePlumber, and the ScreenCast portal served by our rebuilt
// xdg-desktop-portal-wlr, which shares that output without asking. Everything runs in a runtime
// folder of its own. While the session is alive, this process's environment (WAYLAND_DISPLAY,
// XDG_RUNTIME_DIR, DBUS_SESSION_BUS_ADDRESS, XDG_SESSION_TYPE, XDG_CURRENT_DESKTOP, SWAYSOCK;
// DISPLAY unset) points at it; the destructor ends every program it started, by pid and in
// reverse order, and puts the environment back. Use it from the test's main thread.
class WaylandSession : public desktop::Desktop {
public:
    struct Options {
        int width = 1920;  // of the one output, HEADLESS-1
        int height = 1080;
        bool portal = true;          // xdg-desktop-portal with the rebuilt backend
        bool sound = false;          // pipewire-pulse too, for PulseAudio clients
        bool accessibility = false;  // the AT-SPI bus, so GTK programs are on it
        // The rebuilt xdg-desktop-portal-wlr; empty: $QUILLO_PORTAL_WLR, else the build's own.
        std::string portalWlr{};
    };

    // None, with the reason in `why`, when a program is missing or does not come up.
    static std::unique_ptr<WaylandSession> start(const Options& options, std::string& why);
    WaylandSession(const WaylandSession&) = delete;
    WaylandSession& operator=(const WaylandSession&) = delete;

    const std::filesystem::path& runtimeDir() const { return m_runtimeDir; }
    const std::string& waylandDisplay() const { return m_waylandDisplay; }  // "wayland-1"

    // Starts a client in the session; it is ended with the session.
    pid_t spawn(const std::vector<std::string>& argv);

    // Runs swaymsg with `args` against this sway; its standard output (JSON for -t queries).
    std::string swaymsg(const std::vector<std::string>& args);
    // The content area, in output coordinates, of the first window whose app_id is
    // `appIdOrTitle` or whose title contains it, waiting up to `seconds` for it to be mapped.
    std::optional<Rect> waitForWindow(const std::string& appIdOrTitle, double seconds = 10);
    // Types `text` (a newline is Return) into the focused window through a virtual keyboard.
    bool type(const std::string& text);
    // A uint32 property of org.freedesktop.portal.ScreenCast ("AvailableSourceTypes",
    // "AvailableCursorModes", "version"), or none when the portal does not answer.
    std::optional<uint32_t> screenCastProperty(const std::string& name);

private:
    WaylandSession();
    bool startCompositor(const Options& options, std::string& why);
    bool startBus(std::string& why);
    bool startPipeWire(const Options& options, std::string& why);
    bool startPortal(const Options& options, std::string& why);
    bool startAccessibility(std::string& why);
    // Whether `name` has an owner on the session bus (asking does not activate it).
    bool busNameOwned(const std::string& name);

    std::filesystem::path m_runtimeDir;  // XDG_RUNTIME_DIR of the clients
    std::string m_waylandDisplay;
    // Only for the bus and the services: their data folder (permission store, restore data)
    // is the session's, and the backend's persist mode hands out restore tokens.
    std::vector<desktop::Variable> m_serviceEnvironment;
};

}  // namespace quillo::testing
