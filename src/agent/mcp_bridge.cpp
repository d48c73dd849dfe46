#include "mcp_bridge.h"

#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <mutex>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

#include "base/files.h"
#include "base/json.h"
#include "control_server.h"
#include "http_request.h"

extern char** environ;

namespace quillo::agent {

namespace fs = std::filesystem;

namespace {

constexpr auto kLaunchWait = std::chrono::seconds(20);
constexpr auto kPoll = std::chrono::milliseconds(250);
// The longest tool call (an export) must fit.
constexpr int kTimeoutSeconds = 600;

enum class Outcome { Response, Accepted, Unreachable };

// One POST over a fresh loopback connection; the server answers and closes.
Outcome post(const MCPBridge::Endpoint& endpoint, const std::string& body, std::string& response) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return Outcome::Unreachable;
    }
    timeval timeout{kTimeoutSeconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(endpoint.port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        close(fd);
        return Outcome::Unreachable;
    }
    std::string request = "POST /mcp HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(endpoint.port) +
                          "\r\nContent-Type: application/json\r\nAccept: application/json, "
                          "text/event-stream\r\nAuthorization: Bearer " +
                          endpoint.token + "\r\nContent-Length: " + std::to_string(body.size()) +
                          "\r\n\r\n" + body;
    for (size_t sent = 0; sent < request.size();) {
        ssize_t count = send(fd, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            close(fd);
            return Outcome::Unreachable;
        }
        sent += static_cast<size_t>(count);
    }
    std::string answer;
    char buffer[65536];
    ssize_t count = 0;
    while ((count = recv(fd, buffer, sizeof buffer, 0)) > 0) {
        answer.append(buffer, static_cast<size_t>(count));
    }
    close(fd);
    // "HTTP/1.1 200 OK": the status is the second word of the first line.
    size_t space = answer.find(' ');
    size_t head = answer.find("\r\n\r\n");
    if (space == std::string::npos || head == std::string::npos) {
        return Outcome::Unreachable;
    }
    int status = std::atoi(answer.c_str() + space + 1);
    if (status == 202) {
        return Outcome::Accepted;
    }
    response = answer.substr(head + 4);
    return response.empty() ? Outcome::Unreachable : Outcome::Response;
}

// Starts this executable without windows, in a session of its own, so it outlives the bridge.
void launchApplication() {
    char self[PATH_MAX] = {};
    ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) {
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    char headless[] = "--headless";
    char* argv[] = {self, headless, nullptr};
    pid_t pid = 0;
    posix_spawn(&pid, self, &actions, &attributes, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
}

}  // namespace

MCPBridge::MCPBridge(fs::path infoFile) : m_infoFile(std::move(infoFile)) {}

std::optional<MCPBridge::Endpoint> MCPBridge::endpoint(bool launching) {
    auto deadline = std::chrono::steady_clock::now();
    if (launching) {
        launchApplication();
        deadline += kLaunchWait;
    }
    for (;;) {
        if (auto text = readFile(m_infoFile)) {
            if (auto info = parseJson(*text); info && info->is_object()) {
                auto port = info->find("port");
                auto token = info->find("token");
                auto pid = info->find("pid");
                bool usable = port != info->end() && port->is_number_integer() &&
                              token != info->end() && token->is_string();
                if (usable && pid != info->end()) {
                    // A file left by a process that died is stale.
                    usable = pid->is_number_integer() && pid->get<int64_t>() > 0 &&
                             pid->get<int64_t>() <= INT32_MAX &&
                             kill(static_cast<pid_t>(pid->get<int64_t>()), 0) == 0;
                }
                if (usable && port->get<int64_t>() > 0 && port->get<int64_t>() < 65536) {
                    return Endpoint{static_cast<uint16_t>(port->get<int64_t>()),
                                    token->get<std::string>()};
                }
            }
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(kPoll);
    }
}

std::optional<std::string> MCPBridge::relay(const std::string& line) {
    std::optional<Json> id;
    if (auto message = parseJson(line); message && message->is_object()) {
        if (auto it = message->find("id"); it != message->end()) {
            id = *it;
        }
    }
    for (bool launching : {false, true}) {
        auto found = endpoint(launching);
        if (!found) {
            continue;
        }
        std::string response;
        switch (post(*found, line, response)) {
            case Outcome::Response:
                return response;
            case Outcome::Accepted:
                return std::nullopt;
            case Outcome::Unreachable:
                break;
        }
    }
    if (!id) {
        return std::nullopt;
    }
    return toCompactJson(ControlServer::error(*id, -32000, kUnreachable));
}

int MCPBridge::run() {
    // Shared with the relay threads, which may still be leaving when the last answer is out.
    struct State {
        std::ofstream log;
        std::mutex output;  // one whole line at a time on stdout and in the log
        std::mutex count;
        std::condition_variable idle;
        int inFlight = 0;
    };
    auto state = std::make_shared<State>();
    if (const char* path = std::getenv("QUILLO_MCP_LOG")) {
        state->log.open(path, std::ios::app);
    }
    std::string line;
    while (std::getline(std::cin, line)) {
        size_t first = line.find_first_not_of(" \t\r\n");
        if (first == std::string::npos) {
            continue;
        }
        line = line.substr(first, line.find_last_not_of(" \t\r\n") - first + 1);
        {
            std::lock_guard guard(state->output);
            if (state->log.is_open()) {
                state->log << "> " << line << "\n" << std::flush;
            }
        }
        {
            std::lock_guard guard(state->count);
            ++state->inFlight;
        }
        std::thread([this, line, state] {
            std::optional<std::string> answer = relay(line);
            if (answer) {
                // One line per answer: the server's JSON never holds a raw newline.
                std::lock_guard guard(state->output);
                std::cout << *answer << "\n" << std::flush;
                if (state->log.is_open()) {
                    state->log << "< " << *answer << "\n" << std::flush;
                }
            }
            std::lock_guard guard(state->count);
            --state->inFlight;
            state->idle.notify_all();
        }).detach();
    }
    std::unique_lock guard(state->count);
    state->idle.wait(guard, [&] { return state->inFlight == 0; });
    return 0;
}

}  // namespace quillo::agent
