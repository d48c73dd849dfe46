#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quillo::testing {

// Runs `ffmpeg -loglevel error -y ARGS OUT` and fails the current test when it fails. Tests use
// it to make short real movies from FFmpeg's test sources.
void ffmpeg(const std::string& args, const std::filesystem::path& out);

// The standard output of a shell command (empty when it fails).
std::string commandOutput(const std::string& command);

// `ffprobe -show_streams -show_format` of a file as JSON text.
std::string probe(const std::filesystem::path& file, const std::string& extra = {});

// The sound of a movie decoded to mono float samples at `rate`.
std::vector<float> decodedSound(const std::filesystem::path& file, int rate);

}  // namespace quillo::testing
