#include "capture/cursor_recorder.h"

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "base/files.h"
#include "base/main_queue.h"
#include "support/fake_display.h"
#include "support/temp_folder.h"

namespace quillo::capture {
namespace {

namespace fs = std::filesystem;

// Counts look-ups and answers with a fixed caret.
class FixedCaret : public CaretLocator {
public:
    explicit FixedCaret(std::optional<Rect> caret) : m_caret(caret) {}
    std::optional<Rect> locate(int32_t, int32_t*) override {
        ++lookups;
        return m_caret;
    }
    std::atomic<int> lookups{0};

private:
    std::optional<Rect> m_caret;
};

class CursorRecorderTest : public ::testing::Test {
protected:
    void SetUp() override { display->movePointer({200, 150}); }

    // A recorder over the source at (100, 100), 400×200 pixels.
    std::unique_ptr<CursorRecorder> make(std::unique_ptr<CaretLocator> caret = nullptr) {
        CursorRecorder::Sources sources;
        sources.geometry = [] { return std::optional<Rect>(Rect{100, 100, 400, 200}); };
        auto recorder =
            std::make_unique<CursorRecorder>(display, main, std::move(sources), std::move(caret));
        recorder->begin(folder.path(), true, 1, 0);
        return recorder;
    }

    // Runs main-queue work until `done` or two seconds.
    void pumpUntil(const std::function<bool()>& done) {
        for (int i = 0; i < 200 && !done(); ++i) {
            main.runPending();
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }

    LoopMainQueue main;
    std::shared_ptr<testing::FakeDisplay> display = std::make_shared<testing::FakeDisplay>();
    testing::TempFolder folder;
};

TEST_F(CursorRecorderTest, ClicksOutsideTheSourceAreNotClicksButThePointerIsStillSampled) {
    auto recorder = make();
    recorder->recordClick();  // at (200, 150): inside
    display->movePointer({50, 40});
    recorder->recordClick();
    recorder->sample();
    ASSERT_EQ(recorder->track().clicks.size(), 1u);
    EXPECT_DOUBLE_EQ(recorder->track().clicks[0].x, 0.25);
    EXPECT_DOUBLE_EQ(recorder->track().clicks[0].y, 0.25);
    ASSERT_FALSE(recorder->track().samples.empty());
    EXPECT_DOUBLE_EQ(recorder->track().samples.back().x, -0.125);
}

TEST_F(CursorRecorderTest, TypingFallsBackToTheLastClickThenToThePointer) {
    auto recorder = make();
    recorder->recordTyping();  // no caret, no click: the pointer
    recorder->recordClick();
    display->movePointer({500, 300});
    recorder->recordTyping();  // the click
    ASSERT_EQ(recorder->track().typing->size(), 2u);
    EXPECT_DOUBLE_EQ((*recorder->track().typing)[0].x, 0.25);
    EXPECT_DOUBLE_EQ((*recorder->track().typing)[1].x, 0.25);
    EXPECT_DOUBLE_EQ((*recorder->track().typing)[1].y, 0.25);
}

TEST_F(CursorRecorderTest, FastTypingLooksTheCaretUpOnceAndLaterKeysUseIt) {
    auto caret = std::make_unique<FixedCaret>(Rect{298, 190, 4, 20});
    FixedCaret* locator = caret.get();
    auto recorder = make(std::move(caret));
    for (int i = 0; i < 5; ++i) {
        recorder->recordTyping();
    }
    pumpUntil([&] { return locator->lookups > 0; });
    // The answer hops from the caret queue to the main queue.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    main.runPending();
    recorder->recordTyping();
    EXPECT_EQ(locator->lookups, 1);
    const auto& typing = *recorder->track().typing;
    ASSERT_EQ(typing.size(), 6u);
    EXPECT_DOUBLE_EQ(typing.back().x, 0.5);
    EXPECT_DOUBLE_EQ(typing.back().y, 0.5);
}

TEST_F(CursorRecorderTest, AnAgentClickHoldsThePointerWhereTheAgentActed) {
    auto recorder = make();
    recorder->inject({0.9, 0.1}, true);
    recorder->sample();
    ASSERT_EQ(recorder->track().clicks.size(), 1u);
    EXPECT_DOUBLE_EQ(recorder->track().samples.back().x, 0.9);
    std::this_thread::sleep_for(std::chrono::milliseconds(800));
    recorder->sample();
    EXPECT_DOUBLE_EQ(recorder->track().samples.back().x, 0.25);
}

TEST_F(CursorRecorderTest, WhileTheAgentDrivesItsCursorIsRecordedAndUserClicksAreNot) {
    std::optional<Point> agent = Point{0.75, 0.5};
    CursorRecorder::Sources sources;
    sources.geometry = [] { return std::optional<Rect>(Rect{100, 100, 400, 200}); };
    sources.agentPointer = [&] { return agent; };
    CursorRecorder recorder(display, main, sources);
    recorder.begin(folder.path(), true, 1, 0);
    recorder.sample();
    recorder.recordClick();
    agent.reset();  // the user takes the pointer back
    recorder.sample();
    const auto& track = recorder.track();
    ASSERT_EQ(track.samples.size(), 2u);
    EXPECT_DOUBLE_EQ(track.samples[0].x, 0.75);
    EXPECT_DOUBLE_EQ(track.samples[1].x, 0.25);
    EXPECT_TRUE(track.clicks.empty());
    ASSERT_TRUE(track.shapes);
    ASSERT_EQ(track.shapes->size(), 2u);
    EXPECT_EQ((*track.shapes)[0].width, 16);  // the AI cursor's own arrow
    EXPECT_EQ((*track.shapes)[0].hotX, 1);
    EXPECT_NE(track.samples[0].c, track.samples[1].c);
}

TEST_F(CursorRecorderTest, EachCursorPictureIsWrittenOnce) {
    auto recorder = make();
    recorder->sample();
    display->cursorSerial = 2;
    recorder->sample();
    display->cursorSerial = 1;  // the first picture again, under a new serial
    recorder->sample();
    auto track = recorder->finish();
    ASSERT_TRUE(track);
    ASSERT_TRUE(track->shapes);
    ASSERT_EQ(track->shapes->size(), 2u);
    EXPECT_EQ(track->samples[0].c, 1);
    EXPECT_EQ(track->samples[1].c, 2);
    EXPECT_EQ(track->samples[2].c, 1);
    EXPECT_TRUE(fs::exists(folder / "cursor-2.png"));
    auto stored = project::loadCursorTrack(folder.path());
    ASSERT_TRUE(stored && *stored);
    EXPECT_EQ(**stored, *track);
}

}  // namespace
}  // namespace quillo::capture
