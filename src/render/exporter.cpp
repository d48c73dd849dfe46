#include "exporter.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <mutex>
#include <signal.h>
#include <string_view>
#include <system_error>
#include <unistd.h>

#include "base/uuid.h"
#include "canvas.h"
#include "cursor_renderer.h"
#include "media/gif_writer.h"
#include "media/movie_info.h"
#include "media/movie_reader.h"
#include "media/movie_writer.h"
#include "piece_sound.h"
#include "project/local_project.h"

namespace quillo::render {

namespace fs = std::filesystem;

namespace {

constexpr const char* kCannotExport = "This recording cannot be exported.";
constexpr const char* kNotWritten = "The export could not be written.";
constexpr const char* kFailed = "The export failed.";
constexpr const char* kNotFinished = "The export could not be finished.";
constexpr const char* kGifNotCreated = "Could not create the GIF.";
constexpr const char* kGifNotFinished = "Could not finish the GIF.";

AppError withMessage(const char* message, const AppError& cause) {
    return AppError(
        message, cause.detail.empty() ? cause.message : cause.message + " (" + cause.detail + ")");
}

// The pid in a partial file's name ".NAME.PID.UUID8.part", or 0 when the name has another form.
pid_t partWriter(const std::string& name) {
    constexpr std::string_view kSuffix = ".part";
    if (name.size() < 1 + kSuffix.size() || name[0] != '.' || !name.ends_with(kSuffix)) {
        return 0;
    }
    std::string_view rest(name.data() + 1, name.size() - 1 - kSuffix.size());
    size_t dot = rest.rfind('.');
    if (dot == std::string_view::npos || rest.size() - dot - 1 != 8 ||
        rest.find_first_not_of("0123456789ABCDEFabcdef", dot + 1) != std::string_view::npos) {
        return 0;
    }
    rest = rest.substr(0, dot);
    dot = rest.rfind('.');
    if (dot == std::string_view::npos || dot == 0) {
        return 0;
    }
    std::string_view digits = rest.substr(dot + 1);
    pid_t pid = 0;
    auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), pid);
    return error == std::errc() && end == digits.data() + digits.size() && pid > 0 ? pid : 0;
}

// Removes the partial files in `folder` that exports killed on the way left behind: those whose
// writer no longer runs. A part of a running writer, in this process or another, stays.
void removeStaleParts(const fs::path& folder) {
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
        pid_t pid = partWriter(it->path().filename().string());
        if (pid > 0 && ::kill(pid, 0) != 0 && errno == ESRCH) {
            std::error_code ignored;
            fs::remove(it->path(), ignored);
        }
    }
}

// A file beside the destination that becomes it only when complete. Its name carries the
// writer's pid, so that a part left by a killed export can be told from one being written.
class PartialFile {
public:
    explicit PartialFile(const fs::path& destination)
        : m_destination(destination),
          m_path(destination.parent_path() /
                 ("." + destination.filename().string() + "." + std::to_string(::getpid()) + "." +
                  makeUUID().substr(0, 8) + ".part")) {
        removeStaleParts(destination.parent_path().empty() ? fs::path(".")
                                                           : destination.parent_path());
    }
    ~PartialFile() {
        if (!m_kept) {
            std::error_code ignored;
            fs::remove(m_path, ignored);
        }
    }
    const fs::path& path() const { return m_path; }
    Result<void> keep() {
        std::error_code error;
        fs::rename(m_path, m_destination, error);
        if (error) {
            return AppError(kNotFinished, error.message());
        }
        m_kept = true;
        return {};
    }

private:
    fs::path m_destination;
    fs::path m_path;
    bool m_kept = false;
};

// Reads the recording's frames at recording times and renders them.
class FrameSource {
public:
    static Result<FrameSource> open(const RenderPlan& plan) {
        auto reader = media::MovieReader::open(plan.movie);
        if (!reader) {
            return withMessage(kCannotExport, reader.error());
        }
        auto camera = openCameraFeed(plan);
        if (!camera) {
            return withMessage(kCannotExport, camera.error());
        }
        return FrameSource(plan, std::move(*reader), std::move(*camera));
    }

