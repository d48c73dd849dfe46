#pragma once

#include <filesystem>

namespace quillo::bench {

// One minute of a light 1920×1080, 30 fps desktop with two window-like panels: a burst of typing
// (a changing strip) from 10 to 18 s with a tone, pointer motion from 30 to 36 s, stillness
// otherwise. Encoded by x264 "veryfast" with B-frames and AAC sound, as a screen recorder
// writes it.
bool makeScreenMinute(const std::filesystem::path& out);

// The peak resident memory of this process so far, in kB.
long peakResidentKB();

}  // namespace quillo::bench
