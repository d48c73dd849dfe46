#pragma once

#include <map>
#include <string>

#include <QAction>
#include <QLabel>
#include <QMainWindow>
#include <QPointer>
#include <QSplitter>
#include <QTabWidget>

#include "app/studio_model.h"
#include "assistant/assistant_model.h"

namespace quillo::views {

class AssistantPane;
class EditorView;
class LibraryView;
class RecordingBar;
class SettingsDialog;

// The studio window: the library as the first tab, one editor tab per open recording (in the
// studio model's tab order), the menus and the studio's status line; with an assistant, its chat
// pane on the right, shown by View › Assistant.
class StudioWindow : public QMainWindow {
    Q_OBJECT

public:
    // `assistant` (none: no chat pane) outlives the window.
    explicit StudioWindow(app::StudioModel& studio, assistant::AssistantModel* assistant = nullptr,
                          QWidget* parent = nullptr);
    ~StudioWindow() override;

    LibraryView& library() { return *m_library; }
    // The source, its live preview and the Record button, above the tabs.
    RecordingBar& recordingBar() { return *m_bar; }
    // "Record": starts, cancels the countdown or stops, for menus elsewhere.
    QAction* recordAction() const;
    // The editor tab of a recording, if it is open.
    EditorView* editorView(const std::string& id) const;
    // The editor tab shown now, if any.
    EditorView* currentEditor() const;
    // The assistant's chat pane; none without an assistant.
    AssistantPane* assistantPane() const { return m_assistantPane; }
    QAction* assistantAction() const { return m_assistantAction; }
    void openSettings();
    // Brings the window to the front, from a minimised or hidden state too.
    void showStudio();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildMenus();
    void syncTabs();
    void updateActions();
    void showStatus();
    // The pause command and the record shortcut follow the recording and the settings.
    void followRecording();
    // Shows or hides the chat pane as the "assistantOpen" setting says.
    void followAssistantSetting();

    app::StudioModel& m_studio;
    RecordingBar* m_bar;
    QTabWidget* m_tabs;
    QSplitter* m_split;
    AssistantPane* m_assistantPane = nullptr;
    QAction* m_assistantAction = nullptr;
    LibraryView* m_library;
    QLabel* m_status;
    std::map<std::string, QPointer<EditorView>> m_editors;
    QPointer<SettingsDialog> m_settings;
    QAction* m_pause = nullptr;
    QAction* m_undo = nullptr;
    QAction* m_redo = nullptr;
    QAction* m_delete = nullptr;
    QAction* m_export = nullptr;
    QAction* m_closeTab = nullptr;
    bool m_syncing = false;
    bool m_quitAllowed = false;
    int m_tabsConnection = 0;
    int m_changedConnection = 0;
    PreferenceStore::ObserverId m_preferencesObserver{};
};

}  // namespace quillo::views
