#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/types.h>
#include <thread>
#include <utility>
#include <vector>

// Process plumbing for the private test desktops (X, sway, GNOME): starting their servers and
// clients with an environment, a user and a log of their own, and ending them again by pid.
namespace quillo::testing::desktop {

// A variable set (or, with no value, removed) on top of this process's environment.
using Variable = std::pair<std::string, std::optional<std::string>>;

struct Launch {
    std::vector<std::string> argv{};
    std::vector<Variable> environment{};  // applied over this process's environment
    // Runs the program as this user and group; empty keeps ours. Needs root.
    std::optional<std::pair<uid_t, gid_t>> user{};
    std::filesystem::path log{};  // standard output and error; empty: /dev/null
    int reportFd = -1;            // a pipe the program finds as fd 3
};

constexpr int kReportFd = 3;

// Starts the program in a process group of its own. It gets SIGTERM when the thread that
// started it ends, so start sessions and programs from the test's main thread.
pid_t launch(const Launch& launch);

// Starts the program with a pipe on fd 3 and returns it and the first line it writes there
// within `seconds` (empty when none came).
std::pair<pid_t, std::string> launchAndRead(Launch launch, double seconds);

// Ends the process group led by `pid`: SIGTERM, SIGKILL after `grace` seconds, and reaps it.
void endGroup(pid_t pid, double grace);

// SIGKILLs every process whose environment has `name=value`: what the session's programs
// started in groups of their own (services the bus activated).
void killMarked(const std::string& name, const std::string& value);

// Whether `program` is an executable path or found on PATH.
bool onPath(const std::string& program);

// `text` in single quotes for sh.
std::string shellQuote(const std::string& text);

// The last non-empty line of a text file (a log), or empty.
std::string lastLine(const std::filesystem::path& file);

// Whether `pid`, our child, has ended (it stays unreaped, for endGroup).
bool hasEnded(pid_t pid);

// Writes `text` to `file`, making its folder.
void writeFile(const std::filesystem::path& file, const std::string& text);

// What every private test desktop keeps: its folder, logs and marker, the variables it set in
// this process's environment, its servers (ended last, newest first) and the clients started in
// it (ended first). The destructor ends them, puts the environment back and removes the folder.
class Desktop {
public:
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    // What a child started by other means needs; a variable without value must be removed.
    const std::vector<Variable>& environment() const { return m_environment; }
    // Ends a client started by spawn (SIGTERM, then SIGKILL after a second).
    void stop(pid_t pid);

protected:
    // `markerName` is the variable whose value (m_marker) marks every server's environment, so
    // services the bus started in groups of their own are found at the end.
    explicit Desktop(std::string markerName) : m_markerName(std::move(markerName)) {}
    virtual ~Desktop();

    // Sets (or, without value, removes) a variable here and for the desktop's clients.
    void setVariable(const std::string& name, const std::optional<std::string>& value);
    // Starts a client, logging to `log`; ended with the desktop.
    pid_t startClient(Launch launch);
    // Starts a server, logging to logs/NAME.log.
    pid_t startServer(const std::string& name, Launch launch);
    // A server started by other means (when `pid` is one).
    void addServer(pid_t pid);
    // Ends every client now.
    void endClients();

    std::filesystem::path m_folder;  // everything below; removed at the end
    std::filesystem::path m_logs;
    std::string m_markerName;
    std::string m_marker;

private:
    std::vector<Variable> m_environment;
    std::vector<Variable> m_savedEnvironment;
    std::vector<pid_t> m_servers;
    std::vector<pid_t> m_programs;
};

// Polls `done` every 50 ms for up to `seconds`.
template <class Condition>
bool waitUntil(double seconds, Condition done) {
    using Clock = std::chrono::steady_clock;
    auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
    while (!done()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

}  // namespace quillo::testing::desktop
