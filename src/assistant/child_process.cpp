#include "child_process.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/clock.h"

extern char** environ;

namespace quillo::assistant {

namespace {

constexpr size_t kErrorTail = 64 * 1024;

AppError cannotStart(const ProcessSpec& spec, int code) {
    return AppError("Couldn't start " + spec.executable.filename().string() + ".",
                    spec.executable.string() + ": " + std::strerror(code));
}

int shellStatus(int status) {
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    if (WIFSIGNALED(status)) {
        return 128 + WTERMSIG(status);
    }
    return -1;
}

// posix_spawn's argument and environment arrays, owning their text.
struct SpawnArrays {
    std::vector<std::string> texts;
    std::vector<char*> argv;
    std::vector<std::string> environmentTexts;
    std::vector<char*> envp;

    explicit SpawnArrays(const ProcessSpec& spec) {
        texts.push_back(spec.executable.string());
        texts.insert(texts.end(), spec.arguments.begin(), spec.arguments.end());
        for (auto& text : texts) {
            argv.push_back(text.data());
        }
        argv.push_back(nullptr);
        if (spec.environment) {
            for (const auto& [name, value] : *spec.environment) {
                environmentTexts.push_back(name + "=" + value);
            }
            for (auto& text : environmentTexts) {
                envp.push_back(text.data());
            }
            envp.push_back(nullptr);
        }
    }
    char* const* environment() { return envp.empty() ? environ : envp.data(); }
};

// Starts `spec` with the given descriptors as its standard input, output and error, in a new
// process group, with default signal handling. Returns the pid or an errno value.
Result<pid_t> spawn(const ProcessSpec& spec, int in, int out, int err) {
    static std::once_flag ignorePipes;
    // A child that went away must not take this process with it when a write reaches it.
    std::call_once(ignorePipes, [] { signal(SIGPIPE, SIG_IGN); });
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, 0);
    posix_spawn_file_actions_adddup2(&actions, out, 1);
    posix_spawn_file_actions_adddup2(&actions, err, 2);
    if (!spec.workingDirectory.empty()) {
        posix_spawn_file_actions_addchdir_np(&actions, spec.workingDirectory.c_str());
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(
        &attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    SpawnArrays arrays(spec);
    pid_t pid = -1;
    int code = posix_spawn(&pid, arrays.argv[0], &actions, &attributes, arrays.argv.data(),
                           arrays.environment());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (code != 0) {
        return cannotStart(spec, code);
    }
    return pid;
}

struct Pipe {
    int read = -1, write = -1;
    bool open() {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0) {
            return false;
        }
        read = fds[0];
        write = fds[1];
        return true;
    }
    void close() {
        for (int* fd : {&read, &write}) {
            if (*fd >= 0) {
                ::close(*fd);
                *fd = -1;
            }
        }
    }
};

}  // namespace

std::map<std::string, std::string> currentEnvironment() {
    std::map<std::string, std::string> result;
    for (char** entry = environ; entry && *entry; ++entry) {
        std::string_view text(*entry);
        if (size_t equals = text.find('='); equals != std::string_view::npos) {
            result.emplace(text.substr(0, equals), text.substr(equals + 1));
        }
    }
    return result;
}

Result<std::unique_ptr<ChildProcess>> ChildProcess::start(const ProcessSpec& spec,
                                                          LineHandler onLine, ExitHandler onExit) {
    Pipe in, out, err;
    if (!in.open() || !out.open() || !err.open()) {
        const int code = errno;
        in.close(), out.close(), err.close();
        return cannotStart(spec, code);
    }
    auto pid = spawn(spec, in.read, out.write, err.write);
    ::close(in.read);
    ::close(out.write);
    ::close(err.write);
    if (!pid) {
        ::close(in.write);
        ::close(out.read);
        ::close(err.read);
        return pid.error();
    }
    std::unique_ptr<ChildProcess> child(new ChildProcess());
    child->m_pid = *pid;
    child->m_input = in.write;
    child->m_onLine = std::move(onLine);
    child->m_onExit = std::move(onExit);
    child->m_reader = std::thread(
        [raw = child.get(), outFd = out.read, errFd = err.read] { raw->readOutput(outFd, errFd); });
    return child;
}

ChildProcess::~ChildProcess() {
    if (!m_exited) {
        terminate(1.0);
    }
    if (m_reader.joinable()) {
        m_reader.join();
    }
    if (m_killer.joinable()) {
        m_killer.join();
    }
    closeInput();
}

void ChildProcess::readOutput(int outFd, int errFd) {
    std::string pending, errors;
    char chunk[16384];
    bool outOpen = true, errOpen = true;
    int status = 0;
    bool reaped = false;
    double reapedAt = 0;
    while (outOpen || errOpen) {
        // Once the child is gone, what it started gets a moment to let go of the pipes.
        if (reaped && monotonicSeconds() - reapedAt > 0.5) {
            break;
        }
        pollfd fds[2] = {{outOpen ? outFd : -1, POLLIN, 0}, {errOpen ? errFd : -1, POLLIN, 0}};
        if (poll(fds, 2, 200) < 0 && errno != EINTR) {
            break;
        }
        if (!reaped && waitpid(m_pid, &status, WNOHANG) == m_pid) {
            reaped = true;
            reapedAt = monotonicSeconds();
        }
        for (int i = 0; i < 2; ++i) {
            if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) {
                continue;
            }
            const ssize_t got = read(fds[i].fd, chunk, sizeof chunk);
            if (got <= 0) {
                (i == 0 ? outOpen : errOpen) = false;
                continue;
            }
            if (i == 1) {
                errors.append(chunk, static_cast<size_t>(got));
                if (errors.size() > kErrorTail) {
                    errors.erase(0, errors.size() - kErrorTail);
                }
                continue;
            }
            pending.append(chunk, static_cast<size_t>(got));
            size_t start = 0;
            for (size_t end; (end = pending.find('\n', start)) != std::string::npos;
                 start = end + 1) {
                if (m_onLine) {
                    m_onLine(pending.substr(start, end - start));
                }
            }
            pending.erase(0, start);
        }
    }
    if (!pending.empty() && m_onLine) {
        m_onLine(pending);
    }
    ::close(outFd);
    ::close(errFd);
    if (!reaped) {
        while (waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
    {
        std::lock_guard lock(m_inputMutex);
        if (m_input >= 0) {
            ::close(m_input);
            m_input = -1;
        }
    }
    m_exited = true;
    if (m_onExit) {
        m_onExit(shellStatus(status), std::move(errors));
    }
}

Result<void> ChildProcess::writeLine(std::string_view line) {
    std::string text(line);
    text += '\n';
    std::lock_guard lock(m_inputMutex);
    if (m_input < 0) {
        return AppError("The program has ended.", "its input is closed");
    }
    size_t done = 0;
    while (done < text.size()) {
        ssize_t wrote = ::write(m_input, text.data() + done, text.size() - done);
        if (wrote < 0) {
            if (errno == EINTR) {
                continue;
            }
            return AppError("The program has ended.", std::strerror(errno));
        }
        done += static_cast<size_t>(wrote);
    }
    return {};
}

void ChildProcess::closeInput() {
    std::lock_guard lock(m_inputMutex);
    if (m_input >= 0) {
        ::close(m_input);
        m_input = -1;
    }
}

void ChildProcess::terminate(double grace) {
    if (m_exited || m_terminating.exchange(true)) {
        return;
    }
    closeInput();
    kill(-m_pid, SIGTERM);
    m_killer = std::thread([this, grace] {
        const double until = monotonicSeconds() + grace;
        while (!m_exited && monotonicSeconds() < until) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        if (!m_exited) {
            kill(-m_pid, SIGKILL);
        }
    });
}

Result<std::string> runForOutput(const ProcessSpec& spec, double timeout) {
    Pipe out;
    int in = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (in < 0 || !out.open()) {
        const int code = errno;
        if (in >= 0) {
            ::close(in);
        }
        return cannotStart(spec, code);
    }
    auto pid = spawn(spec, in, out.write, in);
    ::close(in);
    ::close(out.write);
    out.write = -1;
    if (!pid) {
        out.close();
        return pid.error();
    }
    std::string output;
    char chunk[8192];
    const double until = monotonicSeconds() + timeout;
    bool timedOut = false;
    for (;;) {
        const double left = until - monotonicSeconds();
        if (left <= 0) {
            timedOut = true;
            break;
        }
        pollfd fd{out.read, POLLIN, 0};
        int ready = poll(&fd, 1, static_cast<int>(left * 1000) + 1);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            timedOut = ready == 0;
            break;
        }
        const ssize_t got = read(out.read, chunk, sizeof chunk);
        if (got <= 0) {
            break;
        }
        output.append(chunk, static_cast<size_t>(got));
    }
    out.close();
    if (timedOut) {
        kill(-*pid, SIGKILL);
    }
    int status = 0;
    while (waitpid(*pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (timedOut) {
        return AppError(spec.executable.filename().string() + " took too long.",
                        "no answer within " + std::to_string(timeout) + " s");
    }
    return output;
}

}  // namespace quillo::assistant
