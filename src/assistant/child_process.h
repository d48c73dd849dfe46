#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <thread>
#include <vector>

#include "base/result.h"

namespace quillo::assistant {

// What to run: the program (a path), its arguments (without the program's own name), the whole
// environment it gets (none: this process's), and the folder it starts in (none: this one's).
struct ProcessSpec {
    std::filesystem::path executable;
    std::vector<std::string> arguments;
    std::optional<std::map<std::string, std::string>> environment;
    std::filesystem::path workingDirectory;
};

// The environment of this process as a map.
std::map<std::string, std::string> currentEnvironment();

// A child program with pipes on its standard input, output and error, started with posix_spawn
// in a process group of its own, so that ending it also ends what it started (agent CLIs run
// node and shells below them). Standard output arrives line by line on a reader thread; the
// exit, once both output pipes are closed and the child is reaped, comes last on that thread.
class ChildProcess {
public:
    using LineHandler = std::function<void(std::string line)>;
    // The exit status as a shell shows it (the exit code, or 128 + the signal) and the text the
    // child wrote to standard error (its last 64 KiB).
    using ExitHandler = std::function<void(int status, std::string errors)>;

    // Starts the program; an error when it cannot be started (not there, not executable).
    static Result<std::unique_ptr<ChildProcess>> start(const ProcessSpec& spec, LineHandler onLine,
                                                       ExitHandler onExit);
    // Ends the child (see terminate) and waits for the reader thread.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Writes `line` and a newline to the child's standard input. Thread-safe. An error once the
    // child has closed its input or exited.
    Result<void> writeLine(std::string_view line);
    // Closes the child's standard input (an end of file for it).
    void closeInput();
    // SIGTERM to the child's process group, then SIGKILL when it is still there after `grace`
    // seconds. Returns at once; the exit handler reports the end.
    void terminate(double grace = 2.0);
    pid_t pid() const { return m_pid; }
    bool exited() const { return m_exited; }

private:
    ChildProcess() = default;
    void readOutput(int outFd, int errFd);

    pid_t m_pid = -1;
    std::mutex m_inputMutex;
    int m_input = -1;  // guarded by m_inputMutex
    LineHandler m_onLine;
    ExitHandler m_onExit;
    std::atomic<bool> m_exited{false};
    std::atomic<bool> m_terminating{false};
    std::thread m_reader;
    std::thread m_killer;
};

// Runs a program to its end with its standard input closed and returns its standard output;
// kills it (and its group) after `timeout` seconds, giving an error then. For short probes.
Result<std::string> runForOutput(const ProcessSpec& spec, double timeout);

}  // namespace quillo::assistant
