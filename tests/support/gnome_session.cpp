#include "gnome_session.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <gio/gio.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillo::testing {

namespace {

namespace fs = std::filesystem;
using namespace desktop;

constexpr const char* kMarker = "QUILLO_GNOME_SESSION";
constexpr const char* kPortal = "/usr/libexec/xdg-desktop-portal";
constexpr const char* kMonitor = "Meta-0";  // gnome-shell's name for its virtual monitor
constexpr double kStartSeconds = 15;        // for each server to come up

// A bus that lets every user in: the desktop's user owns it, this process may be root.
std::string busConfig(const std::string& type, const std::string& extra) {
    return "<busconfig>\n  <type>" + type + "</type>\n  <auth>EXTERNAL</auth>\n" + extra +
           "  <policy context=\"default\">\n    <allow user=\"*\"/>\n"
           "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
           "    <allow eavesdrop=\"true\"/>\n    <allow own=\"*\"/>\n  </policy>\n</busconfig>\n";
}

using Reply = std::unique_ptr<GVariant, decltype(&g_variant_unref)>;

// A synchronous call on `bus`; none (with the error in `why`, when given) on failure.
Reply call(GDBusConnection* bus, const char* destination, const std::string& path,
           const char* interface, const char* method, GVariant* args, const char* replyType,
           std::string* why = nullptr) {
    GError* error = nullptr;
    GVariant* reply = bus == nullptr
                          ? nullptr
                          : g_dbus_connection_call_sync(
                                bus, destination, path.c_str(), interface, method, args,
                                replyType != nullptr ? G_VARIANT_TYPE(replyType) : nullptr,
                                G_DBUS_CALL_FLAGS_NO_AUTO_START, 5000, nullptr, &error);
    if (error != nullptr) {
        if (why != nullptr) {
            *why = error->message;
        }
        g_error_free(error);
    }
    return Reply(reply, &g_variant_unref);
}

// The one string or object path of a reply like "(o)".
std::string firstString(const Reply& reply) {
    if (!reply) {
        return {};
    }
    GVariant* child = g_variant_get_child_value(reply.get(), 0);
    if (g_variant_is_of_type(child, G_VARIANT_TYPE_VARIANT)) {
        GVariant* inner = g_variant_get_variant(child);
        g_variant_unref(child);
        child = inner;
    }
    std::string text = g_variant_is_of_type(child, G_VARIANT_TYPE_STRING) ||
                               g_variant_is_of_type(child, G_VARIANT_TYPE_OBJECT_PATH)
                           ? g_variant_get_string(child, nullptr)
                           : "";
    g_variant_unref(child);
    return text;
}

// The keysym of a printable ASCII character (Latin-1 keysyms are their code points) or of a
// newline; 0 for anything else.
uint32_t keysymOf(char c) {
    if (c == '\n') {
        return 0xff0d;  // Return
    }
    return c >= 0x20 && c < 0x7f ? static_cast<uint32_t>(c) : 0;
}

// Started as the harness's AT-SPI helper (runAccessibilityJob), this binary does the job here,
// before main, and ends with its result, leaving the leak checker out.
[[maybe_unused]] const bool kHelper = [] {
    if (const char* job = std::getenv("QUILLO_GNOME_HELPER_JOB"); job != nullptr) {
        const char* argument = std::getenv("QUILLO_GNOME_HELPER_ARGUMENT");
        const char* seconds = std::getenv("QUILLO_GNOME_HELPER_SECONDS");
        std::_Exit(gnome::runDialogJob(job, argument != nullptr ? argument : "",
                                       seconds != nullptr ? std::atof(seconds) : 10));
    }
    return false;
}();

}  // namespace

