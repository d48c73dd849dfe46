#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/agent_tools.h"
#include "agent/control_server.h"
#include "base/main_queue.h"
#include "camera_switch.h"
#include "capture/display_backend.h"
#include "global_shortcut.h"
#include "preferences.h"
#include "project/project_library.h"
#include "recovery.h"
#include "studio_model.h"

namespace quillo::app {

// What every running Quillo holds, with or without windows: the preferences, the library (with
// recordings a crash left completed first), the capture backend, the studio model, the agent
// tool table and the control server that follows the "agentServerEnabled" setting.
class AppRuntime {
public:
    // Sets everything up on the calling thread, which runs `mainQueue` (the studio model is made
    // there). `selfTest` is the QUILLO_SELFTEST mode.
    explicit AppRuntime(MainQueue& mainQueue);
    ~AppRuntime();
    AppRuntime(const AppRuntime&) = delete;
    AppRuntime& operator=(const AppRuntime&) = delete;

    Preferences& preferences() { return m_preferences; }
    StudioModel& studio() { return *m_studio; }
    std::shared_ptr<StudioModel> studioPointer() { return m_studio; }
    const Recovery& recovery() const { return m_recovery; }
    const capture::DisplayBackend& backend() const { return *m_backend; }
    agent::ControlServer& server() { return m_server; }
    // How many recordings the library listed at start, or none when it could not be read.
    std::optional<size_t> recordingCount() const { return m_count; }
    // Registers the global record shortcut (a windowed Quillo, never in self-test mode).
    void enableGlobalShortcut();
    const GlobalShortcut* globalShortcut() const { return m_shortcut.get(); }
    // Runs the webcam for the studio's live picture while the camera setting is on.
    void enableCameraPreview();
    // The lines printed at start in a terminal: library, recovery, capture and agent server.
    std::vector<std::string> summary() const;

private:
    void applyServerSetting();

    Preferences& m_preferences;
    Recovery m_recovery;
    std::optional<size_t> m_count;
    std::shared_ptr<capture::DisplayBackend> m_backend;
    std::shared_ptr<StudioModel> m_studio;
    std::shared_ptr<agent::AgentTools> m_tools;
    agent::ControlServer m_server;
    PreferenceStore::ObserverId m_observer{};
    MainQueue& m_main;
    std::unique_ptr<GlobalShortcut> m_shortcut;
    std::unique_ptr<CameraSwitch> m_cameraSwitch;
};

}  // namespace quillo::app
