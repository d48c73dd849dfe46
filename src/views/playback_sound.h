#pragma once

#include <cstddef>
#include <memory>

namespace quillo::views {

// Plays interleaved float PCM on the sound server and tells how much of it has been heard, so
// that the preview's picture can follow the sound. Used by one thread at a time (the preview's
// sound thread); write() blocks while the server's buffer is full.
class PlaybackSound {
public:
    // A stream on the default output, or null when there is no sound server (the preview then
    // plays silently).
    static std::unique_ptr<PlaybackSound> open(int sampleRate, int channels);
    ~PlaybackSound();
    PlaybackSound(const PlaybackSound&) = delete;
    PlaybackSound& operator=(const PlaybackSound&) = delete;

    // Queues `frames` sample frames (channels samples each); false when the server went away.
    bool write(const float* samples, size_t frames);
    // Seconds of the written sound that have been played: what was written, less what the
    // server still holds.
    double position() const;
    // Drops what is queued (on stop, so the sound ends with the picture).
    void flush();

private:
    struct Impl;
    explicit PlaybackSound(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m;
};

}  // namespace quillo::views
