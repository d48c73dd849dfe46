// The recording lifecycle over a display made of plain values and the real movie writer: the
// model is driven the way the agent tools drive it, from a worker thread.

#include <chrono>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "agent/demo_markers.h"
#include "app/recovery.h"
#include "app/studio_model.h"
#include "app/studio_texts.h"
#include "base/files.h"
#include "base/main_queue.h"
#include "base/paths.h"
#include "capture/capture_session.h"
#include "project/edits_json.h"
#include "studio_fixture.h"

namespace quillo::app {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class StudioRecording : public FakeDisplayStudio {
protected:
    void SetUp() override { startStudio(100ms); }  // the screen changes ten times a second

    template <class F>
    auto onMain(F work) {
        return mainQueue.invoke(work);
    }
    project::Edits savedEdits(const std::string& id) {
        auto text = readFile(fs::path(id) / "edits.json");
        EXPECT_TRUE(text);
        return text ? project::decodeEdits(*text).value() : project::Edits{};
    }
};

TEST_F(StudioRecording, PausesBecomeCutsAndShortOnesLeaveNone) {
    ASSERT_TRUE(studio->shareWindow(4242, ""));
    auto started = studio->startRecording();
    ASSERT_TRUE(started) << started.error().message;
    std::this_thread::sleep_for(500ms);
    ASSERT_TRUE(studio->setPaused(true));
    std::this_thread::sleep_for(1200ms);
    ASSERT_TRUE(studio->setPaused(false));
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(studio->setPaused(true));
    std::this_thread::sleep_for(50ms);
    ASSERT_TRUE(studio->setPaused(false));
    std::this_thread::sleep_for(300ms);
    // A pause still open at stop is closed first.
    ASSERT_TRUE(studio->setPaused(true));
    std::this_thread::sleep_for(400ms);
    auto saved = studio->stopRecording();
    ASSERT_TRUE(saved) << saved.error().message;
    EXPECT_EQ((*saved)["message"], texts::kSaved);

    project::Edits edits = savedEdits((*saved)["id"]);
    ASSERT_TRUE(edits.segments);
    ASSERT_EQ(edits.segments->size(), 2u);
    const auto& first = (*edits.segments)[0];
    EXPECT_EQ(first.speed, 0);
    EXPECT_NEAR(first.end - first.start, 1.2, 0.1);
    EXPECT_NEAR((*edits.segments)[1].end, (*saved)["duration"].get<double>(), 0.1);
    EXPECT_FALSE(fs::exists(fs::path((*saved)["id"].get<std::string>()) / kRecordingMark));
    EXPECT_TRUE(fs::exists(fs::path((*saved)["id"].get<std::string>()) / "cursor.json"));
}

TEST_F(StudioRecording, ARetakeCutsBackToTheStepsMarker) {
    ASSERT_TRUE(studio->shareWindow(4242, ""));
    ASSERT_TRUE(studio->startRecording());
    EXPECT_FALSE(studio->retakeStep());  // no step marked yet
    std::this_thread::sleep_for(400ms);
    auto now = studio->recordingNow();
    ASSERT_TRUE(now);
    ASSERT_TRUE(agent::markers::add("Step", now->second, now->first));
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(studio->setPaused(true));  // the step ended paused
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(studio->setPaused(false));
    std::this_thread::sleep_for(300ms);  // the failed attempt
    auto retaken = studio->retakeStep();
    ASSERT_TRUE(retaken) << retaken.error().message;
    std::this_thread::sleep_for(300ms);
    ASSERT_TRUE(studio->setPaused(false));
    std::this_thread::sleep_for(300ms);
    auto saved = studio->stopRecording();
    ASSERT_TRUE(saved);
    project::Edits edits = savedEdits((*saved)["id"]);
    ASSERT_TRUE(edits.segments);
    ASSERT_EQ(edits.segments->size(), 1u);
    EXPECT_NEAR((*edits.segments)[0].start, now->second, 0.01);
    EXPECT_NEAR((*edits.segments)[0].end - (*edits.segments)[0].start, 1.2, 0.1);
}

TEST_F(StudioRecording, StopWhileStartingStopsAtTheFirstFrame) {
    ASSERT_TRUE(studio->shareWindow(0, "Notes"));
    onMain([&] {
        studio->toggleRecording();
        EXPECT_EQ(studio->state(), RecordingState::Starting);
        studio->toggleRecording();
    });
    for (int i = 0; i < 200 && onMain([&] { return studio->state(); }) != RecordingState::Idle;
         ++i) {
        std::this_thread::sleep_for(20ms);
    }
    EXPECT_EQ(onMain([&] { return studio->message(); }), texts::kSaved);
    EXPECT_TRUE(onMain([&] { return studio->lastSaved(); }));
}

TEST_F(StudioRecording, RecordNeedsASourceAndTheCountdownCanBeCancelled) {
    onMain([&] { studio->toggleRecording(); });
    EXPECT_EQ(onMain([&] { return studio->message(); }),
              "Choose a window or display first, then press Ctrl+Shift+2 again.");
    EXPECT_TRUE(onMain([&] { return studio->hasError(); }));

    ASSERT_TRUE(preferences->set(prefs::countdown, int64_t{3}));
    ASSERT_TRUE(studio->shareWindow(4242, ""));
    onMain([&] {
        studio->toggleRecording();
        EXPECT_EQ(studio->state(), RecordingState::CountingDown);
        EXPECT_EQ(studio->message(), "Recording starts in 3…");
        studio->toggleRecording();
        EXPECT_EQ(studio->state(), RecordingState::Idle);
        EXPECT_EQ(studio->message(), texts::kCountdownCancelled);
    });
}

TEST_F(StudioRecording, ADiscardedRecordingGoesToTheTrashAndIsNeverListed) {
    ASSERT_TRUE(preferences->set(prefs::openAfterRecording, true));
    ASSERT_TRUE(studio->shareWindow(4242, ""));
    ASSERT_TRUE(studio->startRecording());
    std::this_thread::sleep_for(600ms);
    ASSERT_TRUE(studio->setPaused(true));  // a pause open at the discard is no obstacle
    onMain([&] { studio->discard(); });
    for (int i = 0; i < 200 && onMain([&] { return studio->state(); }) != RecordingState::Idle;
         ++i) {
        std::this_thread::sleep_for(20ms);
    }
    EXPECT_EQ(onMain([&] { return studio->message(); }), texts::kDiscarded);
    EXPECT_FALSE(onMain([&] { return studio->hasError(); }));
    EXPECT_FALSE(onMain([&] { return studio->paused(); }));
    EXPECT_FALSE(onMain([&] { return studio->lastSaved(); }));
    EXPECT_FALSE(onMain([&] { return studio->openRecording(); }));
    EXPECT_TRUE(onMain([&] { return studio->projects(); }).empty());
    std::vector<fs::path> left;
    for (const auto& entry : fs::directory_iterator(home / "Library")) {
        left.push_back(entry.path());
    }
    EXPECT_TRUE(left.empty());
    // The movie was finished before it went: the Trash holds a whole recording.
    std::vector<fs::path> trashed;
    for (const auto& entry : fs::directory_iterator(dataHome() / "Trash" / "files")) {
        trashed.push_back(entry.path());
    }
    ASSERT_EQ(trashed.size(), 1u);
    EXPECT_GT(fs::file_size(trashed[0] / "recording.mp4"), 0u);
    EXPECT_FALSE(fs::exists(trashed[0] / kRecordingMark));

    // The next recording is saved as usual.
    ASSERT_TRUE(studio->startRecording());
    std::this_thread::sleep_for(300ms);
    auto saved = studio->stopRecording();
    ASSERT_TRUE(saved) << saved.error().message;
    EXPECT_EQ((*saved)["message"], texts::kSaved);
    EXPECT_EQ(onMain([&] {
                  studio->reload();
                  return studio->projects();
              }).size(),
              1u);
}

TEST_F(StudioRecording, QuillosOwnWindowIsRefusedAndTheSourceStays) {
    display->setWindows(
        {{7, "Notes", "notes", 4242, {100, 100, 640, 360}},
         {9, "Quillo", "quillo", static_cast<int32_t>(getpid()), {0, 0, 800, 600}}});
    ASSERT_TRUE(studio->shareWindow(4242, ""));
    auto refused = studio->shareWindow(getpid(), "");
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().message,
              "Quillo can't record its own window. Choose another app's window.");
    EXPECT_EQ(onMain([&] { return studio->source()->id; }), 7u);
}

