#pragma once

#include <filesystem>

#include "base/result.h"

namespace quillo::project {

// How the camera movie ("camera.mov") lines up with the recording: when each started, in wall
// clock seconds since the Unix epoch. Stored beside the footage as "camera.json"; footage
// without it lines up with the screen's start.
struct CameraSync {
    double cameraStart = 0;  // the camera movie's first frame
    double screenStart = 0;  // the screen movie's first frame

    // Camera movie seconds at recording time t, and back.
    double cameraTime(double t) const { return t + screenStart - cameraStart; }
    double recordingTime(double c) const { return c - screenStart + cameraStart; }

    // Reads `folder`'s "camera.json"; without one the footage starts with the screen. A file
    // that does not decode is an error: "The camera timing could not be read."
    static Result<CameraSync> load(const std::filesystem::path& folder);
    // Writes `folder`'s "camera.json" atomically.
    Result<void> save(const std::filesystem::path& folder) const;
    bool operator==(const CameraSync&) const = default;
};

}  // namespace quillo::project
