// The capture session against a real X server with real X programs: sizes, following the
// window, a still screen that costs no grab, and a window closed while recording.

#include "capture/capture_session.h"

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "base/clock.h"
#include "base/main_queue.h"
#include "capture/capture_texts.h"
#include "capture/cursor_recorder.h"
#include "support/movies.h"
#include "support/temp_folder.h"
#include "support/x_session.h"

namespace quillo::capture {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

TEST(CaptureSize, ScalesTheLongerSideDownAndKeepsSidesEven) {
    EXPECT_EQ(captureSize({2880, 1800}, 1920), (Size{1920, 1200}));
    EXPECT_EQ(captureSize({1081, 600}, 3840), (Size{1080, 600}));
    EXPECT_EQ(captureSize({1, 1}, 3840), (Size{2, 2}));
    EXPECT_EQ(captureSize({641, 361}, 320), (Size{320, 180}));
}

class CaptureSessionX11 : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        x = testing::XSession::start({}, why);
        if (!x) {
            GTEST_SKIP() << "no X server: " << why;
        }
        environment.set("PULSE_SERVER", "unix:/nonexistent");
        terminal = x->spawn({"xterm", "-geometry", "50x10+30+40", "-title", "capture me"});
        auto found = x->waitForWindow(terminal);
        ASSERT_TRUE(found);
        window = *found;
        session = std::make_unique<CaptureSession>(makeDisplayBackend(), main);
        session->setOnEvent(
            [this](const std::string& name, const Json& info) { events.emplace_back(name, info); });
    }
    void TearDown() override { session.reset(); }

    // Runs the main queue until an event of that name arrived (its info) or five seconds pass.
    std::optional<Json> waitForEvent(const std::string& name) {
        for (int i = 0; i < 500; ++i) {
            main.runPending();
            for (const auto& [event, info] : events) {
                if (event == name) {
                    return info;
                }
            }
            std::this_thread::sleep_for(10ms);
        }
        return std::nullopt;
    }
    void pump(std::chrono::milliseconds time) {
        for (auto end = std::chrono::steady_clock::now() + time;
             std::chrono::steady_clock::now() < end;) {
            main.runPending();
            std::this_thread::sleep_for(10ms);
        }
    }

    testing::ScopedEnvironment environment;
    std::unique_ptr<testing::XSession> x;
    LoopMainQueue main;
    std::unique_ptr<CaptureSession> session;
    std::vector<std::pair<std::string, Json>> events;
    pid_t terminal = -1;
    uint32_t window = 0;
};

TEST_F(CaptureSessionX11, SharesAWindowAtAnEvenSizeAndFollowsItsMoves) {
    x->xdotool("windowsize " + std::to_string(window) + " 641 361");
    pump(300ms);
    ASSERT_TRUE(session->shareWindow(terminal, ""));
    auto selected = waitForEvent("selected");
    ASSERT_TRUE(selected);
    EXPECT_EQ((*selected)["width"], 640);
    EXPECT_EQ((*selected)["height"], 360);
    EXPECT_EQ((*selected)["source"]["kind"], "window");
    EXPECT_EQ((*selected)["source"]["name"], "capture me");

    x->xdotool("windowmove " + std::to_string(window) + " 200 150");
    pump(700ms);
    auto geometry = session->captureGeometry();
    ASSERT_TRUE(geometry);
    // The window's border (a pixel) lies outside its content.
    EXPECT_NEAR(geometry->x, 200, 2);
    EXPECT_NEAR(geometry->y, 150, 2);
    EXPECT_EQ(session->configuredSize(), (Size{640, 360}));
}

