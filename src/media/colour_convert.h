#pragma once

#include <cstdint>

namespace quillo::media {

// Converts BGRA pixels to 4:2:0 Y'CbCr with the BT.709 matrix in limited range (16–235 luma,
// 16–240 chroma), the form the video encoders take. Chroma is the mean of each 2×2 block.
// `width` and `height` are even.
void bgraToI420BT709(const uint8_t* bgra, int stride, int width, int height, uint8_t* y,
                     int yStride, uint8_t* u, int uStride, uint8_t* v, int vStride);

}  // namespace quillo::media
