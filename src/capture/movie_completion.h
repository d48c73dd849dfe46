#pragma once

// Turning the fragmented MP4 that a recording writes into a normal one. Internal to the capture
// module (screen_recorder.cpp and completeMovie).

#include <filesystem>

#include "base/result.h"

namespace quillo::capture {

// Whether `file` is a fragmented MP4 (movie fragments after an empty index), judged from its
// top-level boxes. False for a normal MP4 and for files that are no MP4 at all.
bool isFragmentedMovie(const std::filesystem::path& file);

// Copies every sound and video stream of `file` into a normal MP4 with its index in front, in a
// hidden temporary file in the same folder that then replaces `file` atomically. A truncated last
// fragment is tolerated: what was complete is kept. Returns the video track's duration in seconds.
// Errors carry the library's or system's reason in their detail; the caller sets the message.
Result<double> rewriteAsNormalMovie(const std::filesystem::path& file);

}  // namespace quillo::capture
