#pragma once

#include <filesystem>
#include <memory>
#include <optional>

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

// Reads camera frames at recording times for one user (a reader is not shared between
// threads): the footage's frame at the matching camera time, and its first or last frame where
// the camera has no sample.
class CameraFeed {
public:
    // Frames are delivered at `size` pixels (both zero: the footage's own size).
    static Result<std::unique_ptr<CameraFeed>> open(const CameraFootage& footage, Size size);

    // The camera frame for recording time t.
    Result<const media::VideoFrame*> frame(double t);

private:
    CameraFeed(const CameraFootage& footage, std::unique_ptr<media::MovieReader> reader, Size size);

    project::CameraSync m_sync;
    std::unique_ptr<media::MovieReader> m_reader;
    media::FrameFormat m_format;
    media::VideoFrame m_frame;
};

}  // namespace quillo::render
