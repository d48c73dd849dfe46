#include "capture_session.h"

#include <algorithm>
#include <cmath>
#include <unistd.h>

#include <libyuv/scale_argb.h>

#include "base/clock.h"
#include "base/log.h"
#include "base/repeating_timer.h"
#include "base/serial_queue.h"
#include "capture_texts.h"
#include "project/local_project.h"
#include "sound_input.h"

namespace quillo::capture {

namespace fs = std::filesystem;

namespace {

constexpr double kFollowInterval = 0.25;

// The frame at `size`: scaled to fit, keeping its shape, centred on black when the shapes
// differ (a window resized while recording keeps the movie's size).
FramePtr scaled(const FramePtr& frame, Size size) {
    int width = static_cast<int>(size.width), height = static_cast<int>(size.height);
    if (frame->width == width && frame->height == height) {
        return frame;
    }
    auto out = makeFrame(width, height, frame->serial);
    auto* pixels = const_cast<uint8_t*>(out->pixels);
    double factor = std::min(static_cast<double>(width) / frame->width,
                             static_cast<double>(height) / frame->height);
    int fitWidth = std::clamp(static_cast<int>(std::lround(frame->width * factor)), 1, width);
    int fitHeight = std::clamp(static_cast<int>(std::lround(frame->height * factor)), 1, height);
    if (fitWidth != width || fitHeight != height) {
        auto* words = reinterpret_cast<uint32_t*>(pixels);
        std::fill(words, words + static_cast<size_t>(width) * height, 0xff000000u);
    }
    uint8_t* target = pixels + static_cast<size_t>((height - fitHeight) / 2) * out->stride +
                      static_cast<size_t>((width - fitWidth) / 2) * 4;
    libyuv::ARGBScale(frame->pixels, frame->stride, frame->width, frame->height, target,
                      out->stride, fitWidth, fitHeight, libyuv::kFilterBilinear);
    return out;
}

}  // namespace

// --- preview frames

void PreviewFrames::store(FramePtr frame) {
    std::lock_guard lock(m_mutex);
    m_latest = std::move(frame);
}

FramePtr PreviewFrames::latest() const {
    std::lock_guard lock(m_mutex);
    return m_latest;
}

void PreviewFrames::clear() { store(nullptr); }

Size captureSize(Size pixels, double maxDimension) {
    double larger = std::max(pixels.width, pixels.height);
    double factor = larger > 0 ? std::min(1.0, maxDimension / larger) : 1;
    auto side = [&](double length) {
        long value = static_cast<long>(length * factor);
        value -= value % 2;
        return static_cast<double>(std::max(2L, value));
    };
    return {side(pixels.width), side(pixels.height)};
}

// --- the grab loop

// What the frames queue needs: the area and size to grab, set on the main queue.
struct CaptureSession::Stream {
    std::mutex mutex;
    Rect area;  // guarded by mutex
    Size size;
    bool drawCursor = false;  // the system cursor is drawn in only when it isn't recorded apart

    // Frames queue only:
    std::shared_ptr<DisplayBackend> backend;
    std::unique_ptr<ScreenGrabber> grabber;
    FramePtr last;
    Rect lastArea;
    std::optional<Point> lastPointer;  // where the drawn-in cursor was
    int sinceGrab = 0;                 // ticks since the last grab
    double gridStart = 0;              // steady time of the first tick
    int64_t lastIndex = -1;            // the last tick's slot on the 1/fps grid
    int fps = 30;
    bool failed = false;
    std::unique_ptr<RepeatingTimer> timer;  // stopped on the main queue before release