TEST_F(StudioRecording, ASourceFromTheListIsSharedLikeAPickedOne) {
    using capture::SourceRef;
    display->setWindows(
        {{7, "Notes", "notes", 4242, {100, 100, 640, 360}},
         {9, "Quillo", "quillo", static_cast<int32_t>(getpid()), {0, 0, 800, 600}}});
    onMain([&] {
        int changes = 0;
        int connection = studio->changed.connect([&] { ++changes; });
        ASSERT_TRUE(studio->shareSource({SourceRef::Kind::Display, 0}));
        EXPECT_EQ(studio->source()->kind, "display");
        EXPECT_EQ(studio->sourceSize(), (Size{1280, 800}));
        EXPECT_EQ(studio->message().rfind("Ready. Press Record or Ctrl+Shift+2 from any app.", 0),
                  0u);
        EXPECT_GT(changes, 0);

        // Quillo's own window is refused on the status line, and the display stays chosen.
        auto own = studio->shareSource({SourceRef::Kind::Window, 9});
        ASSERT_FALSE(own);
        EXPECT_EQ(studio->message(), own.error().message);
        EXPECT_TRUE(studio->hasError());
        EXPECT_EQ(studio->source()->kind, "display");
        EXPECT_FALSE(studio->shareSource({SourceRef::Kind::Window, 8}));  // gone

        ASSERT_TRUE(studio->shareSource({SourceRef::Kind::Window, 7}));
        EXPECT_EQ(studio->source()->id, 7u);
        EXPECT_EQ(studio->sourceAppName(), "notes");
        EXPECT_FALSE(studio->hasError());
        studio->changed.disconnect(connection);
    });
    ASSERT_TRUE(studio->startRecording());
    auto during = onMain([&] { return studio->shareSource({SourceRef::Kind::Display, 0}); });
    ASSERT_FALSE(during);
    EXPECT_EQ(during.error().message, "Stop recording before choosing another source.");
    EXPECT_EQ(onMain([&] { return studio->source()->id; }), 7u);
    ASSERT_TRUE(studio->stopRecording());
}

