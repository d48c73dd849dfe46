// Feeds arbitrary bytes to the recipe decoder, then exercises what a decoded recipe offers:
// validation, the time map and re-encoding, which must read back to the same recipe.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "project/edits_json.h"
#include "project/time_map.h"

using namespace quillo::project;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    auto edits = decodeEdits(text);
    if (!edits) {
        return 0;
    }
    for (double duration : {0.0, 1.0, 10.0, 3600.0}) {
        (void)edits->validate(duration);
    }
    (void)edits->needsComposition();
    // The time map must never crash and must stay within the kept range on a valid recipe.
    TimeMap map(*edits);
    double total = edits->outputDuration();
    for (double t : {-1.0, 0.0, 0.5, total / 2, total, total + 1}) {
        (void)map.source(t);
        (void)edits->outputTime(t);
    }
    for (const ZoomSection& zoom : edits->zooms) {
        (void)zoom.amount((zoom.start + zoom.end) / 2);
        (void)zoom.viewport();
    }
    // Numbers too large for a double read back as infinity and are written as null, which the
    // decoder rightly refuses; everything else must round-trip exactly.
    auto again = decodeEdits(encodeEdits(*edits));
    if (again && !(*again == *edits)) {
        std::abort();
    }
    return 0;
}