    // The finished frame at a recording time. `repeated` is set when it is the same picture as
    // the one before (the recording did not change and neither did zoom, cursor or overlays);
    // the frame is then not drawn again. `changed` gets the part that differs from the frame
    // before when only the camera moved (else none: anything may differ).
    Result<const Image*> render(double recordingTime, bool* repeated = nullptr,
                                std::optional<PixelRect>* changed = nullptr) {
        if (changed) {
            changed->reset();
        }
        auto read = m_reader->frame(recordingTime, {}, m_screen);
        if (!read) {
            return read.error();
        }
        FrameRenderer::Moment moment = m_plan.renderer->moment(recordingTime);
        const bool same = m_rendered && m_screen.unchanged && moment.key == m_key;
        const ImageView screen{m_screen.pixels.data(), m_screen.width, m_screen.height,
                               m_screen.stride};
        if (!m_camera) {
            if (repeated) {
                *repeated = same;
            }
            if (!same) {
                m_plan.renderer->render(screen, moment, m_out.view());
                m_key = std::move(moment.key);
                m_rendered = true;
            }
            return &m_out;
        }
        auto frame = m_camera->frame(recordingTime);
        if (!frame) {
            return frame.error();
        }
        const media::VideoFrame& c = **frame;
        const ImageView camera{const_cast<uint8_t*>(c.pixels.data()), c.width, c.height, c.stride};
        const bool sameCamera = same && c.time == m_cameraTime;
        if (repeated) {
            *repeated = sameCamera;
        }
        if (sameCamera) {
            return &m_out;
        }
        // What lies under the camera is kept apart, so that while only the camera moves just
        // its place is drawn again.
        const std::optional<PixelRect> place = m_plan.renderer->cameraArea();
        if (same && place) {
            copyPixels(m_under.view(), m_out.view(), place->x, place->y);
            if (changed) {
                *changed = place;
            }
        } else if (same) {
            m_plan.renderer->restoreCameraArea(m_base.view(), m_out.view());
        } else {
            if (place) {
                // Rendered in place; only the camera's rectangle is kept.
                m_plan.renderer->renderScreen(screen, moment, m_out.view());
                if (m_under.width != place->width || m_under.height != place->height) {
                    m_under = Image(place->width, place->height);
                }
                copyPixels(m_out.view().region(place->x, place->y, place->width, place->height),
                           m_under.view(), 0, 0);
            } else {
                m_plan.renderer->renderScreen(screen, moment, m_base.view());
                copyPixels(m_base.view(), m_out.view(), 0, 0);
            }
            m_key = std::move(moment.key);
            m_rendered = true;
        }
        m_plan.renderer->finish(camera, moment, m_out.view());
        m_cameraTime = c.time;
        return &m_out;
    }

private:
    FrameSource(const RenderPlan& plan, std::unique_ptr<media::MovieReader> reader,
                std::unique_ptr<CameraFeed> camera)
        : m_plan(plan),
          m_reader(std::move(reader)),
          m_camera(std::move(camera)),
          m_out(m_plan.renderer->outputWidth(), m_plan.renderer->outputHeight()) {
        if (m_camera && !m_plan.renderer->cameraArea()) {
            m_base = Image(m_out.width, m_out.height);
        }
    }

    const RenderPlan& m_plan;
    std::unique_ptr<media::MovieReader> m_reader;
    std::unique_ptr<CameraFeed> m_camera;
    media::VideoFrame m_screen;
    Image m_out;
    Image m_base;               // m_out without the camera, when the camera's place isn't enough
    Image m_under;              // what lies under the camera's place in m_out, when that is enough
    double m_cameraTime = -1;   // the camera frame m_out shows
    std::vector<double> m_key;  // the state m_out was rendered for
    bool m_rendered = false;
};

std::mutex overlayLock;
OverlaySource redactionSource;
OverlaySource captionSource;

std::pair<OverlaySource, OverlaySource> registeredOverlays() {
    std::lock_guard lock(overlayLock);
    return {redactionSource, captionSource};
}

}  // namespace