std::unique_ptr<GnomeSession> GnomeSession::start(const Options& options, std::string& why) {
    for (const char* program : {"gnome-shell", "dbus-daemon", "pipewire", "wireplumber",
                                "gsettings", "setpriv", "unshare", kPortal}) {
        if (!onPath(program)) {
            why = std::string(program) + " is not installed (scripts/install-deps)";
            return nullptr;
        }
    }
    std::unique_ptr<GnomeSession> session(new GnomeSession());
    if (::geteuid() == 0) {
        // gnome-shell will not run as root.
        const passwd* nobody = ::getpwnam("nobody");
        if (nobody == nullptr) {
            why = "gnome-shell cannot run as root and there is no user nobody";
            return nullptr;
        }
        session->m_user.emplace(nobody->pw_uid, nobody->pw_gid);
    } else if (fs::exists("/run/systemd/seats")) {
        // mutter takes /run/systemd/seats for a sign of logind, which our private system bus
        // never has, and gives up; hiding it takes a mount namespace, which takes root.
        why =
            "/run/systemd/seats exists, so gnome-shell needs a mount namespace without it, "
            "which only root can make";
        return nullptr;
    }
    if (!session->prepareFolders(why) || !session->startBuses(why) ||
        !session->startPipeWire(why) || !session->startShell(options, why) ||
        (options.portal && !session->startPortal(why))) {
        return nullptr;
    }
    return session;
}

bool GnomeSession::prepareFolders(std::string& why) {
    std::string folder = (fs::temp_directory_path() / "quillo-gnome-XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr) {
        why = "no temporary folder for the GNOME session";
        return false;
    }
    m_folder = folder;
    m_runtimeDir = m_folder / "runtime";
    m_home = m_folder / "home";
    m_logs = m_folder / "logs";
    std::error_code error;
    // The desktop's user may pass through to its folders, not look.
    fs::permissions(m_folder, fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec,
                    error);
    for (const auto& own : {m_runtimeDir, m_home}) {
        fs::create_directories(own, error);
        fs::permissions(own, fs::perms::owner_all, fs::perm_options::replace, error);
        if (m_user && ::chown(own.c_str(), m_user->first, m_user->second) != 0) {
            why = "cannot hand the session's folders to its user";
            return false;
        }
    }
    fs::create_directories(m_logs, error);
    if (error) {
        why = "cannot make the session's folders: " + error.message();
        return false;
    }
    m_marker = std::to_string(::getpid()) + ":" + folder;
    setVariable(kMarker, m_marker);
    setVariable("XDG_RUNTIME_DIR", m_runtimeDir.string());
    setVariable("XDG_SESSION_TYPE", "wayland");
    setVariable("XDG_CURRENT_DESKTOP", "GNOME");
    setVariable("DISPLAY", std::nullopt);
    setVariable("WAYLAND_DISPLAY", std::nullopt);
    // Nothing may reach the desktop's own bus until the session has one.
    setVariable("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/quillo-test-bus");
    // GTK programs join the AT-SPI bus that gnome-shell starts through the session bus.
    setVariable("AT_SPI_BUS_ADDRESS", std::nullopt);
    setVariable("NO_AT_BRIDGE", std::nullopt);
    std::string home = m_home.string();
    m_serverEnvironment = {
        {"HOME", home},
        {"XDG_CONFIG_HOME", home + "/.config"},
        {"XDG_DATA_HOME", home + "/.local/share"},
        {"XDG_CACHE_HOME", home + "/.cache"},
        {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + (m_runtimeDir / "system_bus_socket").string()}};
    return true;
}

