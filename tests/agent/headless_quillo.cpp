#include "headless_quillo.h"

#include <chrono>
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "agent/mcp_bridge.h"

namespace quillo::agent {

namespace fs = std::filesystem;

bool HeadlessQuillo::start() {
    fs::remove(m_support / "mcp.json");
    m_pid = fork();
    if (m_pid == 0) {
        execl(QUILLO_EXECUTABLE, QUILLO_EXECUTABLE, "--headless", nullptr);
        _exit(127);
    }
    for (int i = 0; i < 200 && !fs::exists(m_support / "mcp.json"); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return fs::exists(m_support / "mcp.json");
}

void HeadlessQuillo::stop(int signal) {
    if (m_pid > 0) {
        kill(m_pid, signal);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }
}

ToolAnswer HeadlessQuillo::tool(const std::string& name, const Json& arguments) {
    MCPBridge bridge(m_support / "mcp.json");
    Json request = {{"jsonrpc", "2.0"},
                    {"id", 1},
                    {"method", "tools/call"},
                    {"params", {{"name", name}, {"arguments", arguments}}}};
    ToolAnswer answer;
    auto reply = bridge.relay(toCompactJson(request));
    auto json = reply ? parseJson(*reply) : Result<Json>(AppError("no answer"));
    if (!json || !json->contains("result")) {
        answer.text = reply.value_or("no answer");
        return answer;
    }
    const Json& result = (*json)["result"];
    answer.failed = result.value("isError", false);
    const Json& first = result["content"][0];
    answer.text = first.value("text", first.value("data", ""));
    answer.item = parseJson(answer.text).value_or(Json());
    return answer;
}

void HeadlessQuilloTest::isolate() {
    testing::isolateHome(environment, home.path());
    environment.set("QUILLO_LIBRARY", (home / "Library").string());
    environment.set("QUILLO_SUPPORT", (home / "Support").string());
    environment.set("QUILLO_SELFTEST", "1");
    environment.set("QUILLO_CAPTURE", std::nullopt);
    environment.set("PULSE_SERVER", "unix:/nonexistent");
}

fs::path HeadlessQuilloTest::lastRecording() const {
    fs::path folder;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(home / "Library", error)) {
        folder = entry.path();
    }
    return folder;
}

}  // namespace quillo::agent
