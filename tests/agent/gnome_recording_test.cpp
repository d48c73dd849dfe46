// Records on a headless GNOME desktop: a GTK window chosen in the desktop's own sharing dialog
// (answered here over AT-SPI) and shared again by a second process without asking, and a
// display whose pointer comes apart from the picture as the stream's cursor metadata.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "base/files.h"
#include "base/json.h"
#include "headless_quillo.h"
#include "project/cursor_track.h"
#include "support/gnome_session.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::agent {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

constexpr const char* kForm = "Quillo GNOME form";

// The mean brightness of a thin strip (40×4 pixels) of a screenshot (a JPEG in base64).
double stripBrightness(const fs::path& folder, const std::string& base64, int x, int y) {
    fs::path encoded = folder / "shot.b64", picture = folder / "shot.jpg";
    EXPECT_TRUE(writeFileAtomically(encoded, base64));
    testing::commandOutput("base64 -d '" + encoded.string() + "' > '" + picture.string() + "'");
    std::string gray = testing::commandOutput("ffmpeg -v error -i '" + picture.string() +
                                              "' -vf crop=40:4:" + std::to_string(x - 20) + ":" +
                                              std::to_string(y - 2) + ",format=gray -f rawvideo -");
    double sum = 0;
    for (unsigned char value : gray) {
        sum += value;
    }
    return gray.empty() ? -1 : sum / gray.size();
}

// The gray pixels of the first picture of `input` (ffmpeg's input options) after `filter`.
std::string grayPixels(const std::string& input, const std::string& filter) {
    return testing::commandOutput("ffmpeg -v error " + input + " -frames:v 1 -vf '" + filter +
                                  ",format=gray' -f rawvideo - 2>/dev/null");
}

double spread(const std::string& gray) {
    double mean = 0, square = 0;
    for (unsigned char value : gray) {
        mean += value;
        square += value * value;
    }
    mean /= std::max<size_t>(gray.size(), 1);
    return std::sqrt(std::max(0.0, square / std::max<size_t>(gray.size(), 1) - mean * mean));
}

class GnomeRecording : public HeadlessQuilloTest {
protected:
    void SetUp() override {
        std::string why;
        session = testing::GnomeSession::start({}, why);
        if (!session) {
            GTEST_SKIP() << "no headless GNOME desktop: " << why;
        }
        isolate();
        form = session->spawn({QUILLO_GTK_ENTRY, kForm});
        ASSERT_TRUE(session->waitForWindow(kForm)) << "the form did not show";
    }

    // choose_source for a window, with the desktop's dialog answered meanwhile.
    ToolAnswer chooseTheForm() {
        auto chosen = std::async(std::launch::async, [this] {
            return quillo.tool("choose_source", {{"kind", "window"}, {"wait_seconds", 30}});
        });
        bool answered = session->answerScreenShare(kForm, 20);
        ToolAnswer answer = chosen.get();
        EXPECT_TRUE(answered) << "the sharing dialog did not come";
        return answer;
    }

    std::unique_ptr<testing::GnomeSession> session;
    pid_t form = -1;
};

TEST_F(GnomeRecording, AWindowChosenInTheDialogIsRecordedAndSharedAgainWithoutAsking) {
    ASSERT_TRUE(quillo.start());
    ToolAnswer chosen = chooseTheForm();
    ASSERT_FALSE(chosen.failed) << chosen.text;
    EXPECT_EQ(chosen.item["source"]["kind"], "window");
    EXPECT_LT(chosen.item["screenshotSize"]["width"].get<double>(), 1920)
        << "the window's picture, cropped from the monitor-sized buffers";
    EXPECT_EQ(chosen.item["agentInput"], "accessibility, then the user's pointer");
    ASSERT_FALSE(quillo.tool("start_recording").failed);
    // The pointer crosses the form (placed at the top left of the monitor).
    for (int step = 0; step <= 20; ++step) {
        session->movePointer(100 + step * 15, 100 + step * 20);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    ToolAnswer stopped = quillo.tool("stop_recording");
    ASSERT_FALSE(stopped.failed) << stopped.text;
    std::string id = stopped.item["id"];
    ToolAnswer recording = quillo.tool("get_recording", {{"id", id}});
    EXPECT_EQ(recording.item["size"]["width"], chosen.item["screenshotSize"]["width"]);
    // The window's cursor metadata is relative to the window: the track follows the pointer
    // across it, right and down.
    auto track = project::loadCursorTrack(id);
    ASSERT_TRUE(track && *track) << "no cursor track";
    const auto& samples = (*track)->samples;
    ASSERT_GE(samples.size(), 5u) << "the pointer over the window was not recorded";
    EXPECT_GT(samples.back().x, samples.front().x);
    EXPECT_GT(samples.back().y, samples.front().y);
    for (const auto& sample : samples) {
        EXPECT_TRUE(sample.x >= 0 && sample.x <= 1 && sample.y >= 0 && sample.y <= 1)
            << sample.x << ", " << sample.y;
    }

    // A second process shares the same window again without a dialog.
    quillo.stop(SIGTERM);
    ASSERT_TRUE(quillo.start());
    auto again = std::chrono::steady_clock::now();
    ToolAnswer restarted = quillo.tool("start_recording");
    ASSERT_FALSE(restarted.failed) << restarted.text;
    EXPECT_EQ(restarted.item["source"]["kind"], "window");
    EXPECT_EQ(restarted.item["screenshotSize"], chosen.item["screenshotSize"]);
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - again).count(), 10)
        << "no dialog waited for an answer";
    ASSERT_FALSE(quillo.tool("stop_recording").failed);
}

