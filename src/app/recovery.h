#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "project/project_library.h"

namespace quillo::app {

// A recording under way marks its folder, so that a folder left by a killed process can be told
// from one still being written by a running Quillo.
inline constexpr const char* kRecordingMark = ".recording";

// Writes the mark (this process's id) into a new recording's folder.
void markRecording(const std::filesystem::path& folder);
// Removes the mark once the recording is saved or given up.
void unmarkRecording(const std::filesystem::path& folder);

struct Recovery {
    std::vector<std::filesystem::path> recovered;  // folders that are recordings again
    std::vector<std::string> failures;             // why others could not be completed
};

// Completes every folder of the library that a killed recording left: the fragmented movie
// is rewritten as a normal MP4, "project.json" gets the real duration, "edits.json" a recipe for
// the whole movie; the cursor track stays as last checkpointed. Folders whose writer still runs
// are left alone. Nothing recorded is thrown away.
Recovery recoverRecordings(const project::ProjectLibrary& library);

}  // namespace quillo::app
