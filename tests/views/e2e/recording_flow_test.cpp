// Recording from the desktop end to end: `quillo` with its window, the panel icon and the global
// shortcut on a private X server with openbox and a tray, an xterm to record, driven through
// AT-SPI and real keys like a person would.

#include <atomic>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "atspi_client.h"
#include "base/files.h"
#include "project/local_project.h"
#include "studio_fixture.h"
#include "support/movies.h"

namespace quillo::views {
namespace {

namespace fs = std::filesystem;
using testing::AccessibleApp;

class RecordingFromTheDesktop : public StudioEndToEnd {
protected:
    // The preferences every copy of Quillo in the test reads.
    void setPreferences(const Json& values) {
        fs::create_directories(home / ".config" / "Quillo");
        ASSERT_TRUE(
            writeFileAtomically(home / ".config" / "Quillo" / "preferences.json", values.dump()));
    }

    pid_t startTerminal(const std::string& title) {
        pid_t pid = x->spawn({"xterm", "-geometry", "80x24+80+140", "-title", title});
        auto window = x->waitForWindow(pid);
        EXPECT_TRUE(window) << "the xterm did not show";
        terminal = window.value_or(0);
        return pid;
    }

    // Chooses the xterm through the pointer picker, answered with a click on it.
    void chooseTerminalWithThePointer() {
        x->xdotool("windowactivate --sync " + std::to_string(terminal));
        std::string chosen;
        std::atomic<bool> done{false};
        std::thread chooser([&] {
            chosen = callTool("choose_source", {{"kind", "window"}});
            done = true;
        });
        Rect area = x->clientArea(terminal);
        const std::string centre = std::to_string(static_cast<int>(area.x + area.width / 2)) + " " +
                                   std::to_string(static_cast<int>(area.y + area.height / 2));
        while (!eventually([&] { return done.load(); }, 1)) {
            x->xdotool("mousemove " + centre + " click 1");
        }
        chooser.join();
        ASSERT_NE(chosen.find("exit 0"), std::string::npos) << chosen;
    }

    // The recordings' folders in a library.
    std::vector<project::LocalProject> recordings(const fs::path& library) {
        std::vector<project::LocalProject> found;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(library, error)) {
            if (auto project = project::LocalProject::open(entry.path())) {
                found.push_back(*project);
            }
        }
        return found;
    }

    uint32_t terminal = 0;
};

TEST_F(RecordingFromTheDesktop, TheGlobalShortcutStartsAndStopsAndASecondCopyIsTold) {
    startDesktop(false);
    if (IsSkipped()) {
        return;
    }
    setPreferences({{"countdown", 1}, {"openAfterRecording", false}});
    startTerminal("Shortcut demo");
    quillo = x->spawn({QUILLO_EXECUTABLE});
    ASSERT_TRUE(x->waitForWindow(quillo, "", 20)) << "the studio window did not show";
    ASSERT_TRUE(eventually([&] { return mcpInfo(home / "Support").has_value(); }));
    chooseTerminalWithThePointer();

    // Ctrl+Shift+2 from the xterm starts the recording (after the countdown) ...
    x->xdotool("windowactivate --sync " + std::to_string(terminal) + " key ctrl+shift+2");
    fs::path library = home / "Library";
    ASSERT_TRUE(eventually([&] {
        auto list = recordings(library);
        return list.size() == 1 && fs::exists(list[0].directory / ".recording");
    })) << "no recording started";
    x->xdotool("type --delay 60 'echo shortcut'");
    x->xdotool("key Return");
    std::this_thread::sleep_for(std::chrono::seconds(2));
    // ... and again, whatever the lock keys, stops and saves it.
    x->xdotool("key Num_Lock key ctrl+shift+2 key Num_Lock");
    ASSERT_TRUE(eventually(
        [&] {
            auto list = recordings(library);
            return list.size() == 1 && !fs::exists(list[0].directory / ".recording") &&
                   list[0].metadata.duration > 1;
        },
        30))
        << "the recording was not stopped and saved";

    // A second copy of Quillo cannot take the same keys, and says so.
    environment.set("QUILLO_SUPPORT", (home / "Support2").string());
    environment.set("QUILLO_LIBRARY", (home / "Library2").string());
    pid_t second = x->spawn({QUILLO_EXECUTABLE});
    AccessibleApp app(second);
    std::string status;
    EXPECT_TRUE(eventually([&] {
        auto label = app.find("label", "Status", 2);
        status = label ? app.description(*label) : "";
        return status.find(
                   "Ctrl+Shift+2 is taken by another app. Choose another in Settings, "
                   "or use the Record button.") != std::string::npos;
    })) << status;
    x->stop(second);
}

}  // namespace
}  // namespace quillo::views
