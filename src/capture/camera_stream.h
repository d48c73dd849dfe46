#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "base/result.h"
#include "camera_devices.h"

namespace quillo::capture {

// One picture of the camera's live preview: BGRA, tightly packed rows, top row first.
struct CameraPreviewFrame {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> bgra;
    double time = 0;  // steady-clock seconds it arrived
};

// One open camera through libavdevice: frames read and decoded one at a time, a small BGRA copy
// for the preview, and the frames encoded to H.264 into a MOV file in real time, timed as the
// camera timed them. A picture larger than 960 pixels gets a second track beside it, the same
// frames at 640 pixels on the longer side, which readers of small pictures (a bubble, the
// studio's preview) decode at a fraction of the cost. Used by one thread.
class CameraStream {
public:
    // Opens `device` at the chosen mode. Errors carry the message the user sees: access refused,
    // no such device, in use or unavailable, or didn't start.
    static Result<std::unique_ptr<CameraStream>> open(const CameraDevice& device);
    ~CameraStream();
    CameraStream(const CameraStream&) = delete;
    CameraStream& operator=(const CameraStream&) = delete;

    // Waits for the next frame and decodes it. Fails when the camera stops delivering.
    Result<void> next();
    // Steady-clock seconds at which the last frame arrived.
    double arrived() const;
    int width() const;
    int height() const;

    // The last frame scaled to `width` pixels wide (even), into `into`.
    void preview(int width, CameraPreviewFrame& into);

    // Starts encoding into `file` (replacing it); the next written frame is its time 0.
    Result<void> startFile(const std::filesystem::path& file);
    bool writing() const;
    // Encodes the last frame into the file.
    Result<void> writeFrame();
    // Drains the encoder and closes the file; the movie is complete only after this.
    Result<void> finishFile();

private:
    struct Impl;
    explicit CameraStream(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m;
};

}  // namespace quillo::capture
