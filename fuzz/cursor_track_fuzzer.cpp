// Feeds arbitrary bytes to the cursor track decoder and queries what it decodes.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "project/cursor_track.h"

using namespace quillo::project;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    auto track = decodeCursorTrack(text);
    if (!track) {
        return 0;
    }
    for (double t : {-1.0, 0.0, 0.5, 1.0, 100.0}) {
        (void)track->position(t);
        (void)track->shape(t);
    }
    for (const CursorSample& sample : track->samples) {
        (void)track->position(sample.t);
    }
    auto again = decodeCursorTrack(encodeCursorTrack(*track));
    if (again && !(*again == *track)) {
        std::abort();
    }
    return 0;
}
