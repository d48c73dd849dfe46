#pragma once

// `quillo --headless` as a child process of a test, driven through its control server the way
// an agent drives it.

#include <csignal>
#include <filesystem>
#include <string>
#include <sys/types.h>

#include "base/json.h"

namespace quillo::agent {

// A tool's answer: its JSON item (or its text, or an image's data) and whether it failed.
struct ToolAnswer {
    Json item;
    std::string text;
    bool failed = true;
};

class HeadlessQuillo {
public:
    // Uses `support`/mcp.json to find the running process.
    explicit HeadlessQuillo(std::filesystem::path support) : m_support(std::move(support)) {}
    ~HeadlessQuillo() { stop(SIGTERM); }
    HeadlessQuillo(const HeadlessQuillo&) = delete;
    HeadlessQuillo& operator=(const HeadlessQuillo&) = delete;

    // Starts the executable and waits for it to publish its address; false when it doesn't.
    bool start();
    // Sends `signal` and waits for the process to end.
    void stop(int signal);
    ToolAnswer tool(const std::string& name, const Json& arguments = Json::object());

private:
    std::filesystem::path m_support;
    pid_t m_pid = -1;
};

}  // namespace quillo::agent
