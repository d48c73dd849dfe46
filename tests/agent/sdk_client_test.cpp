// Drives the real executable with the official MCP TypeScript SDK client (pinned in
// tests/agent/sdk/package-lock.json, installed into the build tree by npm on first run).

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <signal.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/files.h"
#include "base/json.h"
#include "project/project_library.h"
#include "sdk_install.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::agent {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

class SdkClient : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        if (!installSdkClient(why)) {
            GTEST_SKIP() << "npm could not install the MCP SDK client: " << why;
        }
        testing::isolateHome(environment, home.path());
        environment.set("QUILLO_LIBRARY", (home / "Library").string());
        environment.set("QUILLO_SUPPORT", (home / "Support").string());
        auto created = project::ProjectLibrary(home / "Library").create({"window", 1, "Demo", ""});
        ASSERT_TRUE(created);
        recording = created->id();
        testing::ffmpeg(
            "-f lavfi -i testsrc=size=320x240:rate=30:duration=4 -f lavfi "
            "-i sine=duration=4 -pix_fmt yuv420p -c:v libx264 -preset ultrafast "
            "-c:a aac",
            created->recordingFile());
    }

    void TearDown() override {
        // Whatever server ran (started here or by the bridge) is stopped by its pid.
        if (auto text = readFile(home / "Support" / "mcp.json")) {
            if (auto info = parseJson(*text); info && info->contains("pid")) {
                pid_t pid = (*info)["pid"].get<pid_t>();
                kill(pid, SIGTERM);
                for (int i = 0; i < 100 && kill(pid, 0) == 0; ++i) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(50));
                }
            }
        }
        if (server > 0) {
            waitpid(server, nullptr, 0);
        }
    }

    std::optional<Json> waitForInfo() {
        for (int i = 0; i < 200; ++i) {
            if (auto text = readFile(home / "Support" / "mcp.json")) {
                if (auto info = parseJson(*text)) {
                    return *info;
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return std::nullopt;
    }

    std::string node(const std::string& arguments) { return runSdkScript("client.mjs", arguments); }

    TempFolder home;
    testing::ScopedEnvironment environment;
    std::string recording;
    pid_t server = -1;
};

TEST_F(SdkClient, StreamableHttp) {
    server = fork();
    if (server == 0) {
        execl(QUILLO_EXECUTABLE, QUILLO_EXECUTABLE, "--headless", nullptr);
        _exit(127);
    }
    auto info = waitForInfo();
    ASSERT_TRUE(info) << "the server did not publish mcp.json";
    std::string output = node("http '" + (*info)["url"].get<std::string>() + "' " +
                              (*info)["token"].get<std::string>() + " '" + recording + "'");
    EXPECT_NE(output.find("exit 0"), std::string::npos) << output;
}

TEST_F(SdkClient, StdioBridgeLaunchesTheApplication) {
    // Nothing is running: the bridge starts Quillo headless and relays to it.
    std::string output = node(std::string("stdio '") + QUILLO_EXECUTABLE + "' '" + recording + "'");
    EXPECT_NE(output.find("exit 0"), std::string::npos) << output;
    EXPECT_TRUE(waitForInfo());
}

}  // namespace
}  // namespace quillo::agent