bool GnomeSession::startBuses(std::string& why) {
    // A system bus of our own: gnome-shell will not start without one, and with no services
    // to activate, its calls to logind, UPower and the rest fail at once.
    fs::path system = m_folder / "system-bus.conf";
    writeFile(system, busConfig("system", "  <listen>unix:path=" +
                                              (m_runtimeDir / "system_bus_socket").string() +
                                              "</listen>\n"));
    // Services the session bus starts get its environment, so they find this session. The
    // document portal is kept out (it would leave a FUSE mount behind a killed session), and
    // so is the portal's front end, which must be ours (see the header).
    fs::path services = m_home / ".local/share/dbus-1/services";
    for (const char* name :
         {"org.freedesktop.portal.Documents", "org.freedesktop.portal.Desktop"}) {
        writeFile(services / (std::string(name) + ".service"),
                  "[D-BUS Service]\nName=" + std::string(name) + "\nExec=/bin/false\n");
    }
    if (m_user) {
        std::string command = "chown -R " + std::to_string(m_user->first) + ":" +
                              std::to_string(m_user->second) + " " + shellQuote(m_home.string());
        if (std::system(command.c_str()) != 0) {
            why = "cannot hand the session's home to its user";
            return false;
        }
    }
    fs::path session = m_folder / "session-bus.conf";
    writeFile(
        session,
        "<busconfig>\n  <include>/usr/share/dbus-1/session.conf</include>\n"
        "  <policy context=\"default\">\n    <allow user=\"*\"/>\n  </policy>\n</busconfig>\n");
    std::string address = "unix:path=" + (m_runtimeDir / "bus").string();
    startServer("system-bus", {.argv = {"dbus-daemon", "--config-file=" + system.string(),
                                        "--nofork", "--nopidfile"}});
    pid_t pid =
        startServer("session-bus", {.argv = {"dbus-daemon", "--config-file=" + session.string(),
                                             "--nofork", "--nopidfile", "--address=" + address}});
    bool up = waitUntil(kStartSeconds, [&] {
        return hasEnded(pid) ||
               (fs::exists(m_runtimeDir / "bus") && fs::exists(m_runtimeDir / "system_bus_socket"));
    });
    GError* error = nullptr;
    if (up && !hasEnded(pid)) {
        m_bus = g_dbus_connection_new_for_address_sync(
            address.c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, &error);
    }
    if (m_bus == nullptr) {
        why = "the D-Bus buses did not start: " +
              (error != nullptr
                   ? std::string(error->message)
                   : lastLine(m_logs / "session-bus.log") + lastLine(m_logs / "system-bus.log"));
        g_clear_error(&error);
        return false;
    }
    setVariable("DBUS_SESSION_BUS_ADDRESS", address);
    return true;
}

bool GnomeSession::startPipeWire(std::string& why) {
    pid_t pid = startServer("pipewire", {.argv = {"pipewire"}});
    if (!waitUntil(kStartSeconds,
                   [&] { return hasEnded(pid) || fs::exists(m_runtimeDir / "pipewire-0"); }) ||
        hasEnded(pid)) {
        why = "pipewire did not start: " + lastLine(m_logs / "pipewire.log");
        return false;
    }
    startServer("wireplumber", {.argv = {"wireplumber"}});
    return true;
}

bool GnomeSession::startShell(const Options& options, std::string& why) {
    // With animations on, the remote desktop dialog's switch never turns on.
    pid_t pid =
        startServer("gsettings", {.argv = {"gsettings", "set", "org.gnome.desktop.interface",
                                           "enable-animations", "false"}});
    waitUntil(kStartSeconds, [&] { return hasEnded(pid); });
    std::vector<std::string> shell = {
        "gnome-shell",       "--headless",
        "--wayland",         "--no-x11",
        "--virtual-monitor", std::to_string(options.width) + "x" + std::to_string(options.height)};
    Launch launch{.argv = shell};
    if (m_user && fs::exists("/run/systemd/seats")) {
        // See start(): a tmpfs hides /run/systemd from gnome-shell alone; it mounts as root
        // and then becomes the desktop's user.
        launch.argv = {"unshare",
                       "--mount",
                       "--propagation",
                       "private",
                       "--",
                       "sh",
                       "-c",
                       "mount -t tmpfs tmpfs /run/systemd && exec setpriv --reuid=" +
                           std::to_string(m_user->first) + " --regid=" +
                           std::to_string(m_user->second) + " --clear-groups -- \"$0\" \"$@\""};
        launch.argv.insert(launch.argv.end(), shell.begin(), shell.end());
        pid = Desktop::startServer("gnome-shell",
                                   {.argv = launch.argv, .environment = m_serverEnvironment});
    } else {
        pid = startServer("gnome-shell", launch);
    }
    // Ready once it owns its name and its monitor; it starts in the overview, which covers
    // every window, so that is closed.
    bool up = waitUntil(kStartSeconds, [&] {
        return hasEnded(pid) ||
               (fs::exists(m_runtimeDir / "wayland-0") && busNameOwned("org.gnome.Shell") &&
                busNameOwned("org.gnome.Mutter.ScreenCast"));
    });
    if (!up || hasEnded(pid)) {
        why = "gnome-shell did not start: " + lastLine(m_logs / "gnome-shell.log");
        return false;
    }
    setVariable("WAYLAND_DISPLAY", "wayland-0");
    bool closed = closeOverview(kStartSeconds);
    if (!closed) {
        why = "gnome-shell's overview does not close";
        return false;
    }
    return true;
}

