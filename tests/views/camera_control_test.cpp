// The camera's switch where recording starts, over the camera recorder's own code path on a
// libavdevice test source standing in for a webcam (QUILLO_CAMERA_SOURCE).

#include "views/camera_control.h"

#include <QMenu>
#include <QTest>

#include "app/camera_switch.h"
#include "capture/camera_recorder.h"
#include "views_fixture.h"

namespace quillo::views {
namespace {

class CameraControlTest : public ViewsFixture {
protected:
    void open(const std::string& cameraSource) {
        environment.set("QUILLO_CAMERA_SOURCE", cameraSource);
        cameraSwitch = std::make_unique<app::CameraSwitch>(*preferences, *studio);
        control = std::make_unique<CameraControl>(*studio);
        bubble = std::make_unique<CameraBubble>(*studio);
    }
    void TearDown() override {
        bubble.reset();
        control.reset();
        cameraSwitch.reset();
        ViewsFixture::TearDown();
    }

    std::unique_ptr<app::CameraSwitch> cameraSwitch;
    std::unique_ptr<CameraControl> control;
    std::unique_ptr<CameraBubble> bubble;
};

TEST_F(CameraControlTest, TheSwitchRunsTheCameraAndTheBubbleShowsItsPicture) {
    open("lavfi:testsrc2=size=320x180:rate=15");
    EXPECT_FALSE(control->isChecked());
    EXPECT_TRUE(bubble->isHidden());

    control->click();
    EXPECT_TRUE(preferences->get(app::prefs::cameraEnabled));
    ASSERT_TRUE(QTest::qWaitFor([&] { return bubble->showsPicture(); }, 10000));
    EXPECT_FALSE(bubble->isHidden());
    EXPECT_TRUE(studio->camera().running());

    // The menu offers the default camera and the attached one; choosing it keeps the camera on.
    control->refreshDevices();
    QStringList items;
    for (QAction* action : control->menu()->actions()) {
        if (!action->isSeparator()) {
            items << action->text();
        }
    }
    EXPECT_EQ(items, (QStringList{"Default camera", "Test camera"}));
    control->menu()->actions().back()->trigger();
    EXPECT_EQ(preferences->get(app::prefs::cameraDevice),
              std::optional<std::string>("testsrc2=size=320x180:rate=15"));
    EXPECT_TRUE(QTest::qWaitFor([&] { return studio->camera().running(); }, 5000));

    // Switched off elsewhere (the settings, or the file): the switch and the bubble follow.
    ASSERT_TRUE(preferences->set(app::prefs::cameraEnabled, false));
    EXPECT_FALSE(control->isChecked());
    ASSERT_TRUE(QTest::qWaitFor([&] { return !studio->camera().running(); }, 5000));
    EXPECT_TRUE(QTest::qWaitFor([&] { return bubble->isHidden(); }, 2000));
    EXPECT_FALSE(bubble->showsPicture());
}

TEST_F(CameraControlTest, ACameraThatWontOpenTurnsTheSwitchBackOffWithTheReason) {
    open("lavfi:no_such_source_at_all");
    control->click();
    ASSERT_TRUE(QTest::qWaitFor([&] { return !control->isChecked(); }, 10000));
    EXPECT_FALSE(preferences->get(app::prefs::cameraEnabled));
    EXPECT_TRUE(studio->hasError());
    EXPECT_EQ(studio->message(), "Test camera is in use or unavailable.");
    EXPECT_FALSE(studio->camera().running());
    EXPECT_TRUE(bubble->isHidden());
}

}  // namespace
}  // namespace quillo::views
