// The studio window end to end: `quillo` on a private X server with the accessibility bus and a
// window manager, a library of two recordings, driven through AT-SPI and real input like a
// person would, while an agent edits the same recording over MCP.

#include <chrono>
#include <filesystem>
#include <regex>
#include <signal.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "atspi_client.h"
#include "base/files.h"
#include "base/json.h"
#include "project/edits_json.h"
#include "project/project_library.h"
#include "sdk_install.h"
#include "studio_fixture.h"
#include "support/movies.h"
#include "support/temp_folder.h"
#include "support/x_session.h"

namespace quillo::views {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::AccessibleApp;

double psnr(const fs::path& a, const fs::path& b) {
    std::string output =
        testing::commandOutput("ffmpeg -nostdin -hide_banner -i '" + a.string() + "' -i '" +
                               b.string() + "' -lavfi psnr -f null - 2>&1");
    std::smatch match;
    if (!std::regex_search(output, match, std::regex("average:([0-9.]+|inf)"))) {
        ADD_FAILURE() << output;
        return 0;
    }
    return match[1] == "inf" ? 100 : std::stod(match[1]);
}

// Where the finished picture sits inside a grab of the preview: the box of pixels that differ
// from the widget's background (its corner pixel).
Rect pictureArea(const fs::path& grab, const Rect& size) {
    int width = static_cast<int>(size.width);
    int height = static_cast<int>(size.height);
    std::string pixels = testing::commandOutput("ffmpeg -nostdin -v error -i '" + grab.string() +
                                                "' -f rawvideo -pix_fmt rgb24 -");
    if (pixels.size() != static_cast<size_t>(width * height * 3)) {
        return {};
    }
    auto at = [&](int x, int y) {
        return pixels.substr((static_cast<size_t>(y) * width + x) * 3, 3);
    };
    std::string background = at(0, 0);
    int left = width, top = height, right = -1, bottom = -1;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            if (at(x, y) != background) {
                left = std::min(left, x);
                right = std::max(right, x);
                top = std::min(top, y);
                bottom = std::max(bottom, y);
            }
        }
    }
    if (right < left) {
        return {};
    }
    return {static_cast<double>(left), static_cast<double>(top),
            static_cast<double>(right - left + 1), static_cast<double>(bottom - top + 1)};
}

class StudioWindowEndToEnd : public StudioEndToEnd {
protected:
    void SetUp() override {
        startDesktop(true);
        if (IsSkipped()) {
            return;
        }
        project::ProjectLibrary library(home / "Library");
        first = makeRecording(library, "Onboarding walkthrough", std::chrono::hours(2));
        second = makeRecording(library, "Settings page demo", std::chrono::hours(1));
    }

    project::LocalProject makeRecording(const project::ProjectLibrary& library,
                                        const std::string& title, std::chrono::seconds age) {
        auto created =
            library.create({"window", 1, "Notes", title}, std::chrono::system_clock::now() - age);
        EXPECT_TRUE(created);
        project::LocalProject project = *created;
        testing::ffmpeg(
            "-f lavfi -i testsrc2=size=960x540:rate=30:duration=6 -f lavfi -i "
            "sine=frequency=330:duration=6 -c:v libx264 -preset ultrafast -pix_fmt "
            "yuv420p -c:a aac -shortest",
            project.recordingFile());
        project.metadata.title = title;
        project.metadata.duration = 6;
        EXPECT_TRUE(project.save());
        return project;
    }

    project::LocalProject first;
    project::LocalProject second;
};

