#include "colour_convert.h"

#include <cstddef>

namespace quillo::media {

namespace {

// BT.709 limited range in 8.8 fixed point: Y = 16 + (47 R + 157 G + 16 B) / 256,
// Cb = 128 + (−26 R − 87 G + 113 B) / 256, Cr = 128 + (112 R − 102 G − 10 B) / 256.
constexpr int kYR = 47, kYG = 157, kYB = 16;
constexpr int kUR = -26, kUG = -87, kUB = 113;
constexpr int kVR = 112, kVG = -102, kVB = -10;

// One pair of rows. Written as plain loops over arrays so the compiler vectorises them; built
// for AVX2 and for the baseline, chosen at run time.
__attribute__((target_clones("avx2", "default"))) void convertRows(
    const uint8_t* __restrict top, const uint8_t* __restrict bottom, int width,
    uint8_t* __restrict y0, uint8_t* __restrict y1, uint8_t* __restrict u,
    uint8_t* __restrict v) {
    for (int x = 0; x < width; ++x) {
        const uint8_t* a = top + x * 4;
        const uint8_t* b = bottom + x * 4;
        y0[x] = static_cast<uint8_t>((kYR * a[2] + kYG * a[1] + kYB * a[0] + 128 + (16 << 8)) >> 8);
        y1[x] = static_cast<uint8_t>((kYR * b[2] + kYG * b[1] + kYB * b[0] + 128 + (16 << 8)) >> 8);
    }
    for (int x = 0; x < width / 2; ++x) {
        const uint8_t* a = top + x * 8;
        const uint8_t* b = bottom + x * 8;
        // Sums of four pixels: the means times four.
        int r = a[2] + a[6] + b[2] + b[6];
        int g = a[1] + a[5] + b[1] + b[5];
        int bl = a[0] + a[4] + b[0] + b[4];
        u[x] = static_cast<uint8_t>((kUR * r + kUG * g + kUB * bl + 512 + (128 << 10)) >> 10);
        v[x] = static_cast<uint8_t>((kVR * r + kVG * g + kVB * bl + 512 + (128 << 10)) >> 10);
    }
}

}  // namespace

void bgraToI420BT709(const uint8_t* bgra, int stride, int width, int height, uint8_t* y,
                     int yStride, uint8_t* u, int uStride, uint8_t* v, int vStride) {
    for (int row = 0; row + 1 < height; row += 2) {
        convertRows(bgra + static_cast<ptrdiff_t>(row) * stride,
                    bgra + static_cast<ptrdiff_t>(row + 1) * stride, width,
                    y + static_cast<ptrdiff_t>(row) * yStride,
                    y + static_cast<ptrdiff_t>(row + 1) * yStride,
                    u + static_cast<ptrdiff_t>(row / 2) * uStride,
                    v + static_cast<ptrdiff_t>(row / 2) * vStride);
    }
}

}  // namespace quillo::media
