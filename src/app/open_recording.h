#pragma once

#include <filesystem>

#include "base/result.h"
#include "project/edits.h"
#include "project/local_project.h"

namespace quillo::app {

// A recording's folder opened for the command-line tools: the project, the movie's length and
// the validated recipe (a fresh one when none is saved).
struct OpenedRecording {
    project::LocalProject project;
    double duration = 0;
    Size videoSize;
    project::Edits edits;
    bool edited = false;  // the recipe came from "edits.json"
};

// Errors are the messages the studio shows for the same folder.
Result<OpenedRecording> openRecording(const std::filesystem::path& folder);

}  // namespace quillo::app