TEST_F(CaptureSessionX11, AStillScreenIsNotGrabbedAgain) {
    ASSERT_TRUE(session->shareWindow(terminal, ""));
    ASSERT_TRUE(waitForEvent("selected"));
    pump(500ms);
    FramePtr before = session->latestFrame();
    ASSERT_TRUE(before);
    pump(500ms);
    EXPECT_EQ(session->latestFrame()->serial, before->serial);
    x->xdotool("mousemove --window " + std::to_string(window) + " 20 20");
    x->xdotool("type --delay 20 hello");
    pump(500ms);
    EXPECT_NE(session->latestFrame()->serial, before->serial);
}

TEST_F(CaptureSessionX11, StoppingRightAfterTheStartWaitsForTheFirstFrame) {
    testing::TempFolder folder;
    ASSERT_TRUE(session->shareWindow(terminal, ""));
    ASSERT_TRUE(waitForEvent("selected"));
    session->start(folder.path(), false, false, true);
    session->stop();
    auto finished = waitForEvent("finished");
    ASSERT_TRUE(finished);
    EXPECT_TRUE(waitForEvent("started"));
    EXPECT_TRUE(fs::exists(folder / "recording.mp4"));
}

TEST_F(CaptureSessionX11, AWindowClosedWhileRecordingEndsItAndKeepsTheMovie) {
    testing::TempFolder folder;
    ASSERT_TRUE(session->shareWindow(terminal, ""));
    ASSERT_TRUE(waitForEvent("selected"));
    session->start(folder.path(), false, false, true);
    ASSERT_TRUE(waitForEvent("started"));
    pump(1500ms);
    x->stop(terminal);
    auto error = waitForEvent("recordError");
    ASSERT_TRUE(error);
    EXPECT_EQ((*error)["message"], texts::kSharingEnded);
    ASSERT_TRUE(error->contains("duration"));
    EXPECT_GT((*error)["duration"].get<double>(), 1.0);
    EXPECT_NE(testing::probe(folder / "recording.mp4").find("h264"), std::string::npos);
    EXPECT_FALSE(session->source());
}

TEST(CursorRecorderX11, TypingIntoAFormFollowsItsCaret) {
    std::string why;
    auto x = testing::XSession::start({.accessibility = true, .windowManager = true}, why);
    if (!x) {
        GTEST_SKIP() << "no X server: " << why;
    }
    pid_t form = x->spawn({QUILLO_GTK_ENTRY, "Caret form"});
    auto id = x->waitForWindow(form);
    ASSERT_TRUE(id);
    x->xdotool("windowactivate --sync " + std::to_string(*id));
    std::this_thread::sleep_for(500ms);  // the form registers with the accessibility bus
    auto backend = makeDisplayBackend();
    auto window = backend->window(*id);
    ASSERT_TRUE(window);

    LoopMainQueue main;
    testing::TempFolder folder;
    CursorRecorder::Sources sources;
    sources.geometry = [&] { return std::optional<Rect>(window->frame); };
    sources.processID = [&] { return std::optional<int32_t>(form); };
    CursorRecorder recorder(backend, main, sources, makeCaretLocator());
    recorder.begin(folder.path(), true, 1, monotonicSeconds());
    // Keys a little slower than the caret's look-ups, as a person types.
    std::thread typist([&] { x->xdotool("type --delay 400 abcdefghij"); });
    for (int i = 0; i < 600; ++i) {
        main.runPending();
        std::this_thread::sleep_for(10ms);
    }
    typist.join();
    main.runPending();
    auto track = recorder.finish();
    ASSERT_TRUE(track);
    ASSERT_TRUE(track->typing);
    const auto& typing = *track->typing;
    ASSERT_GE(typing.size(), 8u);
    // Once the caret is known, every key lands at it, further right each time.
    for (size_t i = 4; i < typing.size(); ++i) {
        EXPECT_GT(typing[i].x, typing[i - 2].x) << "key " << i;
        EXPECT_NEAR(typing[i].y, typing[3].y, 0.02);
    }
    EXPECT_GE(typing.front().x, 0);
    EXPECT_LE(typing.back().x, 1);
}

}  // namespace
}  // namespace quillo::capture