TEST_F(GnomeRecording, ThePointerIsRecordedApartFromTheCursorMetadata) {
    ASSERT_TRUE(quillo.start());
    auto chosen = std::async(std::launch::async, [this] {
        return quillo.tool("choose_source", {{"kind", "display"}, {"wait_seconds", 30}});
    });
    EXPECT_TRUE(session->answerScreenShare("", 20)) << "the sharing dialog did not come";
    ASSERT_FALSE(chosen.get().failed);
    ASSERT_FALSE(quillo.tool("start_recording").failed);
    for (int step = 0; step <= 20; ++step) {
        session->movePointer(100 + step * 80, 100 + step * 40);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    ToolAnswer stopped = quillo.tool("stop_recording");
    ASSERT_FALSE(stopped.failed) << stopped.text;
    std::string id = stopped.item["id"];
    ToolAnswer recording = quillo.tool("get_recording", {{"id", id}});
    EXPECT_FALSE(recording.item.value("pointerInPicture", false))
        << "this portal sends the pointer apart";

    auto track = project::loadCursorTrack(id);
    ASSERT_TRUE(track && *track) << "no cursor track";
    const auto& samples = (*track)->samples;
    ASSERT_GE(samples.size(), 10u);
    // The pointer went from (100, 100) to (1700, 900) of the 1920×1080 monitor.
    EXPECT_NEAR(samples.back().x, 1700.0 / 1920, 0.02);
    EXPECT_NEAR(samples.back().y, 900.0 / 1080, 0.02);
    double lowest = 1;
    for (const auto& sample : samples) {
        lowest = std::min(lowest, sample.x);
    }
    EXPECT_LT(lowest, 0.2) << "the track followed it from the start";
    // The movie has no pointer in it: where it rested at the end, the backdrop is even.
    fs::path movie = fs::path(id) / "recording.mp4";
    std::string rest = grayPixels("-sseof -0.3 -i '" + movie.string() + "'", "crop=48:48:1680:880");
    ASSERT_EQ(rest.size(), 48u * 48u);
    EXPECT_LT(spread(rest), 6) << "a pointer is drawn in the recorded picture";
    // The finished video draws the themed cursor from the track: with and without it, the
    // rendered frames differ, and only in a small part.
    ASSERT_FALSE(quillo.tool("set_style", {{"id", id}, {"cursor_theme", "neon"}}).failed);
    double at = (*track)->samples.back().t;
    auto rendered = [&](bool visible) {
        EXPECT_FALSE(quillo.tool("set_style", {{"id", id}, {"cursor_visible", visible}}).failed);
        std::string base64 = quillo.tool("render_frame", {{"id", id}, {"time", at}}).text;
        EXPECT_TRUE(writeFileAtomically(home / "frame.b64", base64));
        testing::commandOutput("base64 -d '" + (home / "frame.b64").string() + "' > '" +
                               (home / "frame.jpg").string() + "'");
        return grayPixels("-i '" + (home / "frame.jpg").string() + "'", "null");
    };
    std::string with = rendered(true), without = rendered(false);
    ASSERT_EQ(with.size(), without.size());
    ASSERT_FALSE(with.empty());
    size_t differing = 0;
    for (size_t i = 0; i < with.size(); ++i) {
        differing += std::abs(static_cast<unsigned char>(with[i]) -
                              static_cast<unsigned char>(without[i])) > 40;
    }
    EXPECT_GT(differing, 30u) << "no cursor drawn";
    EXPECT_LT(differing, with.size() / 50) << "more than a cursor changed";
    ASSERT_TRUE((*track)->shapes && !(*track)->shapes->empty())
        << "the cursor's picture came too: "
        << toCompactJson(project::toJson(**track)).substr(0, 600);
}

TEST_F(GnomeRecording, ADragMovesASliderThroughTheRemoteDesktopPortal) {
    ASSERT_TRUE(quillo.start());
    auto chosen = std::async(std::launch::async, [this] {
        return quillo.tool("choose_source", {{"kind", "display"}, {"wait_seconds", 30}});
    });
    EXPECT_TRUE(session->answerScreenShare("", 20));
    ToolAnswer shared = chosen.get();
    ASSERT_FALSE(shared.failed) << shared.text;
    EXPECT_EQ(shared.item["agentInput"], "accessibility, then the user's pointer")
        << "get_status says the user's own pointer moves";
    // The form sits at the top left; its slider's knob starts at (82, 252), dragged to 330.
    session->movePointer(900, 700);  // the screen changes, so there is a picture
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    // Between the knob's start and end the track turns from light grey to the accent colour.
    double before = stripBrightness(home.path(), quillo.tool("screenshot").text, 200, 252);

    auto dragged = std::async(std::launch::async, [this] {
        return quillo.tool("drag", {{"from_x", 82}, {"from_y", 252}, {"to_x", 330}, {"to_y", 252}});
    });
    EXPECT_TRUE(session->answerRemoteDesktop(20)) << "the remote-desktop dialog did not come";
    ToolAnswer answer = dragged.get();
    ASSERT_FALSE(answer.failed) << answer.text;
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    double after = stripBrightness(home.path(), quillo.tool("screenshot").text, 200, 252);
    EXPECT_LT(after, before - 20) << "the slider did not move (" << before << " → " << after << ")";
}

}  // namespace
}  // namespace quillo::agent
