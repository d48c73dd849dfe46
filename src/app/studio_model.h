#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/studio.h"
#include "base/task_queue.h"
#include "captions/caption_jobs.h"
#include "editor/editor_model.h"
#include "preferences.h"
#include "project/project_library.h"

namespace quillo::app {

// The studio's library, open tabs and editors, as the windows and the agent tools use them.
// Lives on the main queue; onMain() is the way in from other threads.
class StudioModel : public agent::Studio {
public:
    StudioModel(project::ProjectLibrary library, TaskQueue& mainQueue, Preferences& preferences);

    const project::ProjectLibrary& library() const override { return m_library; }
    void onMain(const std::function<void()>& work) override;

    Result<project::LocalProject> recording(const std::string& id) override;
    Result<editor::EditorModel*> editor(const std::string& id) override;
    Result<void> open(const std::string& id) override;
    std::optional<std::string> openRecording() const override { return m_open; }
    void forget(const std::string& id) override;
    agent::RecordingOptions options() const override;
    Result<void> setOptions(const agent::RecordingOptions& options) override;
    std::string captionLanguage() const override;
    captions::CaptionJobs& captionJobs() override { return m_captionJobs; }

    // Recordings shown as tabs, in the order they were opened.
    const std::vector<std::string>& openTabs() const { return m_tabs; }

private:
    project::ProjectLibrary m_library;
    TaskQueue& m_main;
    Preferences& m_preferences;
    captions::CaptionJobs m_captionJobs;
    std::map<std::string, std::unique_ptr<editor::EditorModel>> m_editors;
    std::vector<std::string> m_tabs;
    std::optional<std::string> m_open;
};

}  // namespace quillo::app
