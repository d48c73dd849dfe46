#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "base/result.h"
#include "edits.h"
#include "project_metadata.h"

namespace quillo::project {

// One recording's folder and its metadata. A plain value; the folder's files are written whole
// and atomically, so a crash never leaves a half-written one.
struct LocalProject {
    static constexpr const char* kRecording = "recording.mp4";
    static constexpr const char* kEdits = "edits.json";
    static constexpr const char* kCamera = "camera.mov";
    static constexpr const char* kCameraTiming = "camera.json";
    static constexpr const char* kCaptions = "captions.json";
    static constexpr const char* kMarkers = "markers.json";

    std::filesystem::path directory;
    ProjectMetadata metadata;

    // The project's identity: the folder's full path as text (also what open tabs store).
    std::string id() const { return directory.string(); }
    std::filesystem::path file(const char* name) const { return directory / name; }
    std::filesystem::path recordingFile() const { return directory / kRecording; }

    // Reads "project.json" of `directory`.
    static Result<LocalProject> open(const std::filesystem::path& directory);
    // Writes "project.json" atomically, pretty-printed with sorted keys.
    Result<void> save() const;

    // The stored recipe, or none when "edits.json" does not exist yet. A file that exists but
    // does not decode is an error; so is a recipe that fails validation against `duration`.
    Result<std::optional<Edits>> loadEdits(double duration) const;
    // Writes "edits.json" atomically. The caller validates first.
    Result<void> saveEdits(const Edits& edits) const;

    bool operator==(const LocalProject&) const = default;
};

}  // namespace quillo::project
