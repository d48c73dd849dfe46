#include "wayland_session.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <pwd.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "movies.h"

namespace quillo::testing {

namespace {

namespace fs = std::filesystem;
using namespace desktop;

constexpr const char* kMarker = "QUILLO_WAYLAND_SESSION";
constexpr const char* kPortal = "/usr/libexec/xdg-desktop-portal";
constexpr const char* kBusLauncher = "/usr/libexec/at-spi-bus-launcher";
constexpr const char* kWlrName = "org.freedesktop.impl.portal.desktop.wlr";
constexpr double kStartSeconds = 10;  // for each server to come up

// The rebuilt backend, and why it is missing when it is.
std::string portalWlrPath(const std::string& chosen) {
    if (!chosen.empty()) {
        return chosen;
    }
    if (const char* path = std::getenv("QUILLO_PORTAL_WLR"); path != nullptr && *path != '\0') {
        return path;
    }
#ifdef QUILLO_PORTAL_WLR_DIR
    return QUILLO_PORTAL_WLR_DIR "/xdg-desktop-portal-wlr";
#else
    return {};
#endif
}

std::string whyNoPortalWlr(const std::string& path) {
    std::string reason = "the rebuilt xdg-desktop-portal-wlr is missing";
    if (path.empty()) {
        return reason + " (set QUILLO_PORTAL_WLR)";
    }
    std::string failure = lastLine(fs::path(path).parent_path() / "failure.txt");
    return reason + ": " +
           (failure.empty() ? "build the quillo_portal_wlr target"
                            : "its build failed: " + failure);
}

// A socket sway made in `folder` ("wayland-1"), or empty.
std::string waylandSocket(const fs::path& folder) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        std::string name = entry.path().filename();
        if (name.rfind("wayland-", 0) == 0 && entry.is_socket(error)) {
            return name;
        }
    }
    return {};
}

// Walks sway's tree for a window with that app_id, or a title containing `wanted`.
std::optional<Rect> findWindow(const nlohmann::json& node, const std::string& wanted) {
    const auto text = [&](const char* key) {
        auto it = node.find(key);
        return it != node.end() && it->is_string() ? it->get<std::string>() : std::string();
    };
    if (node.contains("pid") &&
        (text("app_id") == wanted || text("name").find(wanted) != std::string::npos)) {
        const auto& rect = node["rect"];
        const auto& content = node["window_rect"];
        Rect area{rect.value("x", 0.0) + content.value("x", 0.0),
                  rect.value("y", 0.0) + content.value("y", 0.0), content.value("width", 0.0),
                  content.value("height", 0.0)};
        if (area.width > 0 && area.height > 0) {
            return area;
        }
    }
    for (const char* children : {"nodes", "floating_nodes"}) {
        if (node.contains(children)) {
            for (const auto& child : node[children]) {
                if (auto found = findWindow(child, wanted)) {
                    return found;
                }
            }
        }
    }
    return std::nullopt;
}

}  // namespace