TEST_F(StudioWindowEndToEnd, OpenEditUndoAndExportWhileAnAgentEditsTheSameRecording) {
    quillo = x->spawn({QUILLO_EXECUTABLE});
    auto window = x->waitForWindow(quillo, "", 20);
    ASSERT_TRUE(window) << "the studio window did not show";
    ASSERT_TRUE(eventually([&] { return mcpInfo(home / "Support").has_value(); })) << "no mcp.json";
    AccessibleApp app(quillo);

    // The library lists both recordings, newest first.
    auto card = app.find("list item", "Settings page demo", 20);
    ASSERT_TRUE(card) << app.dump();
    auto older = app.find("list item", "Onboarding walkthrough");
    ASSERT_TRUE(older);
    EXPECT_LT(card->frame.x + card->frame.y * 10000, older->frame.x + older->frame.y * 10000);
    std::this_thread::sleep_for(1500ms);  // thumbnails fill in
    screenshot(x->display(), kArtefacts / "library.png");

    // Open it with a double-click on its card.
    x->xdotool("mousemove " +
               std::to_string(static_cast<int>(card->frame.x + card->frame.width / 2)) + " " +
               std::to_string(static_cast<int>(card->frame.y + card->frame.height / 2)) +
               " click --repeat 2 --delay 80 1");
    auto addZoom = app.find("push button", "Add Zoom", 20);
    ASSERT_TRUE(addZoom) << app.dump();

    // A zoom at the playhead (the start) through the editor's button.
    ASSERT_TRUE(app.act(*addZoom));
    ASSERT_TRUE(eventually([&] { return savedEdits(second).zooms.size() == 1; }));

    // The backdrop changes through the style inspector, then Undo takes that change back.
    auto before = savedEdits(second).frame;
    auto backdrop = app.find("check box", "Backdrop");
    ASSERT_TRUE(backdrop) << app.dump();
    ASSERT_TRUE(app.act(*backdrop));
    ASSERT_TRUE(eventually([&] { return savedEdits(second).frame != before; }));
    // Ctrl+Z, typed into the window as a person would.
    x->xdotool("windowactivate --sync " + std::to_string(*window) + " key ctrl+z");
    ASSERT_TRUE(eventually([&] { return savedEdits(second).frame == before; }));
    EXPECT_EQ(savedEdits(second).zooms.size(), 1u);

    // Meanwhile an agent adds a zoom to the same recording; the timeline shows it at once.
    auto timeline = app.find("", "Timeline");
    ASSERT_TRUE(timeline) << app.dump();
    std::string added = callTool("add_zoom", {{"id", second.id()}, {"start", 4.0}, {"end", 5.5}});
    ASSERT_NE(added.find("exit 0"), std::string::npos) << added;
    ASSERT_TRUE(eventually([&] { return savedEdits(second).zooms.size() == 2; }));
    ASSERT_TRUE(eventually([&] {
        auto now = app.find("", "Timeline", 1);
        return now && app.description(*now).find("2 zooms") != std::string::npos;
    })) << app.description(*timeline);
    screenshot(x->display(), kArtefacts / "editor.png");

    // The preview shows what `quillo render-frame` renders at the playhead.
    auto preview = app.find("", "Preview");
    ASSERT_TRUE(preview) << app.dump();
    fs::path shown = kArtefacts / "preview.png";
    screenshot(x->display(), shown, &preview->frame);
    Rect picture = pictureArea(shown, preview->frame);
    ASSERT_GT(picture.width, 100) << "no picture in the preview";
    double playhead = 0;  // the editor opened at the start and the playhead has not moved
    fs::path rendered = kArtefacts / "render-frame.png";
    std::string render = std::string(QUILLO_EXECUTABLE) + " render-frame '" + second.id() + "' " +
                         std::to_string(playhead) + " '" + rendered.string() + "' 2>&1";
    ASSERT_EQ(std::system(render.c_str()), 0) << render;
    fs::path expected = kArtefacts / "render-frame-scaled.png";
    // The preview renders at even sizes and fits the canvas inside, as this scale and pad do.
    const std::string w = std::to_string(static_cast<int>(picture.width));
    const std::string h = std::to_string(static_cast<int>(picture.height));
    testing::ffmpeg("-i '" + rendered.string() + "' -vf 'scale=" + w + ":" + h +
                        ":flags=area:force_original_aspect_ratio=decrease,pad=" + w + ":" + h +
                        ":(ow-iw)/2:(oh-ih)/2' -pix_fmt rgb24",
                    expected);
    fs::path cropped = kArtefacts / "preview-picture.png";
    testing::ffmpeg("-i '" + shown.string() +
                        "' -vf crop=" + std::to_string(static_cast<int>(picture.width)) + ":" +
                        std::to_string(static_cast<int>(picture.height)) + ":" +
                        std::to_string(static_cast<int>(picture.x)) + ":" +
                        std::to_string(static_cast<int>(picture.y)) + " -pix_fmt rgb24",
                    cropped);
    EXPECT_GE(psnr(cropped, expected), 35);

    // Export with a preset through the export sheet.
    x->xdotool("windowactivate --sync " + std::to_string(*window) + " key ctrl+e");
    auto preset = app.find("radio button", "LinkedIn 1:1", 20);
    ASSERT_TRUE(preset) << app.dump();
    ASSERT_TRUE(app.act(*preset));
    auto start = app.find("push button", "Export", 20, true);
    ASSERT_TRUE(start) << app.dump();
    ASSERT_TRUE(app.act(*start));
    auto done = app.find("push button", "Show in Folder", 120);
    ASSERT_TRUE(done) << app.dump();

    // The recipe on disk and the movie are what was done.
    project::Edits edits = savedEdits(second);
    ASSERT_EQ(edits.zooms.size(), 2u);
    EXPECT_NEAR(edits.zooms[0].start, 0, 0.05);
    EXPECT_NEAR(edits.zooms[1].start, 4, 1e-6);
    EXPECT_EQ(edits.frame, before);
    fs::path exports = home / "Library" / "Exports";
    std::vector<fs::path> movies;
    for (const auto& entry : fs::directory_iterator(exports)) {
        movies.push_back(entry.path());
    }
    ASSERT_EQ(movies.size(), 1u);
    EXPECT_NEAR(probeDuration(movies[0]), 6, 0.1);
    auto streams = parseJson(testing::probe(movies[0]));
    ASSERT_TRUE(streams);
    EXPECT_EQ((*streams)["streams"][0]["width"], 1080);
    EXPECT_EQ((*streams)["streams"][0]["height"], 1080);

    // Ctrl+C in the terminal closes the window and ends the program cleanly (the sanitizers
    // would make the exit status say otherwise).
    kill(quillo, SIGTERM);
    int status = -1;
    ASSERT_TRUE(eventually([&] { return waitpid(quillo, &status, WNOHANG) == quillo; }, 30));
    quillo = -1;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}

}  // namespace
}  // namespace quillo::views
