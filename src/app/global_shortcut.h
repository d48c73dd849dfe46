#pragma once

#include <memory>
#include <optional>
#include <string>

#include "base/main_queue.h"
#include "capture/display_backend.h"
#include "preferences.h"
#include "studio_model.h"

namespace quillo::app {

// The desktop-wide record shortcut of the "recordShortcut" setting: a press anywhere toggles the
// recording, as the Record button does. Registered at once and again whenever the setting
// changes; when another app holds the keys the studio says so. Sessions without global keys
// (Wayland) register nothing. Make and destroy it on the main queue's thread.
class GlobalShortcut {
public:
    GlobalShortcut(Preferences& preferences, capture::DisplayBackend& backend, StudioModel& studio,
                   MainQueue& mainQueue);
    ~GlobalShortcut();
    GlobalShortcut(const GlobalShortcut&) = delete;
    GlobalShortcut& operator=(const GlobalShortcut&) = delete;

    // The shortcut registered now, if any.
    std::optional<RecordShortcut> registered() const { return m_registered; }

private:
    void apply();

    Preferences& m_preferences;
    StudioModel& m_studio;
    MainQueue& m_main;
    std::unique_ptr<capture::GlobalKeys> m_keys;
    std::optional<int> m_grab;
    std::optional<RecordShortcut> m_registered;
    std::optional<RecordShortcut> m_refused;  // said once, until the setting changes
    PreferenceStore::ObserverId m_observer{};
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};

}  // namespace quillo::app
