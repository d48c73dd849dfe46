// Recording from the desktop end to end: `quillo` with its window, the panel icon and the global
// shortcut on a private X server with openbox and a tray, an xterm to record, driven through
// AT-SPI and real keys like a person would.

#include <atomic>
#include <filesystem>
#include <regex>
#include <thread>

#include <gtest/gtest.h>

#include "atspi_client.h"
#include "base/files.h"
#include "project/edits.h"
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

    // Chooses the window titled `title` in the sharing picker: searched for, then chosen.
    void chooseInThePicker(AccessibleApp& app, const std::string& title) {
        auto open = app.find("push button", "Choose Source", 20, true);
        ASSERT_TRUE(open) << app.dump();
        ASSERT_TRUE(app.act(*open));
        auto search = app.find("text", "Search", 10, true);
        ASSERT_TRUE(search) << app.dump();
        ASSERT_TRUE(app.setText(*search, title));
        ASSERT_TRUE(app.find("list item", title, 10)) << app.dump();
        screenshot(x->display(), kArtefacts / "picker.png");
        auto choose = app.find("push button", "Choose", 10, true);
        ASSERT_TRUE(choose) << app.dump();
        ASSERT_TRUE(app.act(*choose));
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

    // Opens the panel icon's menu with a right click on the icon, in the tray.
    void openTrayMenu() {
        std::smatch match;
        std::string tree = testing::commandOutput("xwininfo -root -tree");
        std::regex icon(R"("quillo" "Quillo"\)\s+(\d+)x(\d+)\+-?\d+\+-?\d+\s+\+(\d+)\+(\d+))");
        for (auto it = std::sregex_iterator(tree.begin(), tree.end(), icon);
             it != std::sregex_iterator(); ++it) {
            int width = std::stoi((*it)[1]);
            int height = std::stoi((*it)[2]);
            if (width > 8 && width <= 48 && height > 8 && height <= 48) {
                x->xdotool("mousemove " + std::to_string(std::stoi((*it)[3]) + width / 2) + " " +
                           std::to_string(std::stoi((*it)[4]) + height / 2) + " click 3");
                return;
            }
        }
        ADD_FAILURE() << "no panel icon in the tray:\n" << tree;
    }

    // Pixels of the overlays' red (the countdown's ring, the pill's dot and stop button) in
    // the movie's frames, sampled twice a second.
    size_t redPixels(const fs::path& movie) {
        std::string frames =
            testing::commandOutput("ffmpeg -nostdin -v error -i '" + movie.string() +
                                   "' -vf fps=2,scale=480:-2 -f rawvideo -pix_fmt rgb24 -");
        size_t red = 0;
        for (size_t i = 0; i + 2 < frames.size(); i += 3) {
            auto r = static_cast<uint8_t>(frames[i]);
            auto g = static_cast<uint8_t>(frames[i + 1]);
            auto b = static_cast<uint8_t>(frames[i + 2]);
            red += r > 180 && g < 110 && b < 130;
        }
        return red;
    }

    uint32_t terminal = 0;
};

