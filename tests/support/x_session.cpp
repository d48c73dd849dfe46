#include "x_session.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

#include "movies.h"

namespace quillo::testing {

namespace {

namespace fs = std::filesystem;
using namespace desktop;

constexpr const char* kMarker = "QUILLO_XSESSION";
constexpr const char* kBusLauncher = "/usr/libexec/at-spi-bus-launcher";

}  // namespace

std::unique_ptr<XSession> XSession::start(const Options& options, std::string& why) {
    if (!onPath("Xvfb")) {
        why = "Xvfb is not installed";
        return nullptr;
    }
    std::unique_ptr<XSession> session(new XSession());
    std::string screen =
        std::to_string(options.width) + "x" + std::to_string(options.height) + "x24";
    auto [server, number] =
        launchAndRead({.argv = {"Xvfb", "-displayfd", std::to_string(kReportFd), "-screen", "0",
                                screen, "-nolisten", "tcp", "-noreset", "-br"}},
                      10);
    session->addServer(server);
    if (number.empty()) {
        why = "Xvfb did not start";
        return nullptr;
    }
    session->m_display = ":" + number;
    auto setVariable = [&](const std::string& name, const std::optional<std::string>& value) {
        session->setVariable(name, value);
    };
    session->m_marker = std::to_string(::getpid()) + session->m_display;
    setVariable("DISPLAY", session->m_display);
    setVariable(kMarker, session->m_marker);
    setVariable("XAUTHORITY", std::nullopt);
    setVariable("WAYLAND_DISPLAY", std::nullopt);
    setVariable("GDK_BACKEND", "x11");

    if (options.accessibility) {
        if (!onPath("dbus-daemon") || !onPath(kBusLauncher)) {
            why = "dbus-daemon or at-spi-bus-launcher is not installed";
            return nullptr;
        }
        auto [bus, address] =
            launchAndRead({.argv = {"dbus-daemon", "--session", "--nofork",
                                    "--print-address=" + std::to_string(kReportFd)}},
                          10);
        session->addServer(bus);
        if (address.empty()) {
            why = "the D-Bus session bus did not start";
            return nullptr;
        }
        setVariable("DBUS_SESSION_BUS_ADDRESS", address);
        setVariable("AT_SPI_BUS_ADDRESS", std::nullopt);
        setVariable("NO_AT_BRIDGE", std::nullopt);
        session->addServer(launch({.argv = {kBusLauncher, "--launch-immediately"}}));
        // The launcher publishes the accessibility bus on the root window once it runs.
        if (!waitUntil(10, [] {
                return commandOutput("xprop -root AT_SPI_BUS 2>/dev/null").find("unix:") !=
                       std::string::npos;
            })) {
            why = "the accessibility bus did not start";
            return nullptr;
        }
    } else {
        // Nothing may reach the desktop's own buses, nor start a bus of its own.
        setVariable("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/quillo-test-bus");
        setVariable("NO_AT_BRIDGE", "1");
    }

    if (options.windowManager) {
        if (!onPath("openbox")) {
            why = "openbox is not installed";
            return nullptr;
        }
        session->addServer(launch({.argv = {"openbox", "--sm-disable"}}));
        if (!waitUntil(10, [] {
                return commandOutput("xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null")
                           .find("window id") != std::string::npos;
            })) {
            why = "openbox did not start";
            return nullptr;
        }
    }
    return session;
}

XSession::XSession() : Desktop(kMarker) {}

pid_t XSession::spawn(const std::vector<std::string>& argv) { return startClient({.argv = argv}); }

std::optional<uint32_t> XSession::waitForWindow(pid_t pid, const std::string& title,
                                                double seconds) {
    std::string criteria;
    if (pid != 0) {
        criteria = "--pid " + std::to_string(pid);
    } else {
        // xdotool takes a regular expression: the title is matched literally.
        std::string pattern;
        for (char c : title) {
            if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) {
                pattern += '\\';
            }
            pattern += c == '\'' ? std::string("'\\''") : std::string(1, c);
        }
        criteria = "--name '" + pattern + "'";
    }
    std::string output =
        commandOutput("timeout " + std::to_string(seconds) +
                      " xdotool search --sync --onlyvisible " + criteria + " 2>/dev/null");
    char* end = nullptr;
    unsigned long id = std::strtoul(output.c_str(), &end, 10);
    if (end == output.c_str() || id == 0) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(id);
}

std::string XSession::xdotool(const std::string& arguments) {
    return commandOutput("xdotool " + arguments + " 2>/dev/null");
}

Rect XSession::clientArea(uint32_t id) {
    std::istringstream text(commandOutput("xwininfo -id " + std::to_string(id)));
    Rect rect;
    double border = 0;
    for (std::string line; std::getline(text, line);) {
        auto number = [&] { return std::stod(line.substr(line.find(':') + 1)); };
        if (line.find("Absolute upper-left X:") != std::string::npos) {
            rect.x = number();
        } else if (line.find("Absolute upper-left Y:") != std::string::npos) {
            rect.y = number();
        } else if (line.find("  Width:") != std::string::npos) {
            rect.width = number();
        } else if (line.find("  Height:") != std::string::npos) {
            rect.height = number();
        } else if (line.find("Border width:") != std::string::npos) {
            border = number();
        }
    }
    return {rect.x + border, rect.y + border, rect.width, rect.height};
}

}  // namespace quillo::testing
