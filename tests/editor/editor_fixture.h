#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <gtest/gtest.h>

#include "base/main_queue.h"
#include "editor/editor_model.h"
#include "project/project_library.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::editor {

// A recording's folder with a real 10-second movie, and a main queue the editor posts to.
class EditorFixture : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Writes the recording; a plain 10-second test pattern unless a suite wants another.
    virtual void makeRecording(const std::filesystem::path& file);

    // Makes an editor over the folder and loads it now.
    std::unique_ptr<EditorModel> openEditor();
    // Runs main-queue tasks until `done` holds or ten seconds pass.
    bool runUntil(const std::function<bool()>& done);

    testing::TempFolder library;
    project::LocalProject project;
    LoopMainQueue mainQueue;
};

}  // namespace quillo::editor
