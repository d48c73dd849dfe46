// The control server under load, side by side with a stateless Streamable HTTP server built on
// the MCP SDK's McpServer (node), both driven by the same raw HTTP load generator: 64
// concurrent keep-alive connections sending "ping" for 20 s, then one connection sending pings
// one after another for latency. Prints "name: figure" lines.

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "agent/control_server.h"
#include "agent/mcp_protocol.h"
#include "screen_movie.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace quillo;

namespace {

constexpr int kConnections = 64;
constexpr double kSeconds = 20;
constexpr int kSequential = 3000;

// One client connection that reconnects whenever the server closes it.
class Client {
public:
    Client(uint16_t port, std::string token) : m_port(port), m_token(std::move(token)) {}
    ~Client() { disconnect(); }

    // One ping; false on any failure.
    bool ping(int id) {
        std::string body =
            R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":"ping"})";
        std::string request =
            "POST /mcp HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n"
            "Accept: application/json, text/event-stream\r\nAuthorization: Bearer " +
            m_token + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
        for (int attempt = 0; attempt < 2; ++attempt) {
            if (m_fd < 0 && !connectNow()) {
                return false;
            }
            if (send(m_fd, request.data(), request.size(), MSG_NOSIGNAL) ==
                static_cast<ssize_t>(request.size())) {
                int status = 0;
                bool close = false;
                if (readResponse(status, close)) {
                    if (close) {
                        disconnect();
                    }
                    return status == 200;
                }
            }
            disconnect();  // a kept-alive connection the server had closed: once more
        }
        return false;
    }

private:
    bool connectNow() {
        m_fd = socket(AF_INET, SOCK_STREAM, 0);
        int one = 1;
        setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(m_port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
            disconnect();
            return false;
        }
        m_buffer.clear();
        return true;
    }
    void disconnect() {
        if (m_fd >= 0) {
            close(m_fd);
            m_fd = -1;
        }
    }
    bool readResponse(int& status, bool& closeAfter) {
        char chunk[8192];
        for (;;) {
            size_t head = m_buffer.find("\r\n\r\n");
            if (head != std::string::npos) {
                std::string lower = m_buffer.substr(0, head);
                std::transform(lower.begin(), lower.end(), lower.begin(), ::tolower);
                size_t at = lower.find("content-length:");
                size_t length = at == std::string::npos ? 0 : std::stoul(lower.substr(at + 15));
                if (m_buffer.size() >= head + 4 + length) {
                    status = std::atoi(m_buffer.c_str() + m_buffer.find(' ') + 1);
                    closeAfter = lower.find("connection: close") != std::string::npos;
                    m_buffer.erase(0, head + 4 + length);
                    return true;
                }
            }
            ssize_t count = recv(m_fd, chunk, sizeof chunk, 0);
            if (count <= 0) {
                return false;
            }
            m_buffer.append(chunk, static_cast<size_t>(count));
        }
    }

