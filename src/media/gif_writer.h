#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "base/result.h"

namespace quillo::media {

// Writes an animated GIF that loops for ever, one frame at a time, at a fixed frame rate.
// Frames are quantized to their own high-quality palettes (libimagequant, dithered) and written
// by giflib. Only the box around the pixels that changed is written, with the unchanged ones in
// it transparent; a frame that changes nothing is a single transparent pixel, so still screen
// content costs a few bytes a frame while every added frame stays a frame. Memory is a few
// buffers of the picture's size, whatever the length. Not thread-safe.
class GifWriter {
public:
    // Opens `file` for a `width`×`height` animation at `fps` frames a second. GIF delays are
    // whole centiseconds, so frames last 8 or 9 cs at 12 fps and the total keeps to the frame
    // rate; above 50 fps every frame lasts 2 cs, the shortest players honour.
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
