// Camera footage's noise held back from the encoder: a block is taken whole or left whole.

#include "media/quiet_blocks.h"

#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

namespace quillo::media {
namespace {

// A 4:2:0 picture in one buffer, flat grey to begin with.
struct Picture {
    int width;
    int height;
    std::vector<uint8_t> y, u, v;
    Picture(int w, int h)
        : width(w),
          height(h),
          y(static_cast<size_t>(w) * h, 100),
          u(static_cast<size_t>(w / 2) * (h / 2), 128),
          v(static_cast<size_t>(w / 2) * (h / 2), 128) {}
    PlanesI420 planes() { return {y.data(), width, u.data(), width / 2, v.data(), width / 2}; }
    uint8_t& luma(int x, int yy) { return y[static_cast<size_t>(yy) * width + x]; }
    uint8_t& blue(int x, int yy) { return u[static_cast<size_t>(yy / 2) * (width / 2) + x / 2]; }
};

// Whether the 16×16 block (bx, by) of `a` and `b` has the same brightness throughout.
bool sameBlock(Picture& a, Picture& b, int bx, int by) {
    for (int yy = by * 16; yy < std::min(a.height, by * 16 + 16); ++yy) {
        for (int x = bx * 16; x < std::min(a.width, bx * 16 + 16); ++x) {
            if (a.luma(x, yy) != b.luma(x, yy)) {
                return false;
            }
        }
    }
    return true;
}

TEST(QuietBlocks, NoiseIsHeldBackAndRealChangesAreTakenWhole) {
    // Three blocks across (the last one 8 pixels wide) and two down.
    Picture shown(40, 32);
    Picture original = shown;
    Picture fresh = shown;
    // (0,0): sensor noise, ±3 levels with an average of 1.5: held.
    for (int yy = 0; yy < 16; ++yy) {
        for (int x = 0; x < 16; ++x) {
            fresh.luma(x, yy) = static_cast<uint8_t>(100 + ((x + yy) % 2 ? 3 : 0));
        }
    }
    // (1,0): one pixel moved by more than noise does: taken.
    fresh.luma(20, 5) = 107;
    // (2,0), the narrow one: every pixel drifted by 2 levels: taken.
    for (int yy = 0; yy < 16; ++yy) {
        for (int x = 32; x < 40; ++x) {
            fresh.luma(x, yy) = 102;
        }
    }
    // (0,1): only its colour changed: taken.
    fresh.blue(3, 20) = 133;
    // (1,1) and (2,1): unchanged.

    EXPECT_EQ(takeChangedBlocks(fresh.planes(), shown.planes(), 40, 32), 3);
    EXPECT_TRUE(sameBlock(shown, original, 0, 0)) << "noise is not passed on";
    EXPECT_TRUE(sameBlock(shown, fresh, 1, 0));
    EXPECT_TRUE(sameBlock(shown, fresh, 2, 0));
    EXPECT_EQ(shown.blue(3, 20), 133);
    EXPECT_TRUE(sameBlock(shown, fresh, 1, 1));

    // Drift that stays under the noise frame to frame is still taken once it adds up: the
    // comparison is with what is shown, not with the frame before.
    Picture drifting = shown;
    int taken = 0;
    for (int step = 1; step <= 3 && taken == 0; ++step) {
        for (int yy = 16; yy < 32; ++yy) {
            for (int x = 16; x < 32; ++x) {
                drifting.luma(x, yy) = static_cast<uint8_t>(100 + step);
            }
        }
        taken = takeChangedBlocks(drifting.planes(), shown.planes(), 40, 32);
    }
    EXPECT_EQ(taken, 1);
    EXPECT_EQ(shown.luma(20, 20), 102);
}

}  // namespace
}  // namespace quillo::media
