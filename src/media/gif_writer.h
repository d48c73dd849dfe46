#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "base/result.h"

namespace quillo::media {

// Writes an animated GIF that loops for ever, one frame at a time, at a fixed frame rate.
// Frames are quantized to high-quality palettes (libimagequant, dithered) and written by giflib;
// unchanged parts of a frame are left transparent and identical frames only lengthen the
// previous one, so still screen content costs almost nothing. Not thread-safe.
class GifWriter {
public:
    // Opens `file` for a `width`×`height` animation at `fps` frames a second.
    // Error: "Could not create the GIF."
    static Result<std::unique_ptr<GifWriter>> create(const std::filesystem::path& file, int width,
                                                     int height, double fps);
    // Closes without finishing and removes the partly written file.
    ~GifWriter();
    GifWriter(const GifWriter&) = delete;
    GifWriter& operator=(const GifWriter&) = delete;

    // Adds the next frame: BGRA pixels (alpha 255), `width`×`height`, rows `stride` bytes apart.
    // Error: "Could not finish the GIF."
    Result<void> add(const uint8_t* bgra, int stride);
    // Writes the last frame and closes the file. Error: "Could not finish the GIF."
    Result<void> finish();

private:
    struct Impl;
    explicit GifWriter(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m;
};

}  // namespace quillo::media
