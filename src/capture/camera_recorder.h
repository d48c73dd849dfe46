#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/result.h"
#include "base/serial_queue.h"
#include "base/task_queue.h"
#include "camera_devices.h"
#include "camera_stream.h"

namespace quillo::capture {

// Records the webcam beside the screen: "camera.mov" (H.264, timed as the camera delivered its
// frames) and "camera.json" (when the camera movie and the screen movie started) in the
// recording's folder. The camera runs on the serial queue "app.quillo.camera" while it is on,
// for the live preview, and while a recording uses it. A camera problem never stops the screen
// recording: it is reported as a message. Its operations are called on the main queue, and its
// callbacks arrive there.
class CameraRecorder {
public:
    explicit CameraRecorder(TaskQueue& mainQueue);
    ~CameraRecorder();
    CameraRecorder(const CameraRecorder&) = delete;
    CameraRecorder& operator=(const CameraRecorder&) = delete;

    // The cameras attached now.
    static std::vector<CameraDevice> devices();

    // Turns the camera on (the chosen device, else the first one) or off. Turning on opens the
    // device; `done` gets its failure (access refused, no camera, in use, didn't start), after
    // which the camera stays off.
    void setEnabled(const std::optional<std::string>& deviceID, bool on,
                    std::function<void(Result<void>)> done = nullptr);
    bool enabled() const { return m_enabled; }
    bool running() const;

    // Starts "camera.mov" in `directory` (removing an old one and its timing), opening the
    // camera first when it is not running. A failure, now or later while recording, reaches
    // `problem` as "Recording without the camera. {reason}".
    void begin(const std::filesystem::path& directory, const std::optional<std::string>& deviceID,
               std::function<void(const std::string&)> problem);
    // The screen movie's first frame came at steady-clock time `at`.
    void screenStarted(double at);
    // Stops the camera file if one is being recorded.
    void stop();
    // Calls `done` once the camera file is finished and its timing saved (at once when none is
    // being recorded).
    void saved(std::function<void()> done);
    // Whether a camera file is under way or still being finished.
    bool recording() const;

    // The newest preview picture, if the camera runs.
    std::shared_ptr<const CameraPreviewFrame> preview() const;
    // Messages while the camera runs outside a recording ("The camera was turned off.").
    std::function<void(const std::string&)> onMessage;

private:
    struct Session;
    // Opens the camera on its queue and runs it; `fileFolder` starts a file at once.
    void start(const std::optional<std::string>& deviceID, std::function<void(Result<void>)> opened,
               std::optional<std::filesystem::path> fileFolder, bool keepRunning);
    void run(std::shared_ptr<Session> session, CameraDevice device,
             std::function<void(Result<void>)> opened);
    void finishFile(Session& session, CameraStream& stream);
    void report(const std::string& reason);
    // A run is under way and not asked to stop.
    bool live() const;

    TaskQueue& m_main;
    bool m_enabled = false;
    std::shared_ptr<Session> m_session;  // the camera's current run
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);

    mutable std::mutex m_mutex;
    // Guarded by m_mutex:
    std::shared_ptr<const CameraPreviewFrame> m_preview;
    std::function<void(const std::string&)> m_problem;
    std::vector<std::function<void()>> m_waiters;
    bool m_fileUnderWay = false;

    SerialQueue m_queue{"app.quillo.camera"};  // last: its thread stops before the rest goes
};

}  // namespace quillo::capture
