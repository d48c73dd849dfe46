#include "global_shortcut.h"

#include "base/log.h"
#include "record_shortcut.h"
#include "studio_texts.h"

namespace quillo::app {

GlobalShortcut::GlobalShortcut(Preferences& preferences, capture::DisplayBackend& backend,
                               StudioModel& studio, MainQueue& mainQueue)
    : m_preferences(preferences), m_studio(studio), m_main(mainQueue) {
    if (auto keys = backend.globalKeys()) {
        m_keys = std::move(*keys);
    } else {
        logInfo("app.quillo.studio", "no global record shortcut: " + keys.error().message);
        return;
    }
    apply();
    m_observer = m_preferences.addObserver([this] { apply(); });
}

GlobalShortcut::~GlobalShortcut() {
    *m_alive = false;
    if (m_keys) {
        m_preferences.removeObserver(m_observer);
    }
    m_keys.reset();  // joins the keys' thread: no press arrives after this
}

void GlobalShortcut::apply() {
    RecordShortcut wanted = m_preferences.get(prefs::recordShortcut);
    if (m_registered == wanted || m_refused == wanted) {
        return;
    }
    if (m_grab) {
        m_keys->release(*m_grab);
        m_grab.reset();
        m_registered.reset();
    }
    ShortcutKeys keys = shortcutKeys(wanted);
    capture::KeyChord chord{static_cast<uint32_t>(keys.key), keys.ctrl, keys.shift, keys.alt,
                            keys.super};
    std::weak_ptr<bool> alive = m_alive;
    auto grabbed = m_keys->grab(chord, [this, alive] {
        m_main.post([this, alive] {
            if (auto flag = alive.lock(); flag && *flag) {
                m_studio.toggleRecording();
            }
        });
    });
    if (!grabbed) {
        m_refused = wanted;
        m_studio.showMessage(std::string(shortcutLabel(wanted)) + texts::kShortcutTaken, true);
        return;
    }
    m_refused.reset();
    m_grab = *grabbed;
    m_registered = wanted;
}

}  // namespace quillo::app
