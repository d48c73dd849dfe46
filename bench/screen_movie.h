#pragma once

#include <chrono>
#include <filesystem>

namespace quillo::bench {

// One minute of a light 1920×1080, 30 fps desktop with two window-like panels: a burst of typing
// (a changing strip) from 10 to 18 s with a tone, pointer motion from 30 to 36 s, stillness
// otherwise. Encoded by x264 "veryfast" with B-frames and AAC sound, as a screen recorder
// writes it.
bool makeScreenMinute(const std::filesystem::path& out);

// The benchmarks' media folder beside `program` (argv[0]), made when missing, and in it that
// minute as "screen-1min-1080p30.mp4", made the first time; an empty path (with the reason
// printed) when it can't be made.
std::filesystem::path screenMinute(const char* program, std::filesystem::path* media = nullptr);

// Wall seconds since `start`.
inline double secondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The peak resident memory of this process so far, in kB.
long peakResidentKB();

}  // namespace quillo::bench
