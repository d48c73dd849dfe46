#pragma once

#include <filesystem>
#include <string>

namespace quillo::testing {

// Runs `ffmpeg -loglevel error -y ARGS OUT` and fails the current test when it fails. Tests use
// it to make short real movies from FFmpeg's test sources.
void ffmpeg(const std::string& args, const std::filesystem::path& out);

}  // namespace quillo::testing
