#pragma once

#include <memory>
#include <optional>
#include <string>

#include "capture/camera_recorder.h"
#include "preferences.h"
#include "studio_model.h"

namespace quillo::app {

// Keeps the webcam running while "cameraEnabled" is on, with the camera of "cameraDevice", so
// the studio can show its live picture before a recording starts. A camera that cannot be
// turned on, or that stops by itself, turns the setting off and the studio shows why. Make and
// destroy it on the main queue's thread.
class CameraSwitch {
public:
    CameraSwitch(Preferences& preferences, StudioModel& studio);
    ~CameraSwitch();
    CameraSwitch(const CameraSwitch&) = delete;
    CameraSwitch& operator=(const CameraSwitch&) = delete;

private:
    struct Wanted {
        bool on = false;
        std::optional<std::string> device;
        bool operator==(const Wanted&) const = default;
    };
    void apply();
    void turnedOff(const std::string& message);

    Preferences& m_preferences;
    StudioModel& m_studio;
    capture::CameraRecorder& m_camera;
    std::optional<Wanted> m_applied;
    PreferenceStore::ObserverId m_observer{};
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};

}  // namespace quillo::app
