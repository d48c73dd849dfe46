#include "camera_recorder.h"

#include <chrono>
#include <system_error>

#include "base/clock.h"
#include "base/log.h"
#include "capture_texts.h"
#include "project/camera_sync.h"
#include "project/local_project.h"

namespace quillo::capture {

namespace fs = std::filesystem;

namespace {

// Width of the live preview pictures.
constexpr int kPreviewWidth = 480;

// A steady-clock time as wall-clock seconds since the Unix epoch.
double wallTime(double steady) {
    const double now =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    return now - (monotonicSeconds() - steady);
}

}  // namespace

// What the main queue asks of one run of the camera; read by the camera's queue between frames.
struct CameraRecorder::Session {
    std::mutex mutex;
    // Guarded by mutex:
    bool stop = false;                   // end the run
    bool keepRunning = false;            // go on after the file (the camera is on)
    std::optional<fs::path> fileFolder;  // a file is wanted in this folder
    bool stopFile = false;
    std::optional<double> screenStart;
    std::string deviceID;
    std::atomic<bool> ended{false};  // the run is over (set by the camera's queue)
};

CameraRecorder::CameraRecorder(TaskQueue& mainQueue) : m_main(mainQueue) {}

CameraRecorder::~CameraRecorder() {
    *m_alive = false;
    if (m_session) {
        std::lock_guard lock(m_session->mutex);
        m_session->stop = true;
    }
}

std::vector<CameraDevice> CameraRecorder::devices() { return cameraDevices(); }

bool CameraRecorder::running() const { return m_session && !m_session->ended; }

bool CameraRecorder::live() const {
    if (!running()) {
        return false;
    }
    std::lock_guard lock(m_session->mutex);
    return !m_session->stop;
}

void CameraRecorder::setEnabled(const std::optional<std::string>& deviceID, bool on,
                                std::function<void(Result<void>)> done) {
    if (!on) {
        m_enabled = false;
        if (m_session) {
            std::lock_guard lock(m_session->mutex);
            m_session->keepRunning = false;
            // A recording keeps its camera until it stops.
            if (!m_session->fileFolder) {
                m_session->stop = true;
            }
        }
        if (done) {
            done({});
        }
        return;
    }
    if (live()) {
        std::lock_guard lock(m_session->mutex);
        // Another camera chosen while one runs outside a recording: that one is replaced.
        const bool other = deviceID && *deviceID != m_session->deviceID;
        if (!other || m_session->fileFolder) {
            m_session->keepRunning = true;
            m_enabled = true;
            if (done) {
                done({});
            }
            return;
        }
        m_session->stop = true;
    }
    start(
        deviceID,
        [this, done](Result<void> opened) {
            m_enabled = static_cast<bool>(opened);
            if (done) {
                done(opened);
            }
        },
        std::nullopt, true);
}

void CameraRecorder::start(const std::optional<std::string>& deviceID,
                           std::function<void(Result<void>)> opened,
                           std::optional<fs::path> fileFolder, bool keepRunning) {
    auto session = std::make_shared<Session>();
    session->fileFolder = std::move(fileFolder);
    session->keepRunning = keepRunning;
    m_session = session;
    std::vector<CameraDevice> all = devices();
    std::optional<CameraDevice> device;
    for (const auto& d : all) {
        if (!deviceID || d.id == *deviceID) {
            device = d;
            break;
        }
    }
    if (!device && deviceID && !all.empty()) {
        device = all.front();  // the chosen camera is gone: the default one
    }
    if (!device) {
        session->ended = true;
        {
            std::lock_guard lock(m_mutex);
            m_fileUnderWay = false;
        }
        m_main.post([opened, alive = m_alive] {
            if (*alive) {
                opened(AppError(texts::kCameraMissing));
            }
        });
        return;
    }
    session->deviceID = device->id;
    m_queue.post([this, session, device = *device, opened] { run(session, device, opened); });
}

void CameraRecorder::begin(const fs::path& directory, const std::optional<std::string>& deviceID,
                           std::function<void(const std::string&)> problem) {
    std::error_code ignored;
    fs::remove(directory / project::LocalProject::kCamera, ignored);
    fs::remove(directory / project::LocalProject::kCameraTiming, ignored);
    {
        std::lock_guard lock(m_mutex);
        m_problem = std::move(problem);
        m_fileUnderWay = true;
    }
    if (!live()) {
        start(
            deviceID,
            [this](Result<void> opened) {
                if (!opened) {
                    std::function<void(const std::string&)> problem;
                    {
                        std::lock_guard lock(m_mutex);
                        problem = m_problem;
                    }
                    if (problem) {
                        problem(texts::withoutCamera(opened.error().message));
                    }
                }
            },
            directory, false);
        return;
    }
    {
        std::lock_guard lock(m_session->mutex);
        m_session->fileFolder = directory;
        m_session->stopFile = false;
        m_session->screenStart.reset();
    }
}

void CameraRecorder::screenStarted(double at) {
    if (m_session) {
        std::lock_guard lock(m_session->mutex);
        if (m_session->fileFolder) {
            m_session->screenStart = at;
        }
    }
}

void CameraRecorder::stop() {
    if (m_session) {
        std::lock_guard lock(m_session->mutex);
        if (m_session->fileFolder) {
            m_session->stopFile = true;
        }
    }
}

bool CameraRecorder::recording() const {
    std::lock_guard lock(m_mutex);
    return m_fileUnderWay;
}

void CameraRecorder::saved(std::function<void()> done) {
    {
        std::lock_guard lock(m_mutex);
        if (m_fileUnderWay) {
            m_waiters.push_back(std::move(done));
            return;
        }
    }
    m_main.post([done = std::move(done), alive = m_alive] {
        if (*alive) {
            done();
        }
    });
}

std::shared_ptr<const CameraPreviewFrame> CameraRecorder::preview() const {
    std::lock_guard lock(m_mutex);
    return running() ? m_preview : nullptr;
}

void CameraRecorder::report(const std::string& reason) {
    m_main.post([this, alive = m_alive, text = texts::withoutCamera(reason)] {
        if (!*alive) {
            return;
        }
        std::function<void(const std::string&)> problem;
        {
            std::lock_guard lock(m_mutex);
            problem = m_problem;
        }
        if (problem) {
            problem(text);
        }
    });
}

// Ends the file under way (if any) and lets the waiters of saved() go on.
void CameraRecorder::finishFile(Session& session, CameraStream& stream) {
    {
        std::lock_guard lock(session.mutex);
        session.fileFolder.reset();
        session.stopFile = false;
    }
    if (stream.writing()) {
        if (auto finished = stream.finishFile(); !finished) {
            logError("app.quillo.camera", "camera.mov: " + finished.error().message);
        }
    }
    std::vector<std::function<void()>> waiters;
    {
        std::lock_guard lock(m_mutex);
        m_fileUnderWay = false;
        waiters.swap(m_waiters);
    }
    for (auto& waiter : waiters) {
        m_main.post([waiter = std::move(waiter), alive = m_alive] {
            if (*alive) {
                waiter();
            }
        });
    }
}

void CameraRecorder::run(std::shared_ptr<Session> session, CameraDevice device,
                         std::function<void(Result<void>)> opened) {
    auto stream = CameraStream::open(device);
    auto tell = [this](std::function<void()> work) {
        m_main.post([work = std::move(work), alive = m_alive] {
            if (*alive) {
                work();
            }
        });
    };
    if (!stream) {
        AppError error = stream.error();
        logError("app.quillo.camera", error.message + " " + error.detail);
        session->ended = true;
        {
            std::lock_guard lock(session->mutex);
            session->fileFolder.reset();
        }
        std::vector<std::function<void()>> waiters;
        {
            std::lock_guard lock(m_mutex);
            m_fileUnderWay = false;
            waiters.swap(m_waiters);
        }
        tell([opened, error] { opened(error); });
        for (auto& waiter : waiters) {
            tell(std::move(waiter));
        }
        return;
    }
    tell([opened] { opened({}); });
    CameraStream& camera = **stream;
    std::optional<double> cameraStart;  // steady-clock time of the file's first frame
    fs::path fileFolder;
    auto saveTiming = [&](std::optional<double> screenStart) {
        if (cameraStart && screenStart) {
            project::CameraSync sync{wallTime(*cameraStart), wallTime(*screenStart)};
            if (auto saved = sync.save(fileFolder); !saved) {
                logError("app.quillo.camera", "camera.json: " + saved.error().message);
            }
        }
    };
    auto endFile = [&] {
        std::optional<double> screenStart;
        {
            std::lock_guard lock(session->mutex);
            screenStart = session->screenStart;
        }
        const bool wrote = camera.writing();
        finishFile(*session, camera);
        if (wrote) {
            saveTiming(screenStart);
        }
        cameraStart.reset();
    };
    while (true) {
        bool stop = false, stopFile = false, keepRunning = false;
        std::optional<fs::path> wanted;
        {
            std::lock_guard lock(session->mutex);
            stop = session->stop;
            stopFile = session->stopFile;
            keepRunning = session->keepRunning;
            wanted = session->fileFolder;
        }
        if (stopFile) {
            endFile();
            if (!keepRunning) {
                break;
            }
            continue;
        }
        if (stop) {
            break;
        }
        if (auto next = camera.next(); !next) {
            logError("app.quillo.camera", next.error().message + " " + next.error().detail);
            if (wanted) {
                report(next.error().message);
            } else {
                tell([this, text = next.error().message] {
                    m_enabled = false;
                    if (onMessage) {
                        onMessage(text);
                    }
                });
            }
            break;
        }
        auto picture = std::make_shared<CameraPreviewFrame>();
        camera.preview(kPreviewWidth, *picture);
        {
            std::lock_guard lock(m_mutex);
            m_preview = std::move(picture);
        }
        if (wanted && !camera.writing() && !cameraStart) {
            fileFolder = *wanted;
            if (auto started = camera.startFile(fileFolder / project::LocalProject::kCamera);
                !started) {
                report(started.error().message);
                finishFile(*session, camera);
                continue;
            }
            cameraStart = camera.arrived();
        }
        if (camera.writing()) {
            if (auto written = camera.writeFrame(); !written) {
                report(written.error().message);
                endFile();
            }
        }
    }
    endFile();
    session->ended = true;
}

}  // namespace quillo::capture
