#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "support/desktop_processes.h"

// GDBus's connection, kept out of the tests' includes.
struct _GDBusConnection;

namespace quillo::testing {

// A private headless GNOME desktop for tests: gnome-shell on a virtual monitor, a private system
// bus, a D-Bus session, the AT-SPI bus, PipeWire with WirePlumber, and the portal with the GNOME
// backend, whose ScreenCast offers windows and cursor metadata and whose RemoteDesktop drives
// the pointer. Its consent dialogs are answered over AT-SPI.
//
// The desktop runs as an unprivileged user (nobody when this process is root, which gnome-shell
// needs), except the portal's front end, which runs as this process: it reads /proc/PID/root
// of every caller and so must be allowed to look into ours. The buses let any user in, so this
// process and the clients it spawns talk to the desktop as they are.
//
// While alive, this process's environment (WAYLAND_DISPLAY, XDG_RUNTIME_DIR,
// DBUS_SESSION_BUS_ADDRESS, XDG_SESSION_TYPE=wayland, XDG_CURRENT_DESKTOP=GNOME; DISPLAY unset)
// points at it; the destructor ends every program it started, by pid and newest first, and
// puts the environment back. Use it from the test's main thread.
class GnomeSession : public desktop::Desktop {
public:
    struct Options {
        int width = 1920;  // of the virtual monitor, Meta-0
        int height = 1080;
        bool portal = true;  // xdg-desktop-portal and its GNOME backend
    };

    // None, with the reason in `why`, when a program is missing or does not come up.
    static std::unique_ptr<GnomeSession> start(const Options& options, std::string& why);
    ~GnomeSession() override;
    GnomeSession(const GnomeSession&) = delete;
    GnomeSession& operator=(const GnomeSession&) = delete;

    const std::filesystem::path& runtimeDir() const { return m_runtimeDir; }

    // Starts a client (GDK_BACKEND=wayland) as this process's user; ended with the session.
    pid_t spawn(const std::vector<std::string>& argv);

    // Whether a top-level window whose title contains `title` shows on AT-SPI within `seconds`.
    bool waitForWindow(const std::string& title, double seconds = 10);
    // Waits for the portal's "Screen Share" dialog, selects the row whose label contains
    // `itemTitle` (a window's title or a monitor's name) and presses Share. False when no such
    // dialog or row came within `seconds`. The requester must stay alive while the dialog is
    // open: the backend crashes when its caller goes away under a dialog.
    bool answerScreenShare(const std::string& itemTitle, double seconds = 10);
    // Waits for the "Remote desktop" dialog, turns on "Allow remote interaction" and presses
    // Share; false when none came within `seconds`.
    bool answerRemoteDesktop(double seconds = 10);

    // Moves the pointer to (x, y) in monitor pixels through a remote desktop session of the
    // harness's own with mutter, which asks no one. Moving it changes the screen even when no
    // window does; false when mutter refused.
    bool movePointer(double x, double y);
    // Types printable ASCII and newlines (Return) into the focused window, the same way.
    bool type(const std::string& text);

    // A uint32 property of a portal interface ("org.freedesktop.portal.ScreenCast",
    // "AvailableSourceTypes"), or none when the portal does not answer.
    std::optional<uint32_t> portalProperty(const std::string& interface, const std::string& name);

private:
    bool closeOverview(double seconds);
    GnomeSession();
    bool prepareFolders(std::string& why);
    bool startBuses(std::string& why);
    bool startPipeWire(std::string& why);
    bool startShell(const Options& options, std::string& why);
    bool startPortal(std::string& why);
    bool startRemoteInput(std::string& why);
    // Starts a server of the session as its user, with its environment.
    pid_t startServer(const std::string& name, desktop::Launch launch);
    bool busNameOwned(const std::string& name);
    // Runs this binary as the AT-SPI helper for `job` (see gnome_session.cpp); its exit status.
    int runAccessibilityJob(const std::string& job, const std::string& argument, double seconds);

    std::filesystem::path m_runtimeDir;  // XDG_RUNTIME_DIR of the desktop and its clients
    std::filesystem::path m_home;        // HOME and XDG_*_HOME of the desktop's user
    std::optional<std::pair<uid_t, gid_t>> m_user;       // the desktop's user; none: ours
    std::vector<desktop::Variable> m_serverEnvironment;  // HOME and friends, the system bus
    _GDBusConnection* m_bus = nullptr;                   // ours, private; closed before the bus
    std::string m_inputSession;  // mutter's remote desktop session for movePointer and type
    std::string m_inputStream;   // its screen cast stream of Meta-0, which places the pointer
};

// The harness's own: its AT-SPI helper process, which is this binary started again with
// QUILLO_GNOME_HELPER_* set (gnome_session_dialogs.cpp).
namespace gnome {

constexpr int kJobDone = 0;
constexpr int kJobTimedOut = 1;
constexpr int kJobFailed = 2;

struct Deadline {
    std::chrono::steady_clock::time_point at;
    // Polls `done` every 100 ms until it holds (true) or the deadline passes (false).
    bool waitFor(const std::function<bool()>& done) const;
};

// Runs `job` ("window", "screen-share" or "remote-desktop") with its argument; kJob*.
int runDialogJob(const std::string& job, const std::string& argument, double seconds);

}  // namespace gnome

}  // namespace quillo::testing
