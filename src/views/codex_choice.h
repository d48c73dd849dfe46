#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include <QComboBox>
#include <QTimer>

#include "app/preferences.h"
#include "assistant/cli_locator.h"

namespace quillo::views {

// Settings › Assistant's "Codex:" menu: Automatic, every codex found on this machine (looked
// up off the GUI thread: the login shell may take seconds), the chosen one when it is none of
// those, and "Choose…", which takes a codex file or a folder holding one and refuses anything
// else with the reason. Writes "codexPath" (Automatic: none).
class CodexChoice : public QComboBox {
    Q_OBJECT

public:
    explicit CodexChoice(app::Preferences& preferences, QWidget* parent = nullptr);
    ~CodexChoice() override;

    // Takes a picked file or folder as the Settings choice; false (and the reason shown) when it
    // is no codex command.
    bool choose(const QString& picked);
    // Replaced in tests: shows why a pick was refused.
    std::function<void(const QString& problem, const QString& advice)> refuse;

private:
    struct Entry {
        QString label;
        QString path;  // empty: Automatic
    };
    struct Lookup {
        std::mutex mutex;
        std::optional<std::vector<assistant::CodexLocator::Install>> found;
    };
    void rebuild();
    void pick(int index);
    void collect();

    app::Preferences& m_preferences;
    std::vector<Entry> m_found;  // the installs found so far
    PreferenceStore::ObserverId m_observer{};
    std::shared_ptr<Lookup> m_lookup;
    QTimer m_poll;
    bool m_building = false;
};

}  // namespace quillo::views
