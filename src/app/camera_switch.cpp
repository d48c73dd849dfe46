#include "camera_switch.h"

namespace quillo::app {

CameraSwitch::CameraSwitch(Preferences& preferences, StudioModel& studio)
    : m_preferences(preferences), m_studio(studio), m_camera(studio.camera()) {
    m_camera.onMessage = [this](const std::string& message) { turnedOff(message); };
    apply();
    m_observer = m_preferences.addObserver([this] { apply(); });
}

CameraSwitch::~CameraSwitch() {
    *m_alive = false;
    m_preferences.removeObserver(m_observer);
    m_camera.onMessage = nullptr;
    if (m_applied && m_applied->on) {
        m_camera.setEnabled(std::nullopt, false);
    }
}

void CameraSwitch::apply() {
    Wanted wanted{m_preferences.get(prefs::cameraEnabled), m_preferences.get(prefs::cameraDevice)};
    if (!wanted.on) {
        wanted.device.reset();  // the device matters only while the camera is on
    }
    if (m_applied == wanted) {
        return;
    }
    m_applied = wanted;
    std::weak_ptr<bool> alive = m_alive;
    m_camera.setEnabled(wanted.device, wanted.on, [this, alive, wanted](Result<void> done) {
        auto flag = alive.lock();
        if (done || !flag || !*flag || m_applied != wanted) {
            return;
        }
        turnedOff(done.error().message);
    });
}

void CameraSwitch::turnedOff(const std::string& message) {
    m_studio.showMessage(message, true);
    if (m_preferences.get(prefs::cameraEnabled)) {
        (void)m_preferences.set(prefs::cameraEnabled, false);
    }
}

}  // namespace quillo::app