std::unique_ptr<WaylandSession> WaylandSession::start(const Options& options, std::string& why) {
    for (const char* program :
         {"sway", "swaymsg", "dbus-daemon", "dbus-send", "pipewire", "wireplumber", "wtype"}) {
        if (!onPath(program)) {
            why = std::string(program) + " is not installed (scripts/install-deps)";
            return nullptr;
        }
    }
    std::unique_ptr<WaylandSession> session(new WaylandSession());
    std::string folder = (fs::temp_directory_path() / "quillo-wayland-XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr) {
        why = "no temporary folder for the Wayland session";
        return nullptr;
    }
    session->m_folder = folder;
    session->m_runtimeDir = session->m_folder / "runtime";
    session->m_logs = session->m_folder / "logs";
    std::error_code error;
    // Others may pass through (sway's folder is below when it runs as another user), not look.
    fs::permissions(folder, fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec,
                    error);
    fs::create_directories(session->m_runtimeDir, error);
    fs::permissions(session->m_runtimeDir, fs::perms::owner_all, fs::perm_options::replace, error);
    fs::create_directories(session->m_logs, error);
    if (error) {
        why = "cannot make the session's folders: " + error.message();
        return nullptr;
    }
    session->m_marker = std::to_string(::getpid()) + ":" + folder;

    session->setVariable(kMarker, session->m_marker);
    session->setVariable("XDG_RUNTIME_DIR", session->m_runtimeDir.string());
    session->setVariable("XDG_SESSION_TYPE", "wayland");
    session->setVariable("XDG_CURRENT_DESKTOP", "sway");
    session->setVariable("DISPLAY", std::nullopt);
    session->setVariable("WAYLAND_DISPLAY", std::nullopt);
    session->setVariable("GDK_BACKEND", "wayland");
    session->setVariable("SWAYSOCK", (session->m_folder / "sway" / "ipc.sock").string());
    // Nothing may reach the desktop's own bus until the session has one.
    session->setVariable("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/quillo-test-bus");
    session->setVariable("AT_SPI_BUS_ADDRESS", std::nullopt);
    session->setVariable("NO_AT_BRIDGE",
                         options.accessibility ? std::nullopt : std::optional<std::string>("1"));

    if (!session->startCompositor(options, why) || !session->startBus(why) ||
        (options.accessibility && !session->startAccessibility(why)) ||
        !session->startPipeWire(options, why) ||
        (options.portal && !session->startPortal(options, why))) {
        return nullptr;
    }
    return session;
}

bool WaylandSession::startCompositor(const Options& options, std::string& why) {
    // sway refuses to run as root (it could not drop privileges for good); CI runs as root.
    // Then it runs as nobody in a folder of its own, and our root clients reach its socket
    // through a link in the runtime folder: root may open any socket.
    fs::path folder = m_folder / "sway";
    std::error_code error;
    fs::create_directories(folder, error);
    fs::permissions(folder, fs::perms::owner_all, fs::perm_options::replace, error);
    std::optional<std::pair<uid_t, gid_t>> user;
    if (::geteuid() == 0) {
        const passwd* nobody = ::getpwnam("nobody");
        if (nobody == nullptr) {
            why = "sway cannot run as root and there is no user nobody";
            return false;
        }
        user.emplace(nobody->pw_uid, nobody->pw_gid);
        if (::chown(folder.c_str(), nobody->pw_uid, nobody->pw_gid) != 0) {
            why = "cannot hand sway's folder to nobody";
            return false;
        }
    }
    std::string size = std::to_string(options.width) + "x" + std::to_string(options.height);
    // No bar, no wallpaper program, no X server, no borders: only what the test puts there,
    // at the same place every time.
    writeFile(folder / "config",
              "xwayland disable\n"
              "output HEADLESS-1 mode " +
                  size +
                  " position 0 0 scale 1\n"
                  "default_border none\n"
                  "default_floating_border none\n"
                  "focus_follows_mouse no\n"
                  "mouse_warping none\n");
    Launch sway{.argv = {"sway", "-c", (folder / "config").string()},
                .environment = {{"XDG_RUNTIME_DIR", folder.string()},
                                {"HOME", folder.string()},
                                {"XDG_CONFIG_HOME", folder.string()},
                                {"WLR_BACKENDS", "headless"},
                                {"WLR_RENDERER", "pixman"},
                                {"WLR_LIBINPUT_NO_DEVICES", "1"}},
                .user = user};
    pid_t pid = startServer("sway", sway);
    bool up = waitUntil(kStartSeconds, [&] {
        return hasEnded(pid) || (!waylandSocket(folder).empty() && fs::exists(folder / "ipc.sock"));
    });
    m_waylandDisplay = waylandSocket(folder);
    if (!up || hasEnded(pid) || m_waylandDisplay.empty()) {
        why = "sway did not start: " + lastLine(m_logs / "sway.log");
        return false;
    }
    fs::create_symlink(folder / m_waylandDisplay, m_runtimeDir / m_waylandDisplay, error);
    if (error) {
        why = "cannot link sway's socket into the runtime folder: " + error.message();
        return false;
    }
    setVariable("WAYLAND_DISPLAY", m_waylandDisplay);
    return true;
}