TEST_F(StudioRecording, AWindowClosedWhileRecordingKeepsWhatWasRecorded) {
    ASSERT_TRUE(studio->shareWindow(4242, ""));
    ASSERT_TRUE(studio->startRecording());
    std::this_thread::sleep_for(1s);
    display->setWindows({});
    for (int i = 0; i < 200 && onMain([&] { return studio->state(); }) != RecordingState::Idle;
         ++i) {
        std::this_thread::sleep_for(20ms);
    }
    EXPECT_EQ(onMain([&] { return studio->message(); }),
              "Sharing ended before recording finalized. Any recoverable video remains in the "
              "project folder.");
    auto saved = onMain([&] { return studio->lastSaved(); });
    ASSERT_TRUE(saved);
    auto project = project::LocalProject::open(*saved);
    ASSERT_TRUE(project);
    ASSERT_TRUE(project->metadata.duration);
    EXPECT_GT(*project->metadata.duration, 0.8);
}

TEST_F(StudioRecording, QuitDuringARecordingSavesItFirst) {
    ASSERT_TRUE(studio->shareWindow(4242, ""));
    ASSERT_TRUE(studio->startRecording());
    std::atomic<bool> quit{false};
    onMain([&] {
        studio->onSafeQuit = [&] { quit = true; };
        EXPECT_FALSE(studio->requestQuit());
    });
    for (int i = 0; i < 200 && !quit; ++i) {
        std::this_thread::sleep_for(20ms);
    }
    EXPECT_TRUE(quit);
    EXPECT_TRUE(onMain([&] { return studio->lastSaved(); }));
}

}  // namespace
}  // namespace quillo::app
