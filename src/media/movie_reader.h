#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "base/result.h"
#include "movie_info.h"

namespace quillo::media {

enum class PixelFormat {
    BGRA,   // 4 bytes a pixel, alpha 255 (premultiplied and straight are the same)
    Gray8,  // 1 byte a pixel: the picture's luma
};

// How a reader decodes. Exact gives every frame as encoded. Fast lets the decoder skip the
// deblocking filter and frames that no other frame refers to, for analyses that look at small
// scaled pictures a few times a second: a request may then get the nearest earlier decoded frame.
// OneThread is Exact on the calling thread alone, for readers that already run beside other work
// on a thread of their own (the decoder's own threads would only add their overhead).
enum class DecodeMode { Exact, Fast, OneThread };

// The size and pixel format a frame is delivered in. A zero side follows the other one with the
// movie's shape (rounded to even); both zero is the movie's own size.
struct FrameFormat {
    int width = 0;
    int height = 0;
    PixelFormat pixelFormat = PixelFormat::BGRA;
};

// One decoded picture. `time` is the frame's own presentation time in movie seconds (0 = the
// first video frame); rows are `stride` bytes apart, top row first.
struct VideoFrame {
    double time = 0;
    int width = 0;
    int height = 0;
    int stride = 0;
    PixelFormat pixelFormat = PixelFormat::BGRA;
    std::vector<uint8_t> pixels;
    // Set by a reader that refilled this same frame: the picture is identical to the one it
    // held before (the movie did not change), so work done on it may be reused.
    bool unchanged = false;
};

// Sound delivered as interleaved 32-bit float samples (full scale ±1).
struct SoundFormat {
    int sampleRate = 48000;
    int channels = 2;
};

// Reads one movie file with FFmpeg: its frames at requested times and its sound as PCM.
// Not shared between threads; each user opens its own reader (readers are cheap).
class MovieReader {
public:
    // Errors: "The movie “NAME” could not be read." (library reason in the detail) and
    // "The movie “NAME” has no video track." Frames come from the main video track, or, when
    // `atLeast` is given, from the smallest track whose picture is at least that big both ways
    // (a reader of small pictures then decodes a small copy when the movie carries one).
    static Result<std::unique_ptr<MovieReader>> open(const std::filesystem::path& file,
                                                     DecodeMode mode = DecodeMode::Exact,
                                                     Size atLeast = {});
    ~MovieReader();
    MovieReader(const MovieReader&) = delete;
    MovieReader& operator=(const MovieReader&) = delete;

    const MovieInfo& info() const;
    // The size of the pictures in the track this reader decodes.
    Size pictureSize() const;

    // The frame shown at movie time t: the last frame whose presentation time is not after t
    // (the first frame for earlier times, the last one for later times). Requests that move
    // forward by a little decode on from where the last one stopped; others seek.
    Result<VideoFrame> frame(double t, const FrameFormat& format);
    // The same into `into`, reusing its buffer (for loops over many frames).
    Result<void> frame(double t, const FrameFormat& format, VideoFrame& into);

    // The keyframe at or before movie time t: one seek and one decoded frame, a quick stand-in
    // while the frame at t itself is decoded. A later frame() request decodes on from it.
    Result<void> keyFrame(double t, const FrameFormat& format, VideoFrame& into);

    // Decodes the sound between `start` and `end` (movie seconds) and hands it to `sink` in
    // chunks of `frames` sample frames; the sink returns false to stop early. Several sound
    // tracks (app sound and microphone) are mixed into one: summed, a mono track on both sides,
    // clamped to full scale. A movie without sound delivers nothing and succeeds. Uses file
    // handles of its own, so it may run on another thread beside frame reading of a different
    // reader.
    using SoundSink = std::function<bool(const float* samples, size_t frames)>;
    static Result<void> readSound(const std::filesystem::path& file, const SoundFormat& format,
                                  double start, double end, const SoundSink& sink);
    // The same, gathered into one buffer.
    static Result<std::vector<float>> sound(const std::filesystem::path& file,
                                            const SoundFormat& format, double start, double end);

private:
    struct Impl;
    explicit MovieReader(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m;
};

}  // namespace quillo::media