bool WaylandSession::startBus(std::string& why) {
    // Services the bus starts on demand get its environment, so they find this session; their
    // data stays in the session's folder. The document portal is kept out: it would mount a
    // FUSE file system that a killed process leaves behind.
    fs::path data = m_folder / "data";
    writeFile(data / "dbus-1/services/org.freedesktop.portal.Documents.service",
              "[D-BUS Service]\nName=org.freedesktop.portal.Documents\nExec=/bin/false\n");
    m_serviceEnvironment = {{"XDG_DATA_HOME", data.string()}, {"XDPW_PERSIST_MODE", "permanent"}};
    std::string address = "unix:path=" + (m_runtimeDir / "bus").string();
    Launch bus{.argv = {"dbus-daemon", "--session", "--nofork", "--address=" + address,
                        "--print-address=" + std::to_string(kReportFd)},
               .environment = m_serviceEnvironment,
               .log = m_logs / "dbus.log"};
    auto [pid, printed] = launchAndRead(bus, kStartSeconds);
    addServer(pid);
    if (printed.empty()) {
        why = "the D-Bus session bus did not start: " + lastLine(bus.log);
        return false;
    }
    setVariable("DBUS_SESSION_BUS_ADDRESS", printed);
    return true;
}

bool WaylandSession::startAccessibility(std::string& why) {
    if (!onPath(kBusLauncher)) {
        why = "at-spi-bus-launcher is not installed";
        return false;
    }
    pid_t pid = startServer("at-spi", {.argv = {kBusLauncher, "--launch-immediately"},
                                       .environment = m_serviceEnvironment});
    if (!waitUntil(kStartSeconds, [&] { return hasEnded(pid) || busNameOwned("org.a11y.Bus"); }) ||
        hasEnded(pid)) {
        why = "the accessibility bus did not start: " + lastLine(m_logs / "at-spi.log");
        return false;
    }
    return true;
}

bool WaylandSession::startPipeWire(const Options& options, std::string& why) {
    pid_t pid = startServer("pipewire", {.argv = {"pipewire"}});
    if (!waitUntil(kStartSeconds,
                   [&] { return hasEnded(pid) || fs::exists(m_runtimeDir / "pipewire-0"); }) ||
        hasEnded(pid)) {
        why = "pipewire did not start: " + lastLine(m_logs / "pipewire.log");
        return false;
    }
    startServer("wireplumber", {.argv = {"wireplumber"}});
    if (!options.sound) {
        return true;
    }
    if (!onPath("pipewire-pulse") || !onPath("pactl")) {
        why = "pipewire-pulse or pactl is not installed";
        return false;
    }
    fs::path socket = m_runtimeDir / "pulse" / "native";
    setVariable("PULSE_SERVER", "unix:" + socket.string());
    pid = startServer("pipewire-pulse", {.argv = {"pipewire-pulse"}});
    if (!waitUntil(kStartSeconds,
                   [&] {
                       return hasEnded(pid) || (fs::exists(socket) &&
                                                std::system("pactl info >/dev/null 2>&1") == 0);
                   }) ||
        hasEnded(pid)) {
        why = "pipewire-pulse did not start: " + lastLine(m_logs / "pipewire-pulse.log");
        return false;
    }
    return true;
}

