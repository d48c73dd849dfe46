#pragma once

#include <functional>

#include <QAction>
#include <QIcon>
#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>

#include "app/studio_model.h"

namespace quillo::views {

// The panel icon while Quillo runs ("showMenuBarIcon"): its picture and tooltip follow the
// recording (idle, recording with the elapsed time, paused), and its menu holds the source, the
// record and pause commands, the source choices, settings, the studio window and quit.
class RecordingTray : public QObject {
    Q_OBJECT

public:
    struct Hooks {
        std::function<void(bool window)> chooseSource;  // the sharing picker for a window/display
        std::function<void()> openSettings;
        std::function<void()> showStudio;
        std::function<void()> quit;
    };

    RecordingTray(app::StudioModel& studio, Hooks hooks, QObject* parent = nullptr);
    ~RecordingTray() override;

    QSystemTrayIcon& icon() { return m_icon; }
    QMenu& menu() { return m_menu; }

    // The pictures for each state, drawn here so that they match any panel.
    enum class Look { Idle, Recording, Paused };
    static QIcon picture(Look look);

private:
    void update();
    void applyVisibility();

    app::StudioModel& m_studio;
    Hooks m_hooks;
    QSystemTrayIcon m_icon;
    QMenu m_menu;
    QAction* m_source;
    QAction* m_record;
    QAction* m_pause;
    Look m_look = Look::Idle;
    int m_changed = 0;
    PreferenceStore::ObserverId m_observer{};
};

}  // namespace quillo::views