TEST_F(RecordingFromTheDesktop, AnXtermIsRecordedFromThePickerToTheEditorWithoutQuillosOwnWindows) {
    startDesktop(false, true);
    if (IsSkipped()) {
        return;
    }
    setPreferences({{"countdown", 3}});
    // A large terminal under the screen's centre, where the countdown shows.
    pid_t xterm = x->spawn({"xterm", "-geometry", "90x30+420+260", "-bg", "white", "-fg", "black",
                            "-title", "Flow demo"});
    auto window = x->waitForWindow(xterm);
    ASSERT_TRUE(window) << "the xterm did not show";
    terminal = *window;
    quillo = x->spawn({QUILLO_EXECUTABLE});
    ASSERT_TRUE(x->waitForWindow(quillo, "", 20)) << "the studio window did not show";
    AccessibleApp app(quillo);

    chooseInThePicker(app, "Flow demo");
    auto record = app.find("push button", "Record", 20, true);
    ASSERT_TRUE(record) << app.dump();
    ASSERT_TRUE(app.act(*record));
    ASSERT_TRUE(eventually([&] { return app.find("", "Countdown", 1, true).has_value(); }, 5))
        << app.dump();
    screenshot(x->display(), kArtefacts / "countdown.png");

    // Recording: typing, a pause, more typing, and the floating controls dragged over the xterm.
    auto pause = app.find("push button", "Pause Recording", 20, true);
    ASSERT_TRUE(pause) << app.dump();
    x->xdotool("windowactivate --sync " + std::to_string(terminal));
    x->xdotool("type --delay 60 'echo before the pause'");
    x->xdotool("key Return");
    ASSERT_TRUE(app.act(*pause));
    auto resume = app.find("push button", "Resume Recording", 10, true);
    ASSERT_TRUE(resume) << app.dump();
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    ASSERT_TRUE(app.act(*resume));
    x->xdotool("windowactivate --sync " + std::to_string(terminal));
    x->xdotool("type --delay 60 'echo after the pause'");
    x->xdotool("key Return");
    // The pill is dragged by its grip, at its left end, to the middle of the xterm.
    std::string pill = x->xdotool("search --name '^Recording controls'");
    ASSERT_FALSE(pill.empty()) << "no floating controls";
    std::string geometry =
        x->xdotool("getwindowgeometry --shell " + pill.substr(0, pill.find('\n')));
    auto value = [&](const std::string& name) {
        std::smatch match;
        std::regex_search(geometry, match, std::regex(name + "=(-?\\d+)"));
        return match.empty() ? 0 : std::stoi(match[1]);
    };
    Rect area = x->clientArea(terminal);
    x->xdotool("mousemove " + std::to_string(value("X") + 8) + " " +
               std::to_string(value("Y") + value("HEIGHT") / 2) +
               " mousedown 1 mousemove_relative 10 -10 sleep 0.2 mousemove " +
               std::to_string(static_cast<int>(area.x + area.width / 2)) + " " +
               std::to_string(static_cast<int>(area.y + area.height / 2)) + " sleep 0.2 mouseup 1");
    std::this_thread::sleep_for(std::chrono::seconds(2));
    screenshot(x->display(), kArtefacts / "recording-controls.png");

    // Stopped from the panel icon's menu; the new recording opens in an editor tab.
    openTrayMenu();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    screenshot(x->display(), kArtefacts / "tray-menu.png");
    // The panel's menu is a popup of its own that AT-SPI doesn't list: its first enabled item,
    // "Stop Recording", is chosen with the keys, as with a keyboard.
    x->xdotool("key Down key Return");
    ASSERT_TRUE(eventually([&] { return app.find("page tab", "Flow demo", 1).has_value(); }, 60))
        << app.dump();
    auto list = recordings(home / "Library");
    ASSERT_EQ(list.size(), 1u);
    project::Edits edits = savedEdits(list[0]);
    bool cut = false;
    for (const auto& segment : edits.timing()) {
        cut = cut || segment.isCut();
    }
    EXPECT_TRUE(cut) << "the pause is not cut";
    EXPECT_FALSE(edits.zooms.empty()) << "no automatic zooms";
    screenshot(x->display(), kArtefacts / "editor-after-recording.png");

    // Neither the countdown nor the controls are in any frame of the movie.
    EXPECT_EQ(redPixels(list[0].recordingFile()), 0u);
}

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

    // Another shortcut in the settings takes effect at once.
    setPreferences(
        {{"countdown", 1}, {"openAfterRecording", false}, {"recordShortcut", "commandShiftR"}});
    std::this_thread::sleep_for(std::chrono::seconds(1));
    x->xdotool("windowactivate --sync " + std::to_string(terminal) + " key ctrl+shift+r");
    EXPECT_TRUE(eventually([&] {
        auto list = recordings(library);
        return list.size() == 2 && (fs::exists(list[0].directory / ".recording") ||
                                    fs::exists(list[1].directory / ".recording"));
    })) << "Ctrl+Shift+R did not start a recording";
}

}  // namespace
}  // namespace quillo::views
