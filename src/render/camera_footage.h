#pragma once

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "base/geometry.h"
#include "base/result.h"
#include "media/movie_reader.h"
#include "project/camera_sync.h"

namespace quillo::render {

// The webcam recorded beside a recording: its movie, size, length and timing.
struct CameraFootage {
    std::filesystem::path movie;
    Size size;
    double duration = 0;
    project::CameraSync sync;

    // The footage of project `folder`, or none when it has no "camera.mov". A camera movie or
    // timing that cannot be read is an error.
    static Result<std::optional<CameraFootage>> load(const std::filesystem::path& folder);
};

// Reads camera frames at recording times for one user: the footage's frame at the matching
// camera time, and its first or last frame where the camera has no sample. While the caller
// works on one frame, the next one (a step as long as the last) is decoded on a thread of the
// feed's own, so the camera's decoding runs beside the rest of the frame's work.
class CameraFeed {
public:
    // Frames are delivered at `size` pixels, or at the footage's own size when that has at
    // most twice the pixels (both zero: the footage's own size).
    static Result<std::unique_ptr<CameraFeed>> open(const CameraFootage& footage, Size size);
    ~CameraFeed();
    CameraFeed(const CameraFeed&) = delete;
    CameraFeed& operator=(const CameraFeed&) = delete;

    // The camera frame for recording time t, valid until the next call.
    Result<const media::VideoFrame*> frame(double t);

private:
    CameraFeed(const CameraFootage& footage, std::unique_ptr<media::MovieReader> reader, Size size);
    void decodeAhead();
    // Waits until the thread has no decoding under way.
    void settle(std::unique_lock<std::mutex>& lock);

    project::CameraSync m_sync;
    std::unique_ptr<media::MovieReader> m_reader;  // used by one side at a time
    media::FrameFormat m_format;
    media::VideoFrame m_frame;
    std::optional<double> m_last;  // the camera time asked for last

    std::mutex m_mutex;
    std::condition_variable m_wake;
    // Guarded by m_mutex:
    std::optional<double> m_request;  // a camera time for the thread to decode
    bool m_busy = false;
    bool m_stopping = false;
    std::optional<double> m_aheadTime;  // what m_ahead holds, when it decoded well
    media::VideoFrame m_ahead;
    std::thread m_thread;  // started last
};

}  // namespace quillo::render
