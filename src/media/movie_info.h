#pragma once

#include <filesystem>

#include "base/geometry.h"
#include "base/result.h"

namespace quillo::media {

// What a movie file holds, read from its container without decoding frames.
struct MovieInfo {
    double duration = 0;   // seconds
    Size videoSize;        // pixels of the main (largest) video track
    double frameRate = 0;  // frames per second of that track (0 when unknown)
    bool hasSound = false;
};

// Reads a movie's container. Errors: "The movie “NAME” could not be read." (with the library's
// reason as detail) and "The movie “NAME” has no video track."
Result<MovieInfo> readMovieInfo(const std::filesystem::path& file);

}  // namespace quillo::media