// The shell opens its overview at start (also once the start is over), which covers every
// window: closes it, and sees it stay closed for a moment.
bool GnomeSession::closeOverview(double seconds) {
    auto isClosed = [&] {
        call(m_bus, "org.gnome.Shell", "/org/gnome/Shell", "org.freedesktop.DBus.Properties", "Set",
             g_variant_new("(ssv)", "org.gnome.Shell", "OverviewActive",
                           g_variant_new_boolean(FALSE)),
             nullptr);
        Reply active =
            call(m_bus, "org.gnome.Shell", "/org/gnome/Shell", "org.freedesktop.DBus.Properties",
                 "Get", g_variant_new("(ss)", "org.gnome.Shell", "OverviewActive"), "(v)");
        if (!active) {
            return false;
        }
        GVariant* value = g_variant_get_child_value(active.get(), 0);
        GVariant* inner = g_variant_get_variant(value);
        bool open = g_variant_get_boolean(inner);
        g_variant_unref(inner);
        g_variant_unref(value);
        return !open;
    };
    int closedPolls = 0;
    return waitUntil(seconds, [&] {
        closedPolls = isClosed() ? closedPolls + 1 : 0;
        return closedPolls >= 10;
    });
}

bool GnomeSession::startPortal(std::string& why) {
    // As this process's user, not the desktop's: see the header. It starts its GNOME backend
    // through the bus, as the desktop's user.
    pid_t pid =
        Desktop::startServer("portal", {.argv = {kPortal}, .environment = m_serverEnvironment});
    if (!waitUntil(kStartSeconds,
                   [&] {
                       return hasEnded(pid) || portalProperty("org.freedesktop.portal.ScreenCast",
                                                              "AvailableSourceTypes")
                                                   .has_value();
                   }) ||
        hasEnded(pid)) {
        why = "xdg-desktop-portal does not answer: " + lastLine(m_logs / "portal.log");
        return false;
    }
    return true;
}

GnomeSession::GnomeSession() : Desktop(kMarker) {}

pid_t GnomeSession::startServer(const std::string& name, Launch launch) {
    launch.user = m_user;
    launch.environment.insert(launch.environment.begin(), m_serverEnvironment.begin(),
                              m_serverEnvironment.end());
    return Desktop::startServer(name, std::move(launch));
}

GnomeSession::~GnomeSession() {
    endClients();
    if (m_bus != nullptr) {
        // Ends mutter's remote desktop session too.
        g_dbus_connection_close_sync(m_bus, nullptr, nullptr);
        g_object_unref(m_bus);
    }
    // Then the servers, newest first: the services the bus started (the GNOME backend, the
    // AT-SPI bus) are found by their marker before the system bus, which went first.
}

pid_t GnomeSession::spawn(const std::vector<std::string>& argv) {
    return startClient(
        {.argv = argv, .environment = {{"GDK_BACKEND", "wayland"}}, .log = m_logs / "clients.log"});
}

bool GnomeSession::busNameOwned(const std::string& name) {
    Reply reply =
        call(m_bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
             "NameHasOwner", g_variant_new("(s)", name.c_str()), "(b)");
    gboolean owned = FALSE;
    if (reply) {
        g_variant_get(reply.get(), "(b)", &owned);
    }
    return owned;
}

std::optional<uint32_t> GnomeSession::portalProperty(const std::string& interface,
                                                     const std::string& name) {
    Reply reply = call(m_bus, "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
                       "org.freedesktop.DBus.Properties", "Get",
                       g_variant_new("(ss)", interface.c_str(), name.c_str()), "(v)");
    if (!reply) {
        return std::nullopt;
    }
    GVariant* value = g_variant_get_child_value(reply.get(), 0);
    GVariant* inner = g_variant_get_variant(value);
    std::optional<uint32_t> result;
    if (g_variant_is_of_type(inner, G_VARIANT_TYPE_UINT32)) {
        result = g_variant_get_uint32(inner);
    }
    g_variant_unref(inner);
    g_variant_unref(value);
    return result;
}

