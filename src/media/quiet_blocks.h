#pragma once

#include <cstdint>

namespace quillo::media {

// One 4:2:0 picture's planes (or a window onto them).
struct PlanesI420 {
    uint8_t* y;
    int yStride;
    uint8_t* u;
    int uStride;
    uint8_t* v;
    int vStride;
};

// Brings `shown` up to `fresh` (both `width` × `height`, even sides, block-aligned at their
// top-left corner) one 16×16 block (the encoder's macroblock) at a time, leaving a block as it was
// where the fresh picture differs from it by no more than a camera's sensor noise: an average
// change in brightness of at most 1.5 levels, no pixel by more than 6 and no colour sample by
// more than 4. An encoder skips such a block for almost nothing instead of coding the noise at
// full cost; a block whose picture really changes, or drifts past that, is taken whole.
// Returns the number of blocks taken.
int takeChangedBlocks(const PlanesI420& fresh, const PlanesI420& shown, int width, int height);

}  // namespace quillo::media