void registerOverlay(OverlaySlot slot, OverlaySource source) {
    std::lock_guard lock(overlayLock);
    (slot == OverlaySlot::Redactions ? redactionSource : captionSource) = std::move(source);
}

Result<RenderPlan> renderPlan(const fs::path& folder, const project::Edits& edits,
                              std::optional<double> maxDimension, std::optional<Size> size,
                              std::optional<double> fps) {
    RenderPlan plan;
    plan.movie = folder / project::LocalProject::kRecording;
    auto info = media::readMovieInfo(plan.movie);
    if (!info) {
        return withMessage(kCannotExport, info.error());
    }
    plan.sourceSize = info->videoSize;
    plan.hasSound = info->hasSound;
    plan.sourceFPS = std::isnormal(info->frameRate) ? info->frameRate : 30;
    plan.fps = plan.sourceFPS;
    if (fps && *fps > 0 && *fps < plan.fps) {
        plan.fps = *fps;
    }
    plan.duration = edits.outputDuration();
    plan.renderSize = renderSize(edits, plan.sourceSize, maxDimension, size);
    plan.map = std::make_shared<project::TimeMap>(edits);
    auto cursor = CursorRenderer::load(folder);
    if (!cursor) {
        return cursor.error();
    }
    std::shared_ptr<const CursorRenderer> shared;
    if (*cursor) {
        shared = std::make_shared<const CursorRenderer>(std::move(**cursor));
    }
    auto camera = CameraFootage::load(folder);
    if (!camera) {
        return withMessage(kCannotExport, camera.error());
    }
    plan.camera = std::move(*camera);
    std::optional<Size> cameraSize;
    if (plan.camera) {
        cameraSize = plan.camera->size;
    }
    plan.renderer = std::make_shared<FrameRenderer>(edits, plan.sourceSize, plan.renderSize, shared,
                                                    cameraSize);
    auto [redactions, captions] = registeredOverlays();
    if (redactions) {
        plan.renderer->setRedactions(redactions(folder, edits, plan.sourceSize));
    }
    if (captions) {
        plan.renderer->setCaptions(captions(folder, edits, plan.sourceSize));
    }
    return plan;
}

Result<std::unique_ptr<CameraFeed>> openCameraFeed(const RenderPlan& plan) {
    if (!plan.camera || !plan.renderer->drawsCamera()) {
        return std::unique_ptr<CameraFeed>();
    }
    return CameraFeed::open(*plan.camera, plan.renderer->cameraReadSize());
}

Result<Image> renderFrame(const RenderPlan& plan, double t) {
    auto source = FrameSource::open(plan);
    if (!source) {
        return source.error();
    }
    auto frame = source->render(t);
    if (!frame) {
        return frame.error();
    }
    return **frame;
}

