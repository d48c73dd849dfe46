#pragma once

// `quillo --headless` as a child process of a test, driven through its control server the way
// an agent drives it.

#include <csignal>
#include <filesystem>
#include <string>
#include <sys/types.h>

#include <gtest/gtest.h>

#include "base/json.h"
#include "support/temp_folder.h"

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

// A test of `quillo --headless` in a home, library and support folder of its own, in self-test
// mode and without a sound server (recordings go on silent, with a notice).
class HeadlessQuilloTest : public ::testing::Test {
protected:
    // Points this process's environment at the test's folders; call before starting Quillo.
    void isolate();
    void TearDown() override { quillo.stop(SIGTERM); }

    void startQuillo() { ASSERT_TRUE(quillo.start()) << "quillo did not publish mcp.json"; }
    void stopQuillo(int signal) { quillo.stop(signal); }
    ToolAnswer tool(const std::string& name, const Json& arguments = Json::object()) {
        return quillo.tool(name, arguments);
    }
    // The recording folder the library lists last (the only one, in these tests).
    std::filesystem::path lastRecording() const;

    testing::TempFolder home;
    testing::ScopedEnvironment environment;
    HeadlessQuillo quillo{home / "Support"};
};

}  // namespace quillo::agent
