#include "studio_model.h"

#include <algorithm>
#include <cstdlib>

#include "agent/agent_texts.h"
#include "base/repeating_timer.h"
#include "capture/background_input.h"
#include "capture/camera_recorder.h"
#include "capture/capture_session.h"
#include "capture/cursor_recorder.h"
#include "editor/dead_time_remover.h"
#include "studio_texts.h"

namespace quillo::app {

namespace fs = std::filesystem;

StudioModel::StudioModel(project::ProjectLibrary library, TaskQueue& mainQueue,
                         Preferences& preferences, std::shared_ptr<capture::DisplayBackend> backend)
    : m_library(std::move(library)),
      m_main(mainQueue),
      m_preferences(preferences),
      m_capture(std::make_unique<capture::CaptureSession>(std::move(backend), mainQueue)),
      m_camera(std::make_unique<capture::CameraRecorder>(mainQueue)),
      m_message(texts::kChooseSource) {
    m_capture->setOnEvent(
        [this](const std::string& event, const Json& info) { receive(event, info); });
}

StudioModel::~StudioModel() {
    *m_alive = false;
    m_countdown.reset();
    m_ticker.reset();
    m_cursor.reset();
    m_camera.reset();
    m_input.reset();
    m_deadTime.clear();
    m_capture.reset();
}

void StudioModel::onMain(const std::function<void()>& work) { m_main.invoke(work); }

Result<project::LocalProject> StudioModel::recording(const std::string& id) {
    // Ids are the recordings' folders; only folders of this library are recordings here.
    std::error_code error;
    fs::path folder = fs::weakly_canonical(fs::path(id), error);
    fs::path root = fs::weakly_canonical(m_library.root(), error);
    if (id.empty() || error || folder.parent_path() != root || !fs::is_directory(folder, error)) {
        return AppError(agent::texts::noRecording(id));
    }
    auto project = project::LocalProject::open(folder);
    if (!project) {
        return AppError(agent::texts::noRecording(id), project.error().message);
    }
    return project;
}

Result<editor::EditorModel*> StudioModel::editor(const std::string& id) {
    if (auto it = m_editors.find(id); it != m_editors.end()) {
        return it->second.get();
    }
    auto project = recording(id);
    if (!project) {
        return project.error();
    }
    auto model = std::make_unique<editor::EditorModel>(*project);
    model->load();
    if (!model->loaded()) {
        return AppError(model->loadError().value_or("The recording could not be opened."));
    }
    editor::EditorModel* pointer = model.get();
    m_editors[id] = std::move(model);
    return pointer;
}

Result<void> StudioModel::open(const std::string& id) {
    if (m_open) {
        if (auto it = m_editors.find(*m_open); it != m_editors.end() && it->second->exporting()) {
            return AppError("Finish or cancel the current export first.");
        }
    }
    auto model = editor(id);
    if (!model) {
        return model.error();
    }
    if (std::find(m_tabs.begin(), m_tabs.end(), id) == m_tabs.end()) {
        m_tabs.push_back(id);
    }
    m_open = id;
    storeTabs();
    tabsChanged();
    return {};
}

void StudioModel::forget(const std::string& id) {
    m_tabs.erase(std::remove(m_tabs.begin(), m_tabs.end(), id), m_tabs.end());
    if (m_open == id) {
        m_open.reset();
    }
    storeTabs();
    tabsChanged();
    // The views let go of the editor when told above; only then does it go.
    m_deadTime.erase(id);
    m_editors.erase(id);
}

agent::RecordingOptions StudioModel::options() const {
    agent::RecordingOptions options;
    options.microphone = m_preferences.get(prefs::microphone);
    options.systemAudio = m_preferences.get(prefs::systemAudio);
    options.countdown = m_preferences.get(prefs::countdown);
    options.smoothCursor = m_preferences.get(prefs::smoothCursor);
    options.autoPolish = m_preferences.get(prefs::autoPolish);
    options.stepAside = m_preferences.get(prefs::stepAside);
    options.floatingControls = m_preferences.get(prefs::floatingControls);
    return options;
}

Result<void> StudioModel::setOptions(const agent::RecordingOptions& options) {
    for (Result<void> stored :
         {m_preferences.set(prefs::microphone, options.microphone),
          m_preferences.set(prefs::systemAudio, options.systemAudio),
          m_preferences.set(prefs::countdown, options.countdown),
          m_preferences.set(prefs::smoothCursor, options.smoothCursor),
          m_preferences.set(prefs::autoPolish, options.autoPolish),
          m_preferences.set(prefs::stepAside, options.stepAside),
          m_preferences.set(prefs::floatingControls, options.floatingControls)}) {
        if (!stored) {
            return stored;
        }
    }
    return {};
}

std::string StudioModel::captionLanguage() const {
    if (auto chosen = m_preferences.get(prefs::captionLanguage); chosen && !chosen->empty()) {
        return *chosen;
    }
    // The system's language from the locale environment, "de_DE.UTF-8" giving "de_DE".
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        std::string locale = value ? value : "";
        locale = locale.substr(0, locale.find_first_of(".@"));
        if (!locale.empty() && locale != "C" && locale != "POSIX") {
            return locale;
        }
    }
    return "en_US";
}

}  // namespace quillo::app
