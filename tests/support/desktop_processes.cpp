#include "desktop_processes.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <iterator>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace quillo::testing::desktop {

namespace {

namespace fs = std::filesystem;

// This process's environment with `changes` applied, as NAME=value strings.
std::vector<std::string> environmentWith(const std::vector<Variable>& changes) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string line = *entry;
        std::string name = line.substr(0, line.find('='));
        bool replaced = false;
        for (const auto& [changed, value] : changes) {
            replaced = replaced || changed == name;
        }
        if (!replaced) {
            result.push_back(line);
        }
    }
    for (const auto& [name, value] : changes) {
        if (value) {
            result.push_back(name + "=" + *value);
        }
    }
    return result;
}

std::string readLine(int fd, double seconds) {
    std::string line;
    bool complete = false;
    waitUntil(seconds, [&] {
        pollfd wait{fd, POLLIN, 0};
        while (::poll(&wait, 1, 0) > 0) {
            char c = 0;
            if (::read(fd, &c, 1) <= 0) {
                return true;  // closed: the program ended or will say nothing
            }
            if (c == '\n') {
                complete = true;
                return true;
            }
            line += c;
        }
        return false;
    });
    return complete ? line : std::string();
}

}  // namespace

pid_t launch(const Launch& launch) {
    // Everything the child needs is prepared before fork: the test may have other threads, so
    // the child makes only async-signal-safe calls.
    std::vector<char*> args;
    for (const auto& arg : launch.argv) {
        args.push_back(const_cast<char*>(arg.c_str()));
    }
    args.push_back(nullptr);
    std::vector<std::string> environment = environmentWith(launch.environment);
    std::vector<char*> envp;
    for (auto& line : environment) {
        envp.push_back(line.data());
    }
    envp.push_back(nullptr);
    std::string log = launch.log.empty() ? "/dev/null" : launch.log.string();
    pid_t parent = ::getpid();
    pid_t pid = ::fork();
    if (pid != 0) {
        return pid;
    }
    ::setpgid(0, 0);
    int quiet = ::open("/dev/null", O_RDONLY);
    int output = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    ::dup2(quiet, STDIN_FILENO);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(output, STDERR_FILENO);
    if (launch.reportFd == kReportFd) {
        ::fcntl(kReportFd, F_SETFD, 0);  // dup2 onto itself would keep close-on-exec
    } else if (launch.reportFd >= 0) {
        ::dup2(launch.reportFd, kReportFd);
    }
    if (launch.user) {
        auto [uid, gid] = *launch.user;
        if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0) {
            ::_exit(126);
        }
    }
    // After setuid: a change of credentials clears the parent-death signal.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (::getppid() != parent) {
        ::_exit(127);
    }
    // execvpe searches the PATH of this process's environment, not of `envp`.
    ::execvpe(args[0], args.data(), envp.data());
    ::_exit(127);
}

std::pair<pid_t, std::string> launchAndRead(Launch launch, double seconds) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return {-1, {}};
    }
    launch.reportFd = fds[1];
    pid_t pid = desktop::launch(launch);
    ::close(fds[1]);
    std::string line = readLine(fds[0], seconds);
    ::close(fds[0]);
    return {pid, line};
}

bool hasEnded(pid_t pid) {
    siginfo_t info{};
    return ::waitid(P_PID, pid, &info, WEXITED | WNOHANG | WNOWAIT) != 0 || info.si_pid == pid;
}

void endGroup(pid_t pid, double grace) {
    if (pid <= 0) {
        return;
    }
    ::kill(-pid, SIGTERM);
    waitUntil(grace, [pid] { return hasEnded(pid); });
    // The leader stays unreaped until its group has had the SIGKILL, so the group id can't
    // have been reused by then.
    ::kill(-pid, SIGKILL);
    ::kill(pid, SIGKILL);
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
}

void killMarked(const std::string& name, const std::string& value) {
    std::string wanted = name + "=" + value;
    for (int round = 0; round < 3; ++round) {
        bool found = false;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator("/proc", error)) {
            std::string id = entry.path().filename();
            if (id.find_first_not_of("0123456789") != std::string::npos) {
                continue;
            }
            pid_t pid = std::stoi(id);
            if (pid == ::getpid()) {
                continue;
            }
            std::ifstream file(entry.path() / "environ", std::ios::binary);
            std::string environment((std::istreambuf_iterator<char>(file)),
                                    std::istreambuf_iterator<char>());
            // Matched as a whole NUL-separated entry.
            const std::string nul(1, '\0');
            if ((nul + environment + nul).find(nul + wanted + nul) != std::string::npos) {
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

std::string shellQuote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

std::string lastLine(const fs::path& file) {
    std::ifstream in(file);
    std::string last;
    for (std::string line; std::getline(in, line);) {
        if (line.find_first_not_of(" \t\r") != std::string::npos) {
            last = line;
        }
    }
    return last;
}

void writeFile(const fs::path& file, const std::string& text) {
    std::error_code error;
    fs::create_directories(file.parent_path(), error);
    std::ofstream(file) << text;
}

Desktop::~Desktop() {
    endClients();
    for (auto it = m_servers.rbegin(); it != m_servers.rend(); ++it) {
        if (std::next(it) == m_servers.rend()) {
            killMarked(m_markerName, m_marker);
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
    if (!m_folder.empty()) {
        std::error_code error;
        fs::remove_all(m_folder, error);
    }
}

void Desktop::endClients() {
    for (pid_t pid : m_programs) {
        endGroup(pid, 1);
    }
    m_programs.clear();
}

void Desktop::setVariable(const std::string& name, const std::optional<std::string>& value) {
    auto saved = [&](const Variable& entry) { return entry.first == name; };
    if (std::find_if(m_savedEnvironment.begin(), m_savedEnvironment.end(), saved) ==
        m_savedEnvironment.end()) {
        const char* old = std::getenv(name.c_str());
        m_savedEnvironment.emplace_back(
            name, old != nullptr ? std::optional<std::string>(old) : std::nullopt);
    }
    std::erase_if(m_environment, saved);
    m_environment.emplace_back(name, value);
    if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
    } else {
        ::unsetenv(name.c_str());
    }
}

pid_t Desktop::startClient(Launch launch) {
    pid_t pid = desktop::launch(launch);
    if (pid > 0) {
        m_programs.push_back(pid);
    }
    return pid;
}

pid_t Desktop::startServer(const std::string& name, Launch launch) {
    launch.log = m_logs / (name + ".log");
    pid_t pid = desktop::launch(launch);
    addServer(pid);
    return pid;
}

void Desktop::addServer(pid_t pid) {
    if (pid > 0) {
        m_servers.push_back(pid);
    }
}

void Desktop::stop(pid_t pid) {
    auto it = std::find(m_programs.begin(), m_programs.end(), pid);
    if (it != m_programs.end()) {
        m_programs.erase(it);
        endGroup(pid, 1);
    }
}

}  // namespace quillo::testing::desktop
