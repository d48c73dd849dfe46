#pragma once

#include <filesystem>

namespace quillo::bench {

// A minute (61 s) of webcam-like 1920×1080, 30 fps footage of a person talking: head and
// shoulders swaying a little, blinking and speaking, in front of a still room (a wall with soft
// light, a shelf of books, a picture), with a touch of exposure drift and sensor noise. Drawn at
// half size by this program, scaled up the way a webcam's soft optics look, and encoded finely
// (x264 "ultrafast", CRF 16) into a MOV: a stand-in for what a camera delivers.
bool makeTalkingHead(const std::filesystem::path& out);

}  // namespace quillo::bench
