#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>

#include "base/result.h"
#include "capture_types.h"
#include "sound_input.h"

namespace quillo::capture {

struct RecorderSettings {
    std::filesystem::path file;  // the project's "recording.mp4"
    int width = 0;               // even, at least 2
    int height = 0;
    int fps = 30;
    bool systemSound = false;  // a stereo AAC track of app and system sound, 192 kbit/s
    bool microphone = false;   // a mono AAC track of the microphone, 128 kbit/s
};

// Writes a recording's screen frames and sound into "recording.mp4" in real time: H.264 High,
// BT.709, a key frame every second, AAC sound. While recording the file is a fragmented MP4
// that is flushed at every key frame, so a killed process leaves a playable movie; finish()
// rewrites it as a normal MP4 with its index in front. The movie starts at the first frame;
// frames are placed on a grid of 1/fps from it and a frame whose slot is not later than the last
// one's is dropped; sound heard before the first frame is dropped.
//
// Thread contract: appendFrame and begin on the frames queue, appendSound on the sound threads,
// finish on any one thread after the others stopped calling; all are serialised internally.
// Times are steady-clock seconds (monotonicSeconds()).
class ScreenRecorder {
public:
    static Result<std::unique_ptr<ScreenRecorder>> create(const RecorderSettings& settings);
    ~ScreenRecorder();
    ScreenRecorder(const ScreenRecorder&) = delete;
    ScreenRecorder& operator=(const ScreenRecorder&) = delete;

    // Called once, on the thread of the first frame, with the movie's start time.
    std::function<void(double startTime)> onStart;
    // Called once when writing could not start or broke off ("The recording could not start."
    // or the encoder's reason); nothing is appended after it.
    std::function<void(const AppError&)> onFail;

    // A frame of the settings' size (other sizes are scaled to fit, keeping the aspect, on black)
    // taken at `time`. A frame with the serial of the previous one is encoded as a repeat,
    // without converting its pixels again.
    void appendFrame(const FramePtr& frame, double time);
    // The first frame at the current time, while nothing started yet; so the movie begins at
    // once with the latest preview frame instead of waiting for the screen to change.
    void begin(const FramePtr& frame);
    // Sound of one device heard from `time` on (see SoundInput).
    void appendSound(SoundDevice device, const float* samples, size_t frames, double time);

    bool hasStarted() const;
    // Holds the last frame until `endTime` (default: now), completes the file and rewrites it
    // as a normal MP4. Returns the movie's duration in seconds. Errors: "Nothing was recorded."
    // (no frame), "The recording could not be saved." (with the reason in the detail).
    Result<double> finish(std::optional<double> endTime = std::nullopt);

private:
    struct Impl;
    explicit ScreenRecorder(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m;
};

// Hands the current recorder from the main queue to the frames and sound threads.
class RecorderSlot {
public:
    void set(std::shared_ptr<ScreenRecorder> recorder) {
        std::lock_guard lock(m_mutex);
        m_recorder = std::move(recorder);
    }
    std::shared_ptr<ScreenRecorder> get() const {
        std::lock_guard lock(m_mutex);
        return m_recorder;
    }

private:
    mutable std::mutex m_mutex;
    std::shared_ptr<ScreenRecorder> m_recorder;  // guarded by m_mutex
};

// Rewrites a movie that a killed recording left as fragments into a normal MP4 (index in front)
// in place, atomically. Returns its duration in seconds. A movie that is already normal is left
// as it is.
Result<double> completeMovie(const std::filesystem::path& file);

}  // namespace quillo::capture
