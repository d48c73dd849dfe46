#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "base/result.h"

namespace quillo::media {

enum class VideoCodec { H264, HEVC };

// What a finished movie holds. Frames are `width`×`height` at a constant `fps`; sound, when
// present, is 48 kHz stereo AAC at 192 kbit/s fed as interleaved float samples.
struct MovieSettings {
    int width = 0;
    int height = 0;
    double fps = 30;
    VideoCodec codec = VideoCodec::H264;
    double quality = 0.92;  // 0–1, mapped to the encoder's constant quality
    bool sound = false;
};

inline constexpr int kMovieSampleRate = 48000;
inline constexpr int kMovieChannels = 2;

// Encodes frames and sound into an MPEG-4 file with FFmpeg: H.264 High (libx264) or HEVC Main
// (libx265), BT.709 colour tags, a key frame at least every 2 seconds, AAC sound, and the index
// at the front of the file (fast start). Writing goes to `file` directly; callers that need the
// destination untouched until the end write to a temporary name and rename. Not thread-safe.
class MovieWriter {
public:
    static Result<std::unique_ptr<MovieWriter>> create(const std::filesystem::path& file,
                                                       const MovieSettings& settings);
    ~MovieWriter();
    MovieWriter(const MovieWriter&) = delete;
    MovieWriter& operator=(const MovieWriter&) = delete;

    // The next frame (frame n is shown at n / fps): BGRA pixels, rows `stride` bytes apart.
    Result<void> addFrame(const uint8_t* bgra, int stride);
    // The next frame, the same picture as the one before (still stretches cost no conversion).
    Result<void> repeatFrame();
    // The next frame, the same as the one before outside the rectangle (x, y, width, height):
    // only that part of `bgra` (the whole frame) is converted. With `holdNoise` (for camera
    // footage) the rectangle's blocks that changed by no more than a camera's noise stay as they
    // were (see takeChangedBlocks), which spares the encoder coding noise.
    Result<void> updateFrame(const uint8_t* bgra, int stride, int x, int y, int width, int height,
                             bool holdNoise = false);
    // The next `frames` sample frames of interleaved stereo sound at 48 kHz.
    Result<void> addSound(const float* samples, size_t frames);
    // Drains the encoders and writes the index. The movie is complete only after this.
    Result<void> finish();

    int64_t framesWritten() const;

private:
    struct Impl;
    explicit MovieWriter(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m;
};

}  // namespace quillo::media
