// The library as the studio window shows it: the listing, tabs, renaming and the Trash.

#include <algorithm>

#include "studio_model.h"

namespace quillo::app {

void StudioModel::reload() {
    auto listed = m_library.load();
    if (!listed) {
        setMessage("Cannot read recordings: " + listed.error().message, true);
        return;
    }
    m_projects = std::move(*listed);
    std::vector<std::string> gone;
    for (const std::string& id : m_tabs) {
        bool listedNow = std::any_of(m_projects.begin(), m_projects.end(),
                                     [&](const project::LocalProject& p) { return p.id() == id; });
        if (!listedNow) {
            gone.push_back(id);
        }
    }
    for (const std::string& id : gone) {
        forget(id);
    }
    projectsChanged();
}

void StudioModel::closeTab(const std::string& id) {
    auto it = std::find(m_tabs.begin(), m_tabs.end(), id);
    if (it == m_tabs.end()) {
        return;
    }
    std::optional<std::string> next;
    if (m_open == id) {
        size_t index = static_cast<size_t>(it - m_tabs.begin());
        if (index + 1 < m_tabs.size()) {
            next = m_tabs[index + 1];
        } else if (index > 0) {
            next = m_tabs[index - 1];
        }
    }
    bool shown = m_open == id;
    forget(id);
    if (shown && next) {
        (void)open(*next);
    }
}

void StudioModel::showLibrary() {
    if (m_open) {
        m_open.reset();
        tabsChanged();
    }
}

void StudioModel::restoreTabs() {
    if (!m_preferences.get(prefs::restoreTabs)) {
        return;
    }
    for (const std::string& id : m_preferences.get(prefs::openTabs)) {
        bool listed = std::any_of(m_projects.begin(), m_projects.end(),
                                  [&](const project::LocalProject& p) { return p.id() == id; });
        if (listed) {
            (void)open(id);
        }
    }
    showLibrary();
    storeTabs();
}

void StudioModel::storeTabs() { (void)m_preferences.set(prefs::openTabs, m_tabs); }

Result<void> StudioModel::rename(const std::string& id, const std::string& title) {
    auto project = recording(id);
    if (!project) {
        return project.error();
    }
    auto renamed = project::ProjectLibrary::rename(*project, title);
    if (!renamed) {
        setMessage(renamed.error().message, true);
        return renamed.error();
    }
    reload();
    return {};
}

Result<void> StudioModel::trash(const std::string& id) {
    auto project = recording(id);
    if (!project) {
        return project.error();
    }
    if (auto it = m_editors.find(id); it != m_editors.end() && it->second->exporting()) {
        return AppError("Finish or cancel the current export first.");
    }
    forget(id);
    if (auto trashed = project::ProjectLibrary::moveToTrash(*project); !trashed) {
        setMessage(trashed.error().message, true);
        reload();
        return trashed.error();
    }
    setMessage("Moved “" + project->metadata.title + "” to the Trash.");
    reload();
    return {};
}

}  // namespace quillo::app
