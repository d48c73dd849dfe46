#pragma once

#include <atomic>

#include <QDialog>

#include "app/preferences.h"

class QLabel;
class QListWidget;
class QStackedWidget;

namespace quillo::views {

class SettingsBinder;

// The settings window: pages listed on the left (General, Recording, Editing, Agents,
// Assistant), every change written at once. A change made elsewhere (another window, an agent,
// another process rewriting preferences.json) shows up in the open window. Thread: the GUI
// thread; the preferences' observer may be called on others and hops over.
class SettingsDialog : public QDialog {
    Q_OBJECT

public:
    SettingsDialog(app::Preferences& preferences, QWidget* parent = nullptr);
    ~SettingsDialog() override;

    QListWidget* pageList() const { return m_pageList; }
    // Shows page `index` (0 General … 4 Assistant).
    void showPage(int index);

private:
    void showError(const QString& message);

    app::Preferences& m_preferences;
    SettingsBinder* m_binder = nullptr;
    QListWidget* m_pageList = nullptr;
    QStackedWidget* m_pages = nullptr;
    QLabel* m_error = nullptr;
    int m_observer = 0;
    std::atomic<bool> m_reloadQueued{false};  // a reload is posted and has not run yet
};

}  // namespace quillo::views