    void tick(PreviewFrames& frames, RecorderSlot& writing, TaskQueue& main,
              const std::function<void(std::string)>& onError) {
        // Ticks are due on a grid of 1/fps and run a little late; stamping each with its slot's
        // time (not the moment it ran) keeps two ticks from ever sharing a slot of the movie.
        double ranAt = monotonicSeconds();
        if (gridStart == 0) {
            gridStart = ranAt;
        }
        auto index = static_cast<int64_t>(std::floor((ranAt - gridStart) * fps + 0.1));
        if (index <= lastIndex) {
            return;
        }
        lastIndex = index;
        double now = gridStart + static_cast<double>(index) / fps;
        Rect area;
        Size size;
        bool cursor;
        {
            std::lock_guard lock(mutex);
            area = this->area;
            size = this->size;
            cursor = drawCursor;
        }
        if (failed || area.width < 1 || area.height < 1) {
            return;
        }
        if (!grabber) {
            auto made = backend->grabber();
            if (!made) {
                failed = true;
                main.post([onError, message = made.error().message] { onError(message); });
                return;
            }
            grabber = std::move(*made);
        }
        // An unchanged screen costs a damage check: no grab, no conversion, and the writer is
        // handed the same frame, which it encodes as a repeat. A drawn-in cursor is redrawn when
        // the pointer moves, and twice a second for a new cursor picture.
        bool changed = !last || area != lastArea || grabber->changed(area);
        if (cursor && !changed) {
            std::optional<Point> pointer = backend->pointer();
            changed = pointer != lastPointer || sinceGrab >= fps / 2;
            lastPointer = pointer;
        }
        ++sinceGrab;
        if (changed) {
            auto grabbed = grabber->grab(area, cursor);
            if (!grabbed) {
                logError("app.quillo.capture",
                         grabbed.error().message + " " + grabbed.error().detail);
                return;
            }
            last = scaled(*grabbed, size);
            lastArea = area;
            sinceGrab = 0;
            frames.store(last);
        } else if (last->width != size.width || last->height != size.height) {
            last = scaled(last, size);
            frames.store(last);
        }
        if (auto recorder = writing.get()) {
            recorder->appendFrame(last, now);
        }
    }
};

CaptureSession::CaptureSession(std::shared_ptr<DisplayBackend> backend, TaskQueue& mainQueue)
    : m_backend(std::move(backend)),
      m_main(mainQueue),
      m_frameQueue(std::make_unique<SerialQueue>("app.quillo.frames")),
      m_workQueue(std::make_unique<SerialQueue>("app.quillo.capture")) {}

CaptureSession::~CaptureSession() {
    *m_alive = false;
    m_followTimer.reset();
    if (m_recorder) {
        m_writing.set(nullptr);
        m_sound.clear();
    }
    stopStream();
    m_frameQueue.reset();
    m_workQueue.reset();
    if (m_recorder) {
        (void)m_recorder->finish();
    }
}

void CaptureSession::send(const std::string& name, Json info) {
    if (m_onEvent) {
        m_onEvent(name, info);
    }
}

void CaptureSession::startStream() {
    auto stream = std::make_shared<Stream>();
    stream->backend = m_backend;
    stream->area = clipToScreen(m_area, m_backend->monitors().value_or(std::vector<MonitorInfo>{}));
    stream->size = m_size;
    stream->fps = std::max(1, m_settings.fps);
    m_stream = stream;
    auto alive = m_alive;
    auto onError = [this, alive](const std::string& message) {
        if (*alive) {
            send("previewError", {{"message", message}});
        }
    };
    PreviewFrames* frames = &m_frames;
    RecorderSlot* writing = &m_writing;
    TaskQueue* main = &m_main;
    double interval = 1.0 / std::max(1, m_settings.fps);
    stream->timer = std::make_unique<RepeatingTimer>(
        *m_frameQueue, interval, [stream = stream.get(), frames, writing, main, onError] {
            stream->tick(*frames, *writing, *main, onError);
        });
    m_followTimer = std::make_unique<RepeatingTimer>(m_main, kFollowInterval, [this] { follow(); });
}

void CaptureSession::stopStream() {
    m_followTimer.reset();
    if (m_stream) {
        m_stream->timer.reset();
        // The grabber belongs to the frames queue: it is released there, after the last tick.
        m_frameQueue->invoke([stream = std::move(m_stream)] { stream->grabber.reset(); });
    }
    m_frames.clear();
}

std::optional<Rect> CaptureSession::captureGeometry() const {
    if (!m_source) {
        return std::nullopt;
    }
    return m_area;
}

std::optional<int32_t> CaptureSession::sourceProcessID() const {
    if (m_window && m_window->pid != 0) {
        return m_window->pid;
    }
    return std::nullopt;
}

Json CaptureSession::sourceInfo() const {
    Json source;
    if (m_window) {
        source = {{"kind", "window"},
                  {"id", m_window->id},
                  {"name", m_window->title.empty() ? texts::kSelectedWindow : m_window->title},
                  {"detail", m_window->app}};
    } else {
        source = {{"kind", "display"},
                  {"id", m_source ? m_source->id : 0},
                  {"name", texts::kSelectedDisplay},
                  {"detail", texts::kScreen}};
    }
    return source;
}

// --- choosing a source

void CaptureSession::pick(bool window, double timeout) {
    if (m_picking) {
        return;
    }
    m_picking = true;
    auto alive = m_alive;
    m_workQueue->post([this, alive, window, timeout] {
        auto picked = m_backend->pick(!window, timeout, CancelToken());
        m_main.post([this, alive, picked = std::move(picked)] {
            if (!*alive) {
                return;
            }
            m_picking = false;
            if (!picked) {
                send("previewError", {{"message", picked.error().message}});
            } else if (!*picked) {
                send("cancelled");
            } else if (auto shown = preview(**picked); !shown) {
                send("previewError", {{"message", shown.error().message}});
            }
            // After the choice's own events, so the notice is what the status line shows.
            while (auto notice = m_backend->takeNotice()) {
                send("notice", {{"message", *notice}});
            }
        });
    });
}

Result<void> CaptureSession::preview(const SourceRef& source) {
    if (m_recorder) {
        return AppError(texts::kStopFirst);
    }
    std::optional<WindowInfo> window;
    Rect area;
    if (source.kind == SourceRef::Kind::Window) {
        window = m_backend->window(source.id);
        if (!window) {
            return AppError(texts::kWindowGone);
        }
        if (window->pid == getpid()) {
            return AppError(texts::kOwnWindow);
        }
        area = window->frame;
    } else {
        auto monitors = m_backend->monitors();
        if (!monitors) {
            return monitors.error();
        }
        auto found = std::find_if(monitors->begin(), monitors->end(),
                                  [&](const MonitorInfo& m) { return m.id == source.id; });
        if (found == monitors->end()) {
            return AppError(texts::kDisplayGone);
        }
        area = found->frame;
    }
    stopStream();
    m_source = source;
    m_window = window;
    m_area = area;
    m_size = captureSize({area.width * pixelsPerPoint(), area.height * pixelsPerPoint()},
                         m_settings.maxDimension);
    startStream();
    send("selected", {{"source", sourceInfo()},
                      {"width", m_size.width},
                      {"height", m_size.height},
                      {"pixelScale", pixelsPerPoint()}});
    return {};
}

Result<void> CaptureSession::shareWindow(int32_t pid, const std::string& title) {
    auto windows = m_backend->windows();
    if (!windows) {
        return windows.error();
    }
    for (const WindowInfo& window : *windows) {
        if ((pid == 0 || window.pid == pid) &&
            (title.empty() || window.title.find(title) != std::string::npos)) {
            return preview({SourceRef::Kind::Window, window.id});
        }
    }
    return AppError(texts::noWindowMatches(pid, title));
}

// --- following the source

void CaptureSession::follow() {
    if (!m_source || !m_stream) {
        return;
    }
    std::optional<Rect> now;
    if (m_window) {
        if (auto window = m_backend->window(m_window->id)) {
            m_window = window;
            now = window->frame;
        }
    } else if (auto monitors = m_backend->monitors()) {
        for (const auto& monitor : *monitors) {
            if (monitor.id == m_source->id) {
                now = monitor.frame;
            }
        }
    }
    if (!now) {
        sourceEnded();
        return;
    }
    if (*now == m_area) {
        return;
    }
    // A move only shifts the grabbed area; a new size changes the stream's size too, except
    // while recording, where the movie keeps its size and frames are fitted into it.
    m_area = *now;
    if (!m_recorder) {
        m_size = captureSize({now->width, now->height}, m_settings.maxDimension);
    }
    auto monitors = m_backend->monitors().value_or(std::vector<MonitorInfo>{});
    std::lock_guard lock(m_stream->mutex);
    m_stream->area = clipToScreen(m_area, monitors);
    m_stream->size = m_size;
}

void CaptureSession::sourceEnded() {
    stopStream();
    m_source.reset();
    m_window.reset();
    if (m_recorder) {
        finishRecording(m_recorder, true);
    } else {
        send("previewError", {{"message", texts::kSharingStopped}});
    }
}

// --- recording

void CaptureSession::start(const fs::path& directory, bool systemSound, bool microphone,
                           bool hideCursor) {
    if (!m_source || !m_stream) {
        send("recordError", {{"message", texts::kNoSource}});
        return;
    }
    if (m_recorder) {
        return;
    }
    m_directory = directory;
    m_didStart = false;
    m_stopWhenStarted = false;
    {
        std::lock_guard lock(m_stream->mutex);
        m_stream->drawCursor = !hideCursor;
    }
    RecorderSettings settings;
    settings.file = directory / project::LocalProject::kRecording;
    settings.width = static_cast<int>(m_size.width);
    settings.height = static_cast<int>(m_size.height);
    settings.fps = m_settings.fps;
    // No sound server is no reason to fail: the recording goes on silent, with a notice.
    RecorderSlot* writing = &m_writing;
    for (auto [device, wanted] : {std::pair{SoundDevice::System, systemSound},
                                  std::pair{SoundDevice::Microphone, microphone}}) {
        if (!wanted) {
            continue;
        }
        auto input = SoundInput::open(
            device, [writing, device = device](const float* samples, size_t frames, double time) {
                if (auto recorder = writing->get()) {
                    recorder->appendSound(device, samples, frames, time);
                }
            });
        if (!input) {
            send("notice", {{"message",
                             texts::noSound(device == SoundDevice::Microphone,
                                            input.error().detail.empty() ? input.error().message
                                                                         : input.error().detail)}});
            continue;
        }
        (device == SoundDevice::System ? settings.systemSound : settings.microphone) = true;
        m_sound.push_back(std::move(*input));
    }
    auto created = ScreenRecorder::create(settings);
    if (!created) {
        m_sound.clear();
        send("recordError", {{"message", created.error().message}});
        return;
    }
    std::shared_ptr<ScreenRecorder> recorder = std::move(*created);
    ScreenRecorder* raw = recorder.get();
    auto alive = m_alive;
    recorder->onStart = [this, alive, raw](double startTime) {
        m_main.post([this, alive, raw, startTime] {
            if (!*alive || m_recorder.get() != raw) {
                return;
            }
            m_didStart = true;
            send("started", {{"startTime", startTime}});
            if (m_stopWhenStarted) {
                stop();
            }
        });
    };
    recorder->onFail = [this, alive, raw](const AppError& error) {
        m_main.post([this, alive, raw, message = error.message] {
            if (!*alive || m_recorder.get() != raw) {
                return;
            }
            m_writing.set(nullptr);
            m_sound.clear();
            m_recorder.reset();
            send("recordError", {{"message", message}});
        });
    };
    m_recorder = recorder;
    m_writing.set(recorder);
    // The latest preview frame starts the movie at once.
    PreviewFrames* frames = &m_frames;
    m_frameQueue->post([recorder, frames] {
        if (auto latest = frames->latest()) {
            recorder->begin(latest);
        }
    });
}

void CaptureSession::stop() {
    if (!m_recorder) {
        return;
    }
    if (!m_didStart) {
        // The writer has no frame yet; it stops as soon as it has one.
        m_stopWhenStarted = true;
        return;
    }
    finishRecording(m_recorder, false);  // takes the recorder, so a second stop does nothing
}

void CaptureSession::finishRecording(std::shared_ptr<ScreenRecorder> recorder, bool ended) {
    m_writing.set(nullptr);
    m_sound.clear();  // joins the sound threads
    if (m_frameQueue) {
        m_frameQueue->invoke([] {});  // no frame is being appended any more
    }
    m_recorder.reset();
    if (m_stream) {
        std::lock_guard lock(m_stream->mutex);
        m_stream->drawCursor = false;
    }
    double endTime = monotonicSeconds();
    auto alive = m_alive;
    fs::path directory = m_directory;
    m_workQueue->post([this, alive, recorder, ended, endTime, directory] {
        auto finished = recorder->finish(endTime);
        if (finished) {
            // A plain recipe for the whole movie, so the folder opens even before polish.
            if (auto project = project::LocalProject::open(directory)) {
                auto edits = project::Edits::fresh(*finished);
                if (edits.validate(*finished)) {
                    (void)project->saveEdits(edits);
                }
            }
        }
        m_main.post([this, alive, ended, finished] {
            if (!*alive) {
                return;
            }
            if (ended) {
                Json info = {{"message", texts::kSharingEnded}};
                if (finished) {
                    info["duration"] = *finished;
                }
                send("recordError", info);
            } else if (finished) {
                send("finished", {{"duration", *finished}});
            } else {
                send("recordError", {{"message", finished.error().message}});
            }
        });
    });
}

Result<Size> CaptureSession::resizeWindow(Size size) {
    if (!m_window) {
        return AppError(texts::kChooseWindowFirst);
    }
    auto resized = m_backend->resizeWindow(m_window->id, size);
    if (!resized) {
        return AppError(texts::noResize(m_window->app.empty() ? "The app" : m_window->app),
                        resized.error().message);
    }
    follow();
    send("resized", {{"width", resized->width},
                     {"height", resized->height},
                     {"points", std::to_string(static_cast<int>(resized->width)) + " × " +
                                    std::to_string(static_cast<int>(resized->height))}});
    return *resized;
}

}  // namespace quillo::capture