bool WaylandSession::startPortal(const Options& options, std::string& why) {
    std::string wlr = portalWlrPath(options.portalWlr);
    if (wlr.empty() || ::access(wlr.c_str(), X_OK) != 0) {
        why = whyNoPortalWlr(wlr);
        return false;
    }
    if (!onPath(kPortal)) {
        why = "xdg-desktop-portal is not installed";
        return false;
    }
    // Shares HEADLESS-1 without a chooser, and hands out restore tokens.
    fs::path config = m_folder / "xdg-desktop-portal-wlr.ini";
    writeFile(config, "[screencast]\nchooser_type=none\noutput_name=HEADLESS-1\n");
    // Should ours end, the bus restarts ours, not the packaged one that cannot share here.
    writeFile(m_folder / "data/dbus-1/services" / (std::string(kWlrName) + ".service"),
              "[D-BUS Service]\nName=" + std::string(kWlrName) + "\nExec=" + wlr + " -c " +
                  config.string() + "\n");
    // Both started here rather than by the bus, which would start them before this process's
    // environment reached it; the backend first, so the portal finds it.
    pid_t pid = startServer(
        "xdg-desktop-portal-wlr",
        {.argv = {wlr, "-c", config.string(), "-l", "INFO"}, .environment = m_serviceEnvironment});
    if (!waitUntil(kStartSeconds, [&] { return hasEnded(pid) || busNameOwned(kWlrName); }) ||
        hasEnded(pid)) {
        why = "xdg-desktop-portal-wlr did not start: " +
              lastLine(m_logs / "xdg-desktop-portal-wlr.log");
        return false;
    }
    pid =
        startServer("xdg-desktop-portal", {.argv = {kPortal}, .environment = m_serviceEnvironment});
    if (!waitUntil(kStartSeconds,
                   [&] {
                       return hasEnded(pid) ||
                              screenCastProperty("AvailableSourceTypes").has_value();
                   }) ||
        hasEnded(pid)) {
        why = "xdg-desktop-portal does not answer: " + lastLine(m_logs / "xdg-desktop-portal.log");
        return false;
    }
    return true;
}

WaylandSession::WaylandSession() : Desktop(kMarker) {}

pid_t WaylandSession::spawn(const std::vector<std::string>& argv) {
    return startClient({.argv = argv});
}

std::string WaylandSession::swaymsg(const std::vector<std::string>& args) {
    std::string command = "swaymsg";
    for (const auto& arg : args) {
        command += " " + shellQuote(arg);
    }
    return commandOutput(command + " 2>/dev/null");
}

std::optional<Rect> WaylandSession::waitForWindow(const std::string& appIdOrTitle, double seconds) {
    std::optional<Rect> found;
    waitUntil(seconds, [&] {
        auto tree = nlohmann::json::parse(swaymsg({"-t", "get_tree"}), nullptr, false);
        found = tree.is_discarded() ? std::nullopt : findWindow(tree, appIdOrTitle);
        return found.has_value();
    });
    return found;
}

bool WaylandSession::type(const std::string& text) {
    // A new virtual keyboard loses the keys it sends before the focused client has taken its
    // keymap: a lone Shift_L and a pause go first, so no character is among them.
    return std::system(("wtype -k Shift_L -s 100 -- " + shellQuote(text)).c_str()) == 0;
}

bool WaylandSession::busNameOwned(const std::string& name) {
    return commandOutput(
               "dbus-send --session --print-reply=literal --reply-timeout=2000 "
               "--dest=org.freedesktop.DBus /org/freedesktop/DBus "
               "org.freedesktop.DBus.NameHasOwner string:" +
               shellQuote(name) + " 2>/dev/null")
               .find("true") != std::string::npos;
}

std::optional<uint32_t> WaylandSession::screenCastProperty(const std::string& name) {
    // Asked only once the portal runs: a call to an unowned name would have the bus start one.
    if (!busNameOwned("org.freedesktop.portal.Desktop")) {
        return std::nullopt;
    }
    std::string reply = commandOutput(
        "dbus-send --session --print-reply=literal --reply-timeout=2000 "
        "--dest=org.freedesktop.portal.Desktop /org/freedesktop/portal/desktop "
        "org.freedesktop.DBus.Properties.Get string:org.freedesktop.portal.ScreenCast string:" +
        shellQuote(name) + " 2>/dev/null");
    size_t at = reply.find("uint32");
    if (at == std::string::npos) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(std::strtoul(reply.c_str() + at + 6, nullptr, 10));
}

}  // namespace quillo::testing
