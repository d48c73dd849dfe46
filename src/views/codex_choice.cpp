#include "codex_choice.h"

#include <thread>

#include <QFileDialog>
#include <QMessageBox>

#include "assistant/cli_locator.h"

namespace quillo::views {

CodexChoice::CodexChoice(app::Preferences& preferences, QWidget* parent)
    : QComboBox(parent), m_preferences(preferences) {
    setAccessibleName(tr("Codex command"));
    refuse = [this](const QString& problem, const QString& advice) {
        QMessageBox box(QMessageBox::Warning, tr("Codex"), problem, QMessageBox::Ok, this);
        box.setInformativeText(advice);
        box.exec();
    };
    rebuild();
    connect(this, qOverload<int>(&QComboBox::activated), this, [this](int index) { pick(index); });
    m_observer = m_preferences.addObserver([this] { rebuild(); });
    // The installs, found on a thread of their own (the login shell may take seconds); the menu
    // looks for them a few times a second until they are there. The thread shares nothing but
    // the look-up, so it may outlive the menu.
    auto lookup = std::make_shared<Lookup>();
    m_lookup = lookup;
    std::thread([lookup] {
        auto installs = assistant::CodexLocator().installs();
        std::lock_guard lock(lookup->mutex);
        lookup->found = std::move(installs);
    }).detach();
    m_poll.setInterval(200);
    connect(&m_poll, &QTimer::timeout, this, [this] { collect(); });
    m_poll.start();
}

CodexChoice::~CodexChoice() { m_preferences.removeObserver(m_observer); }

void CodexChoice::collect() {
    std::optional<std::vector<assistant::CodexLocator::Install>> installs;
    {
        std::lock_guard lock(m_lookup->mutex);
        installs.swap(m_lookup->found);
    }
    if (!installs) {
        return;
    }
    m_poll.stop();
    m_found.clear();
    for (const auto& install : *installs) {
        m_found.push_back(
            {QString::fromStdString(install.label), QString::fromStdString(install.path.string())});
    }
    rebuild();
}

void CodexChoice::rebuild() {
    const std::optional<std::string> chosen = m_preferences.get(app::prefs::codexPath);
    const QString current = chosen ? QString::fromStdString(*chosen) : QString();
    m_building = true;
    clear();
    addItem(tr("Automatic"), QString());
    bool listed = current.isEmpty();
    for (const Entry& entry : m_found) {
        addItem(QStringLiteral("%1 (%2)").arg(entry.path, entry.label), entry.path);
        listed = listed || entry.path == current;
    }
    if (!listed) {
        addItem(current, current);
    }
    insertSeparator(count());
    addItem(tr("Choose…"), QStringLiteral("\x01choose"));
    setCurrentIndex(std::max(0, findData(current)));
    m_building = false;
}

void CodexChoice::pick(int index) {
    if (m_building) {
        return;
    }
    const QString data = itemData(index).toString();
    if (data == QStringLiteral("\x01choose")) {
        const QString picked = QFileDialog::getOpenFileName(this, tr("Choose the codex command"));
        if (picked.isEmpty() || !choose(picked)) {
            rebuild();
        }
        return;
    }
    (void)m_preferences.set(app::prefs::codexPath, data.isEmpty()
                                                       ? std::optional<std::string>()
                                                       : std::optional(data.toStdString()));
}

bool CodexChoice::choose(const QString& picked) {
    const auto check = assistant::CodexLocator::checkPicked(picked.toStdString());
    if (!check.command) {
        if (refuse) {
            refuse(QString::fromStdString(check.problem), QString::fromStdString(check.advice));
        }
        return false;
    }
    (void)m_preferences.set(app::prefs::codexPath, std::optional(check.command->string()));
    return true;
}

}  // namespace quillo::views
