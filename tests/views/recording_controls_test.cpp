// The countdown and the floating recording controls over a studio recording from a display
// made of plain values: they follow the model, and their buttons act through it.

#include <QTest>
#include <QToolButton>

#include "app/studio_texts.h"
#include "support/fake_display.h"
#include "views/recording_overlays.h"
#include "views_fixture.h"

namespace quillo::views {
namespace {

using app::RecordingState;

class RecordingOverlaysTest : public ::testing::Test {
protected:
    void SetUp() override {
        testing::isolateHome(environment, home.path());
        environment.set("QUILLO_SELFTEST", "1");
        environment.set("PULSE_SERVER", "unix:/nonexistent");
        store = std::make_unique<PreferenceStore>(home / "preferences.json");
        preferences = std::make_unique<app::Preferences>(*store);
        ASSERT_TRUE(preferences->set(app::prefs::countdown, int64_t{0}));
        ASSERT_TRUE(preferences->set(app::prefs::systemAudio, false));
        ASSERT_TRUE(preferences->set(app::prefs::openAfterRecording, false));
        display->setWindows({{7, "Notes", "notes", 4242, {100, 100, 640, 360}}});
        studio = std::make_unique<app::StudioModel>(project::ProjectLibrary(home / "Library"),
                                                    MainQueue::shared(), *preferences, display);
        overlays = std::make_unique<RecordingOverlays>(*studio);
        ASSERT_TRUE(studio->shareWindow(4242, ""));
    }
    void TearDown() override {
        overlays.reset();
        studio.reset();
    }

    bool reaches(RecordingState state) {
        return QTest::qWaitFor([&] { return studio->state() == state; }, 10000);
    }
    void record() {
        studio->toggleRecording();
        ASSERT_TRUE(reaches(RecordingState::Recording));
        display->screenSerial++;
    }

    testing::TempFolder home;
    testing::ScopedEnvironment environment;
    std::unique_ptr<PreferenceStore> store;
    std::unique_ptr<app::Preferences> preferences;
    std::shared_ptr<testing::FakeDisplay> display = std::make_shared<testing::FakeDisplay>();
    std::unique_ptr<app::StudioModel> studio;
    std::unique_ptr<RecordingOverlays> overlays;
};

TEST_F(RecordingOverlaysTest, TheControlsFollowTheModelAndDiscardAsksFirst) {
    RecordingControls& controls = overlays->controls();
    EXPECT_FALSE(controls.isVisible());
    record();
    ASSERT_TRUE(controls.isVisible());
    EXPECT_FALSE(controls.geometry().intersects(QRect(100, 100, 640, 360)))
        << "placed beside the shared window";

    QToolButton* pause = named<QToolButton>(controls, "Pause Recording");
    ASSERT_TRUE(pause);
    pause->click();
    EXPECT_TRUE(studio->paused());
    EXPECT_EQ(pause->accessibleName(), "Resume Recording");
    pause->click();
    EXPECT_FALSE(studio->paused());
    EXPECT_EQ(pause->accessibleName(), "Pause Recording");

    // Discard asks first; keeping the recording leaves it running.
    named<QToolButton>(controls, "Discard Recording")->click();
    ASSERT_TRUE(controls.asking());
    EXPECT_EQ(studio->state(), RecordingState::Recording);
    EXPECT_FALSE(pause->isVisible());
    named<QToolButton>(controls, "Keep Recording")->click();
    EXPECT_FALSE(controls.asking());
    EXPECT_TRUE(pause->isVisible());
    EXPECT_EQ(studio->state(), RecordingState::Recording);

    named<QToolButton>(controls, "Discard Recording")->click();
    named<QToolButton>(controls, "Discard")->click();
    ASSERT_TRUE(reaches(RecordingState::Idle));
    EXPECT_EQ(studio->message(), app::texts::kDiscarded);
    EXPECT_FALSE(controls.isVisible());
    EXPECT_FALSE(studio->lastSaved());

    // Stop saves; the controls come back where they were dragged to.
    record();
    QPoint before = controls.pos();
    QTest::mousePress(&controls, Qt::LeftButton, {}, QPoint(8, 20));
    QTest::mouseMove(&controls, QPoint(8, 10));
    QTest::mouseRelease(&controls, Qt::LeftButton, {}, QPoint(8, 10));
    QPoint dragged = controls.pos();
    EXPECT_EQ(dragged, before + QPoint(0, -10));
    named<QToolButton>(controls, "Stop Recording")->click();
    ASSERT_TRUE(reaches(RecordingState::Idle));
    EXPECT_EQ(studio->message(), app::texts::kSaved);
    EXPECT_FALSE(controls.isVisible());
    record();
    EXPECT_EQ(controls.pos(), dragged);
    studio->stop();
    ASSERT_TRUE(reaches(RecordingState::Idle));

    ASSERT_TRUE(preferences->set(app::prefs::floatingControls, false));
    record();
    EXPECT_FALSE(controls.isVisible()) << "turned off in the options";
    studio->stop();
    ASSERT_TRUE(reaches(RecordingState::Idle));
}

TEST_F(RecordingOverlaysTest, TheCountdownShowsTheSecondsAndItsCancelStopsIt) {
    ASSERT_TRUE(preferences->set(app::prefs::countdown, int64_t{3}));
    CountdownOverlay& countdown = overlays->countdown();
    studio->toggleRecording();
    ASSERT_EQ(studio->state(), RecordingState::CountingDown);
    ASSERT_TRUE(countdown.isVisible());
    EXPECT_EQ(countdown.value(), 3);
    EXPECT_TRUE(countdown.windowFlags().testFlag(Qt::WindowTransparentForInput));
    EXPECT_TRUE(QTest::qWaitFor([&] { return countdown.value() == 2; }, 3000));
    countdown.cancel();
    EXPECT_EQ(studio->state(), RecordingState::Idle);
    EXPECT_EQ(studio->message(), app::texts::kCountdownCancelled);
    EXPECT_FALSE(countdown.isVisible());

    // Run out, it is gone before the recording starts.
    ASSERT_TRUE(preferences->set(app::prefs::countdown, int64_t{1}));
    bool shownWhenStarting = true;
    int watch = studio->changed.connect([&] {
        if (studio->state() == RecordingState::Starting) {
            shownWhenStarting = countdown.isVisible();
        }
    });
    studio->toggleRecording();
    EXPECT_TRUE(countdown.isVisible());
    ASSERT_TRUE(reaches(RecordingState::Recording));
    studio->changed.disconnect(watch);
    EXPECT_FALSE(shownWhenStarting);
    studio->stop();
    ASSERT_TRUE(reaches(RecordingState::Idle));
}

}  // namespace
}  // namespace quillo::views