    uint16_t m_port;
    std::string m_token;
    int m_fd = -1;
    std::string m_buffer;
};

struct Load {
    double perSecond = 0;
    long failures = 0;
    double p99 = 0;  // ms, under load
};

Load drive(uint16_t port, const std::string& token) {
    std::atomic<long> done{0};
    std::atomic<long> failed{0};
    std::mutex mutex;
    std::vector<double> latencies;
    const auto end = Clock::now() + std::chrono::duration<double>(kSeconds);
    std::vector<std::thread> threads;
    for (int c = 0; c < kConnections; ++c) {
        threads.emplace_back([&, c] {
            Client client(port, token);
            std::vector<double> mine;
            for (int i = 0; Clock::now() < end; ++i) {
                auto start = Clock::now();
                if (client.ping(c * 1000000 + i)) {
                    ++done;
                    mine.push_back(
                        std::chrono::duration<double, std::milli>(Clock::now() - start).count());
                } else {
                    ++failed;
                }
            }
            std::lock_guard lock(mutex);
            latencies.insert(latencies.end(), mine.begin(), mine.end());
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::sort(latencies.begin(), latencies.end());
    Load load;
    load.perSecond = done / kSeconds;
    load.failures = failed;
    load.p99 = latencies.empty() ? 0 : latencies[latencies.size() * 99 / 100];
    return load;
}

double sequentialP99(uint16_t port, const std::string& token) {
    Client client(port, token);
    std::vector<double> latencies;
    for (int i = 0; i < kSequential; ++i) {
        auto start = Clock::now();
        client.ping(i);
        latencies.push_back(
            std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    std::sort(latencies.begin(), latencies.end());
    return latencies[latencies.size() * 99 / 100];
}

long residentKB(pid_t process) {
    FILE* status = std::fopen(("/proc/" + std::to_string(process) + "/status").c_str(), "r");
    char line[256];
    long kb = 0;
    while (status && std::fgets(line, sizeof line, status)) {
        if (std::sscanf(line, "VmRSS: %ld", &kb) == 1) {
            break;
        }
    }
    if (status) {
        std::fclose(status);
    }
    return kb;
}

}  // namespace

int main(int, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    // The SDK, pinned by the tests' lock file, installed beside this binary once.
    fs::path sdk = fs::absolute(fs::path(argv[0]).parent_path() / "mcp");
    fs::create_directories(sdk);
    for (const char* name : {"package.json", "package-lock.json"}) {
        fs::copy_file(fs::path(QUILLO_SDK_TEST_DIR) / name, sdk / name,
                      fs::copy_options::overwrite_existing);
    }
    fs::copy_file(fs::path(QUILLO_BENCH_DIR) / "mcp" / "sdk_server.mjs", sdk / "sdk_server.mjs",
                  fs::copy_options::overwrite_existing);
    if (!fs::exists(sdk / "node_modules") &&
        std::system(("cd '" + sdk.string() + "' && npm ci --no-audit --no-fund --loglevel=error")
                        .c_str()) != 0) {
        std::fprintf(stderr, "npm could not install the MCP SDK\n");
        return 1;
    }

    // Quillo's server, in a child process of its own, so that its memory is measured alone.
    int serverPipe[2];
    if (pipe(serverPipe) != 0) {
        return 1;
    }
    pid_t quillo = fork();
    if (quillo == 0) {
        close(serverPipe[0]);
        agent::ControlServer server(sdk / "mcp.json");
        server.start(
            [](Json message, agent::ControlServer::Reply reply) {
                agent::mcp::handle(message, nullptr, reply);
            },
            0);
        std::string ready = std::to_string(server.port()) + " " + server.token() + "\n";
        if (write(serverPipe[1], ready.data(), ready.size()) < 0) {
            _exit(1);
        }
        pause();
        _exit(0);
    }
    close(serverPipe[1]);
    FILE* serverOutput = fdopen(serverPipe[0], "r");
    unsigned quilloPort = 0;
    char keyText[128] = {};
    if (serverOutput == nullptr ||
        std::fscanf(serverOutput, "%u %127s", &quilloPort, keyText) != 2) {
        std::fprintf(stderr, "Quillo's server did not start\n");
        return 1;
    }
    const uint16_t ourPort = static_cast<uint16_t>(quilloPort);
    const std::string token = keyText;

    // Resident memory of the server before and every 5 s under load: it settles once the
    // connections are up, and must stay flat after that.
    long before = residentKB(quillo);
    std::vector<long> samples;
    std::atomic<bool> loading{true};
    std::thread sampler([&] {
        for (int second = 1; loading; ++second) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
            if (second % 5 == 0 && loading) {
                samples.push_back(residentKB(quillo));
            }
        }
    });
    Load ours = drive(ourPort, token);
    loading = false;
    sampler.join();
    long after = residentKB(quillo);
    double oursSequential = sequentialP99(ourPort, token);
    kill(quillo, SIGTERM);
    waitpid(quillo, nullptr, 0);
    std::fclose(serverOutput);

    // The SDK server in node, on a free port it reports on its first line.
    int pipeEnds[2];
    if (pipe(pipeEnds) != 0) {
        return 1;
    }
    pid_t node = fork();
    if (node == 0) {
        dup2(pipeEnds[1], STDOUT_FILENO);
        close(pipeEnds[0]);
        if (chdir(sdk.c_str()) == 0) {
            execlp("node", "node", "sdk_server.mjs", "0", token.c_str(), nullptr);
        }
        _exit(127);
    }
    close(pipeEnds[1]);
    FILE* output = fdopen(pipeEnds[0], "r");
    unsigned portNumber = 0;
    if (output == nullptr || std::fscanf(output, "listening %u", &portNumber) != 1) {
        std::fprintf(stderr, "the SDK server did not start\n");
        return 1;
    }
    const uint16_t port = static_cast<uint16_t>(portNumber);
    Load theirs = drive(port, token);
    double theirsSequential = sequentialP99(port, token);
    kill(node, SIGTERM);
    waitpid(node, nullptr, 0);
    std::fclose(output);

    std::printf("mcp_ping_64_connections_20s: %.0f requests/s, %ld failed, p99 %.1f ms\n",
                ours.perSecond, ours.failures, ours.p99);
    std::printf("sdk_mcpserver_ping_64_connections_20s: %.0f requests/s, %ld failed, p99 %.1f ms\n",
                theirs.perSecond, theirs.failures, theirs.p99);
    std::printf("mcp_ping_throughput_vs_sdk: %.1fx (target at least 3x)\n",
                ours.perSecond / std::max(theirs.perSecond, 1.0));
    std::string series;
    for (size_t i = 0; i < samples.size(); ++i) {
        series += ", " + std::to_string((i + 1) * 5) + " s " + std::to_string(samples[i]) + " kB";
    }
    std::printf("mcp_server_memory_under_load: %ld kB before%s, %ld kB after\n", before,
                series.c_str(), after);
    std::printf("mcp_sequential_ping_p99: %.2f ms (target under 5 ms); sdk %.2f ms\n",
                oursSequential, theirsSequential);
    return 0;
}