Result<void> exportMovie(const RenderPlan& plan, const fs::path& destination, bool hevc,
                         const ExportProgress& progress, const CancelToken& cancel) {
    auto source = FrameSource::open(plan);
    if (!source) {
        return source.error();
    }
    PartialFile file(destination);
    media::MovieSettings settings;
    settings.width = static_cast<int>(plan.renderSize.width);
    settings.height = static_cast<int>(plan.renderSize.height);
    settings.fps = plan.fps;
    settings.codec = hevc ? media::VideoCodec::HEVC : media::VideoCodec::H264;
    settings.sound = plan.hasSound;
    auto writer = media::MovieWriter::create(file.path(), settings);
    if (!writer) {
        return withMessage(kNotWritten, writer.error());
    }
    std::vector<project::TimeSegment> pieces;
    for (const auto& entry : plan.map->entries()) {
        pieces.push_back(entry.piece);
    }
    PieceSound sound(plan.movie, std::move(pieces), media::kMovieSampleRate, media::kMovieChannels);
    auto addSound = [&](const float* samples, size_t frames) {
        return (*writer)->addSound(samples, frames);
    };

    // Frames at k / fps for as long as the finished video lasts (at least one frame).
    const double duration = std::max(plan.duration, 0.001);
    const int64_t count = std::max<int64_t>(1, std::llround(std::ceil(duration * plan.fps - 1e-6)));
    for (int64_t k = 0; k < count; ++k) {
        if (cancel.isCancelled()) {
            return AppError(kExportCancelled);
        }
        double t = plan.map->source(static_cast<double>(k) / plan.fps);
        bool repeated = false;
        std::optional<PixelRect> changed;
        auto frame = source->render(t, &repeated, &changed);
        if (!frame) {
            return withMessage(kFailed, frame.error());
        }
        const uint8_t* pixels = (*frame)->pixels.data();
        auto added = repeated ? (*writer)->repeatFrame()
                     : changed
                         ? (*writer)->updateFrame(pixels, (*frame)->stride(), changed->x,
                                                  changed->y, changed->width, changed->height, true)
                         : (*writer)->addFrame(pixels, (*frame)->stride());
        if (!added) {
            return withMessage(kFailed, added.error());
        }
        if (plan.hasSound) {
            int64_t until = std::llround((k + 1) / plan.fps * media::kMovieSampleRate);
            if (auto added = sound.produceUntil(until, addSound); !added) {
                return withMessage(kFailed, added.error());
            }
        }
        if (progress) {
            progress(std::min(1.0, static_cast<double>(k + 1) / plan.fps / duration));
        }
    }
    if (auto finished = (*writer)->finish(); !finished) {
        return withMessage(kNotFinished, finished.error());
    }
    writer->reset();
    return file.keep();
}

Result<void> exportGIF(const RenderPlan& plan, const fs::path& destination, double fps,
                       const ExportProgress& progress, const CancelToken& cancel) {
    if (!(fps > 0)) {
        fps = 12;
    }
    auto source = FrameSource::open(plan);
    if (!source) {
        return source.error();
    }
    PartialFile file(destination);
    auto writer = media::GifWriter::create(file.path(), static_cast<int>(plan.renderSize.width),
                                           static_cast<int>(plan.renderSize.height), fps);
    if (!writer) {
        return withMessage(kGifNotCreated, writer.error());
    }
    const int64_t count =
        std::max<int64_t>(1, static_cast<int64_t>(std::floor(plan.duration * fps + 1e-9)));
    for (int64_t i = 0; i < count; ++i) {
        if (cancel.isCancelled()) {
            return AppError(kExportCancelled);
        }
        auto frame = source->render(plan.map->source(static_cast<double>(i) / fps));
        if (!frame) {
            return withMessage(kGifNotFinished, frame.error());
        }
        if (auto added = (*writer)->add((*frame)->pixels.data(), (*frame)->stride()); !added) {
            return withMessage(kGifNotFinished, added.error());
        }
        if (progress) {
            progress(static_cast<double>(i + 1) / count);
        }
    }
    if (auto finished = (*writer)->finish(); !finished) {
        return withMessage(kGifNotFinished, finished.error());
    }
    writer->reset();
    if (auto kept = file.keep(); !kept) {
        return AppError(kGifNotFinished, kept.error().detail);
    }
    return {};
}

Result<void> exportRecording(const fs::path& folder, const ExportSpec& spec,
                             const fs::path& destination, const ExportProgress& progress,
                             const CancelToken& cancel) {
    const bool gif = spec.format == ExportFormat::GIF;
    std::optional<double> fps;
    if (spec.fps) {
        fps = *spec.fps;
    }
    // GIFs are held to 960 pixels on their longest side whatever size was asked for.
    auto plan =
        gif ? renderPlan(folder, spec.edits, std::min(spec.maxDimension.value_or(960), 960.0))
            : renderPlan(folder, spec.edits, spec.maxDimension, spec.size, fps);
    if (!plan) {
        return plan.error();
    }
    if (gif) {
        return exportGIF(*plan, destination, spec.fps.value_or(12), progress, cancel);
    }
    return exportMovie(*plan, destination, spec.hevc, progress, cancel);
}

}  // namespace quillo::render
