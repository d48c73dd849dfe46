#include "quiet_blocks.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace quillo::media {

namespace {

constexpr int kBlock = 16;
constexpr int kMeanLevels2 = 3;  // twice the average brightness change allowed
constexpr int kPixelLevels = 6;
constexpr int kColourLevels = 4;

// Whether the w × h samples at `a` and `b` differ by at most `most` each, with a sum of
// differences of at most `sum` (when given).
bool within(const uint8_t* a, int aStride, const uint8_t* b, int bStride, int w, int h, int most,
            long sum) {
    long total = 0;
    for (int row = 0; row < h; ++row) {
        const uint8_t* p = a + static_cast<std::ptrdiff_t>(row) * aStride;
        const uint8_t* q = b + static_cast<std::ptrdiff_t>(row) * bStride;
        int worst = 0;
        for (int x = 0; x < w; ++x) {
            const int d = std::abs(p[x] - q[x]);
            worst = std::max(worst, d);
            total += d;
        }
        if (worst > most || (sum >= 0 && total > sum)) {
            return false;
        }
    }
    return true;
}

void copy(const uint8_t* from, int fromStride, uint8_t* to, int toStride, int w, int h) {
    for (int row = 0; row < h; ++row) {
        std::memcpy(to + static_cast<std::ptrdiff_t>(row) * toStride,
                    from + static_cast<std::ptrdiff_t>(row) * fromStride, static_cast<size_t>(w));
    }
}

}  // namespace

int takeChangedBlocks(const PlanesI420& fresh, const PlanesI420& shown, int width, int height) {
    int taken = 0;
    for (int by = 0; by < height; by += kBlock) {
        const int h = std::min(kBlock, height - by);
        for (int bx = 0; bx < width; bx += kBlock) {
            const int w = std::min(kBlock, width - bx);
            const uint8_t* fy = fresh.y + static_cast<std::ptrdiff_t>(by) * fresh.yStride + bx;
            uint8_t* sy = shown.y + static_cast<std::ptrdiff_t>(by) * shown.yStride + bx;
            const std::ptrdiff_t fc = static_cast<std::ptrdiff_t>(by / 2) * fresh.uStride + bx / 2;
            const std::ptrdiff_t sc = static_cast<std::ptrdiff_t>(by / 2) * shown.uStride + bx / 2;
            const std::ptrdiff_t fv = static_cast<std::ptrdiff_t>(by / 2) * fresh.vStride + bx / 2;
            const std::ptrdiff_t sv = static_cast<std::ptrdiff_t>(by / 2) * shown.vStride + bx / 2;
            const bool quiet = within(fy, fresh.yStride, sy, shown.yStride, w, h, kPixelLevels,
                                      static_cast<long>(w) * h * kMeanLevels2 / 2) &&
                               within(fresh.u + fc, fresh.uStride, shown.u + sc, shown.uStride,
                                      w / 2, h / 2, kColourLevels, -1) &&
                               within(fresh.v + fv, fresh.vStride, shown.v + sv, shown.vStride,
                                      w / 2, h / 2, kColourLevels, -1);
            if (quiet) {
                continue;
            }
            copy(fy, fresh.yStride, sy, shown.yStride, w, h);
            copy(fresh.u + fc, fresh.uStride, shown.u + sc, shown.uStride, w / 2, h / 2);
            copy(fresh.v + fv, fresh.vStride, shown.v + sv, shown.vStride, w / 2, h / 2);
            ++taken;
        }
    }
    return taken;
}

}  // namespace quillo::media
