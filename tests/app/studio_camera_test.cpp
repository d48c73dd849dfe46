// The webcam beside a recording: the camera recorder's own code path on a libavdevice test source
// standing in for the device (QUILLO_CAMERA_SOURCE), driven through the studio's lifecycle.

#include <chrono>
#include <cmath>
#include <thread>

#include <gtest/gtest.h>

#include "app/studio_model.h"
#include "base/files.h"
#include "base/main_queue.h"
#include "capture/capture_session.h"
#include "media/movie_info.h"
#include "project/camera_sync.h"
#include "project/edits_json.h"
#include "studio_fixture.h"

namespace quillo::app {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class StudioCamera : public FakeDisplayStudio {
protected:
    void start(const std::string& cameraSource) {
        environment.set("QUILLO_CAMERA_SOURCE", cameraSource);
        startStudio(30ms, [](Preferences& preferences) {
            ASSERT_TRUE(preferences.set(prefs::cameraEnabled, true));
        });
    }
    // Records for `seconds` and returns the saved recording's folder.
    fs::path record(std::chrono::milliseconds length, std::string* during = nullptr) {
        EXPECT_TRUE(studio->shareWindow(4242, ""));
        auto started = studio->startRecording();
        EXPECT_TRUE(started) << started.error().message;
        std::this_thread::sleep_for(length);
        if (during) {
            *during = mainQueue.invoke([&] { return studio->message(); });
        }
        auto saved = studio->stopRecording();
        EXPECT_TRUE(saved) << saved.error().message;
        return saved ? fs::path((*saved)["id"].get<std::string>()) : fs::path();
    }
};

TEST_F(StudioCamera, TheCameraIsRecordedBesideTheScreenAndLinedUpWithIt) {
    // A small, cheap picture, so that a loaded machine still makes it in real time.
    start("lavfi:testsrc2=size=320x180:rate=15,realtime");
    const fs::path folder = record(2000ms);
    ASSERT_FALSE(folder.empty());
    auto screen = media::readMovieInfo(folder / "recording.mp4");
    auto camera = media::readMovieInfo(folder / "camera.mov");
    ASSERT_TRUE(screen);
    ASSERT_TRUE(camera) << camera.error().message;
    EXPECT_EQ(camera->videoSize, (Size{320, 180}));
    ASSERT_TRUE(fs::exists(folder / "camera.json"));
    auto sync = project::CameraSync::load(folder);
    ASSERT_TRUE(sync);
    // The camera's first picture came with the screen's first frame (within a camera frame),
    // and both stopped together: the screen's end falls on the camera's within a camera frame.
    const double lead = sync->cameraTime(0);
    EXPECT_GT(lead, -1.0 / 15);
    EXPECT_LT(lead, 2.0);
    EXPECT_NEAR(sync->recordingTime(camera->duration), screen->duration, 1.0 / 15 + 0.005)
        << "camera " << camera->duration << " s from " << lead << " s, screen " << screen->duration
        << " s";
    // The new recipe lays the camera out in the saved style.
    auto text = readFile(folder / "edits.json");
    ASSERT_TRUE(text);
    auto edits = project::decodeEdits(*text);
    ASSERT_TRUE(edits);
    ASSERT_TRUE(edits->camera);
    EXPECT_EQ(edits->camera->layout, project::CameraLayout::BottomRight);
}

TEST_F(StudioCamera, ACameraThatFailsToOpenLeavesTheScreenRecordingWhole) {
    start("lavfi:no_such_source_at_all");
    std::string during;
    const fs::path folder = record(1200ms, &during);
    ASSERT_FALSE(folder.empty());
    EXPECT_NE(during.find("Recording without the camera. Test camera is in use or unavailable."),
              std::string::npos)
        << during;
    auto screen = media::readMovieInfo(folder / "recording.mp4");
    ASSERT_TRUE(screen);
    EXPECT_GT(screen->duration, 0.8);
    EXPECT_FALSE(fs::exists(folder / "camera.mov"));
    EXPECT_FALSE(fs::exists(folder / "camera.json"));
}

}  // namespace
}  // namespace quillo::app
