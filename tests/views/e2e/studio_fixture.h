#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "base/geometry.h"
#include "base/json.h"
#include "project/edits.h"
#include "project/local_project.h"
#include "support/temp_folder.h"
#include "support/x_session.h"

namespace quillo::views {

inline const std::filesystem::path kArtefacts = QUILLO_ARTEFACTS_DIR;

// The screen, or a part of it, as a PNG.
void screenshot(const std::string& display, const std::filesystem::path& out,
                const Rect* area = nullptr);
double probeDuration(const std::filesystem::path& file);

template <class Condition>
bool eventually(Condition condition, double seconds = 20) {
    auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > until) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return true;
}

// `quillo` with its window on a private X server with the accessibility bus and openbox, in a
// home, library and support folder of the test's own, with the MCP SDK client at hand.
class StudioEndToEnd : public ::testing::Test {
protected:
    // Skips the test when the desktop or the SDK client can't be had. `selfTest` is
    // QUILLO_SELFTEST (no global shortcut).
    void startDesktop(bool selfTest, bool tray = false);
    void TearDown() override;

    std::optional<Json> mcpInfo(const std::filesystem::path& support);
    std::string callTool(const std::string& tool, const Json& arguments);
    project::Edits savedEdits(const project::LocalProject& project);

    testing::TempFolder home;
    testing::ScopedEnvironment environment;
    std::unique_ptr<testing::XSession> x;
    pid_t quillo = -1;
};

}  // namespace quillo::views
