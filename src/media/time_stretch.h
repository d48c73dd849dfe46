#pragma once

#include <functional>
#include <memory>

#include "base/result.h"

namespace quillo::media {

// Plays interleaved float sound faster or slower while keeping its pitch (FFmpeg's atempo
// filter, chained in steps of at most 2× so fast stretches blend rather than drop sound).
// Not thread-safe.
class TimeStretch {
public:
    using Sink = std::function<Result<void>(const float* samples, size_t frames)>;

    // `speed` > 0: 2 plays twice as fast (half as long).
    static Result<std::unique_ptr<TimeStretch>> create(double speed, int sampleRate, int channels);
    ~TimeStretch();
    TimeStretch(const TimeStretch&) = delete;
    TimeStretch& operator=(const TimeStretch&) = delete;

    // Feeds sound in; whatever the filter has ready goes to `sink`.
    Result<void> push(const float* samples, size_t frames, const Sink& sink);
    // Ends the input and hands out the rest.
    Result<void> finish(const Sink& sink);

private:
    struct Impl;
    explicit TimeStretch(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m;
};

}  // namespace quillo::media
