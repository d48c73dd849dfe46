#include "x_session.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "movies.h"

namespace quillo::testing {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int kPassedFd = 3;  // where a child finds the pipe it reports on
constexpr const char* kMarker = "QUILLO_XSESSION";
constexpr const char* kBusLauncher = "/usr/libexec/at-spi-bus-launcher";

bool onPath(const std::string& program) {
    if (program.find('/') != std::string::npos) {
        return ::access(program.c_str(), X_OK) == 0;
    }
    const char* path = std::getenv("PATH");
    std::string dirs = path != nullptr ? path : "/usr/bin:/bin";
    size_t start = 0;
    while (start <= dirs.size()) {
        size_t end = dirs.find(':', start);
        std::string dir = dirs.substr(start, end == std::string::npos ? end : end - start);
        if (!dir.empty() && ::access((dir + "/" + program).c_str(), X_OK) == 0) {
            return true;
        }
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    return false;
}

// Starts `argv` in a process group of its own, output silenced, with `passFd` (if any) as fd 3.
// The child also gets SIGTERM when the thread that started it ends, so a crashed test leaves
// no server behind; start sessions and programs from the test's main thread.
pid_t launch(const std::vector<std::string>& argv, int passFd = -1) {
    std::vector<char*> args;
    for (const auto& arg : argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    pid_t parent = ::getpid();
    pid_t pid = ::fork();
    if (pid != 0) {
        return pid;
    }
    // Only async-signal-safe calls from here: the test may have other threads.
    ::setpgid(0, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) {
        ::_exit(127);
    }
    int quiet = ::open("/dev/null", O_RDWR);
    ::dup2(quiet, STDIN_FILENO);
    ::dup2(quiet, STDOUT_FILENO);
    ::dup2(quiet, STDERR_FILENO);
    if (passFd == kPassedFd) {
        ::fcntl(passFd, F_SETFD, 0);  // dup2 onto itself would keep close-on-exec
    } else if (passFd >= 0) {
        ::dup2(passFd, kPassedFd);
    }
    ::execvp(args[0], args.data());
    ::_exit(127);
}

// A line a child writes on a pipe, within `seconds`; empty when none came.
std::string readLine(int fd, double seconds) {
    std::string line;
    auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
    while (Clock::now() < deadline) {
        pollfd wait{fd, POLLIN, 0};
        if (::poll(&wait, 1, 50) <= 0) {
            continue;
        }
        char c = 0;
        ssize_t got = ::read(fd, &c, 1);
        if (got <= 0) {
            break;
        }
        if (c == '\n') {
            return line;
        }
        line += c;
    }
    return {};
}

// Runs `argv` with a pipe on fd 3 and returns the child and the first line it writes there.
std::pair<pid_t, std::string> launchAndRead(const std::vector<std::string>& argv, double seconds) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return {-1, {}};
    }
    pid_t pid = launch(argv, fds[1]);
    ::close(fds[1]);
    std::string line = readLine(fds[0], seconds);
    ::close(fds[0]);
    return {pid, line};
}

// Polls `done` every 50 ms for up to `seconds`.
template <class Condition>
bool waitUntil(double seconds, Condition done) {
    auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

// Ends a process group led by `pid`: SIGTERM, SIGKILL after `grace` seconds, and reaps it. The
// leader stays unreaped until its group has had the SIGKILL, so the group id can't be reused.
void endGroup(pid_t pid, double grace) {
    if (pid <= 0) {
        return;
    }
    ::kill(-pid, SIGTERM);
    waitUntil(grace, [pid] {
        siginfo_t info{};
        return ::waitid(P_PID, pid, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid == pid;
    });
    ::kill(-pid, SIGKILL);
    ::kill(pid, SIGKILL);
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
}

// Kills every process that carries this session's marker in its environment: what the
// session's programs started in groups or sessions of their own (bus daemons, activated
// services).
void killMarked(const std::string& marker) {
    std::string wanted = std::string(kMarker) + "=" + marker;
    for (int round = 0; round < 3; ++round) {
        bool found = false;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator("/proc", error)) {
            std::string name = entry.path().filename();
            if (name.find_first_not_of("0123456789") != std::string::npos) {
                continue;
            }
            pid_t pid = std::stoi(name);
            if (pid == ::getpid()) {
                continue;
            }
            std::ifstream file(entry.path() / "environ", std::ios::binary);
            std::string environ((std::istreambuf_iterator<char>(file)),
                                std::istreambuf_iterator<char>());
            size_t at = environ.find(wanted);
            if (at != std::string::npos && (at == 0 || environ[at - 1] == '\0') &&
                (at + wanted.size() == environ.size() || environ[at + wanted.size()] == '\0')) {
                ::kill(pid, SIGKILL);
                found = true;
            }
        }
        if (!found) {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

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
        launchAndRead({"Xvfb", "-displayfd", std::to_string(kPassedFd), "-screen", "0", screen,
                       "-nolisten", "tcp", "-noreset", "-br"},
                      10);
    if (server > 0) {
        session->m_servers.push_back(server);
    }
    if (number.empty()) {
        why = "Xvfb did not start";
        return nullptr;
    }
    session->m_display = ":" + number;
    auto setVariable = [&](const std::string& name, const std::optional<std::string>& value) {
        const char* old = std::getenv(name.c_str());
        session->m_savedEnvironment.emplace_back(
            name, old != nullptr ? std::optional<std::string>(old) : std::nullopt);
        if (value) {
            ::setenv(name.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name.c_str());
        }
    };
    setVariable("DISPLAY", session->m_display);
    setVariable(kMarker, std::to_string(::getpid()) + session->m_display);
    setVariable("XAUTHORITY", std::nullopt);
    setVariable("WAYLAND_DISPLAY", std::nullopt);
    setVariable("GDK_BACKEND", "x11");

    if (options.accessibility) {
        if (!onPath("dbus-daemon") || !onPath(kBusLauncher)) {
            why = "dbus-daemon or at-spi-bus-launcher is not installed";
            return nullptr;
        }
        auto [bus, address] = launchAndRead({"dbus-daemon", "--session", "--nofork",
                                             "--print-address=" + std::to_string(kPassedFd)},
                                            10);
        if (bus > 0) {
            session->m_servers.push_back(bus);
        }
        if (address.empty()) {
            why = "the D-Bus session bus did not start";
            return nullptr;
        }
        setVariable("DBUS_SESSION_BUS_ADDRESS", address);
        setVariable("AT_SPI_BUS_ADDRESS", std::nullopt);
        setVariable("NO_AT_BRIDGE", std::nullopt);
        session->m_servers.push_back(launch({kBusLauncher, "--launch-immediately"}));
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
        session->m_servers.push_back(launch({"openbox", "--sm-disable"}));
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

XSession::~XSession() {
    for (pid_t pid : m_programs) {
        endGroup(pid, 1);
    }
    // Window manager and buses before the server, so none of them sees it vanish.
    for (auto it = m_servers.rbegin(); it != m_servers.rend(); ++it) {
        if (std::next(it) == m_servers.rend() && !m_display.empty()) {
            killMarked(std::to_string(::getpid()) + m_display);
        }
        endGroup(*it, 1);
    }
    for (auto it = m_savedEnvironment.rbegin(); it != m_savedEnvironment.rend(); ++it) {
        if (it->second) {
            ::setenv(it->first.c_str(), it->second->c_str(), 1);
        } else {
            ::unsetenv(it->first.c_str());
        }
    }
}

pid_t XSession::spawn(const std::vector<std::string>& argv) {
    pid_t pid = launch(argv);
    if (pid > 0) {
        m_programs.push_back(pid);
    }
    return pid;
}

void XSession::stop(pid_t pid) {
    auto it = std::find(m_programs.begin(), m_programs.end(), pid);
    if (it != m_programs.end()) {
        m_programs.erase(it);
        endGroup(pid, 1);
    }
}

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