bool GnomeSession::startRemoteInput(std::string& why) {
    if (!m_inputStream.empty()) {
        return true;
    }
    // mutter's own remote desktop API, which the portal's backend uses after its dialog: the
    // pointer is placed in the coordinates of a screen cast stream of the monitor.
    m_inputSession =
        firstString(call(m_bus, "org.gnome.Mutter.RemoteDesktop", "/org/gnome/Mutter/RemoteDesktop",
                         "org.gnome.Mutter.RemoteDesktop", "CreateSession", nullptr, "(o)", &why));
    std::string id = firstString(call(
        m_bus, "org.gnome.Mutter.RemoteDesktop", m_inputSession, "org.freedesktop.DBus.Properties",
        "Get", g_variant_new("(ss)", "org.gnome.Mutter.RemoteDesktop.Session", "SessionId"), "(v)",
        &why));
    if (id.empty()) {
        return false;
    }
    GVariantBuilder properties;
    g_variant_builder_init(&properties, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&properties, "{sv}", "remote-desktop-session-id",
                          g_variant_new_string(id.c_str()));
    std::string cast =
        firstString(call(m_bus, "org.gnome.Mutter.ScreenCast", "/org/gnome/Mutter/ScreenCast",
                         "org.gnome.Mutter.ScreenCast", "CreateSession",
                         g_variant_new("(a{sv})", &properties), "(o)", &why));
    std::string stream =
        cast.empty() ? std::string()
                     : firstString(call(m_bus, "org.gnome.Mutter.ScreenCast", cast,
                                        "org.gnome.Mutter.ScreenCast.Session", "RecordMonitor",
                                        g_variant_new("(sa{sv})", kMonitor, nullptr), "(o)", &why));
    if (stream.empty() ||
        !call(m_bus, "org.gnome.Mutter.RemoteDesktop", m_inputSession,
              "org.gnome.Mutter.RemoteDesktop.Session", "Start", nullptr, nullptr, &why)) {
        return false;
    }
    m_inputStream = stream;
    return true;
}

bool GnomeSession::movePointer(double x, double y) {
    std::string why;
    return startRemoteInput(why) &&
           call(m_bus, "org.gnome.Mutter.RemoteDesktop", m_inputSession,
                "org.gnome.Mutter.RemoteDesktop.Session", "NotifyPointerMotionAbsolute",
                g_variant_new("(sdd)", m_inputStream.c_str(), x, y), nullptr, &why);
}

bool GnomeSession::type(const std::string& text) {
    std::string why;
    if (!startRemoteInput(why)) {
        return false;
    }
    for (char c : text) {
        uint32_t keysym = keysymOf(c);
        for (gboolean pressed : {gboolean(TRUE), gboolean(FALSE)}) {
            if (keysym == 0 ||
                !call(m_bus, "org.gnome.Mutter.RemoteDesktop", m_inputSession,
                      "org.gnome.Mutter.RemoteDesktop.Session", "NotifyKeyboardKeysym",
                      g_variant_new("(ub)", keysym, pressed), nullptr, &why)) {
                return false;
            }
        }
    }
    return true;
}

bool GnomeSession::waitForWindow(const std::string& title, double seconds) {
    return runAccessibilityJob("window", title, seconds) == 0 && closeOverview(seconds);
}

bool GnomeSession::answerScreenShare(const std::string& itemTitle, double seconds) {
    return runAccessibilityJob("screen-share", itemTitle, seconds) == 0;
}

bool GnomeSession::answerRemoteDesktop(double seconds) {
    return runAccessibilityJob("remote-desktop", "", seconds) == 0;
}

int GnomeSession::runAccessibilityJob(const std::string& job, const std::string& argument,
                                      double seconds) {
    pid_t pid = launch({.argv = {"/proc/self/exe"},
                        .environment = {{"QUILLO_GNOME_HELPER_JOB", job},
                                        {"QUILLO_GNOME_HELPER_ARGUMENT", argument},
                                        {"QUILLO_GNOME_HELPER_SECONDS", std::to_string(seconds)}},
                        .log = m_logs / "accessibility.log"});
    if (pid <= 0) {
        return -1;
    }
    if (!waitUntil(seconds + 10, [pid] { return hasEnded(pid); })) {
        endGroup(pid, 1);
        return -1;
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace quillo::testing
