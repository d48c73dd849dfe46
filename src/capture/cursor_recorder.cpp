#include "cursor_recorder.h"

#include <cairo.h>

#include "base/clock.h"
#include "base/files.h"
#include "base/log.h"
#include "base/repeating_timer.h"
#include "base/serial_queue.h"

namespace quillo::capture {

namespace fs = std::filesystem;

namespace {

cairo_status_t appendBytes(void* closure, const unsigned char* data, unsigned int length) {
    static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
}

// The cursor picture as PNG bytes (the data is premultiplied ARGB, as Cairo keeps it).
std::string encodePNG(const CursorImage& image) {
    std::string bytes;
    if (image.width <= 0 || image.height <= 0) {
        return bytes;
    }
    std::vector<uint32_t> pixels = image.argb;
    pixels.resize(static_cast<size_t>(image.width) * image.height);
    cairo_surface_t* surface = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(pixels.data()), CAIRO_FORMAT_ARGB32, image.width,
        image.height, image.width * 4);
    cairo_surface_write_to_png_stream(surface, appendBytes, &bytes);
    cairo_surface_destroy(surface);
    return bytes;
}

// The AI cursor's picture, as the agent pointer shows it on screen: a violet arrow with a white
// edge, premultiplied ARGB, hot spot at its tip.
const CursorImage& agentCursorImage() {
    static const CursorImage image = [] {
        CursorImage arrow;
        arrow.width = 16;
        arrow.height = 22;
        arrow.hotX = 1;
        arrow.hotY = 1;
        arrow.serial = ~0ull;
        arrow.argb.assign(static_cast<size_t>(arrow.width) * arrow.height, 0);
        cairo_surface_t* surface = cairo_image_surface_create_for_data(
            reinterpret_cast<unsigned char*>(arrow.argb.data()), CAIRO_FORMAT_ARGB32, arrow.width,
            arrow.height, arrow.width * 4);
        cairo_t* cr = cairo_create(surface);
        cairo_move_to(cr, 1, 1);
        cairo_line_to(cr, 1, 18);
        cairo_line_to(cr, 5.5, 14);
        cairo_line_to(cr, 8.5, 20.5);
        cairo_line_to(cr, 11, 19.5);
        cairo_line_to(cr, 8, 13);
        cairo_line_to(cr, 14, 13);
        cairo_close_path(cr);
        cairo_set_source_rgb(cr, 0.49, 0.36, 0.98);
        cairo_fill_preserve(cr);
        cairo_set_source_rgb(cr, 1, 1, 1);
        cairo_set_line_width(cr, 1.2);
        cairo_stroke(cr);
        cairo_destroy(cr);
        cairo_surface_flush(surface);
        cairo_surface_destroy(surface);
        return arrow;
    }();
    return image;
}

}  // namespace

CursorRecorder::CursorRecorder(std::shared_ptr<DisplayBackend> backend, TaskQueue& mainQueue,
                               Sources sources, std::unique_ptr<CaretLocator> caret)
    : m_backend(std::move(backend)),
      m_main(mainQueue),
      m_sources(std::move(sources)),
      m_caretLocator(std::move(caret)) {}

CursorRecorder::~CursorRecorder() {
    *m_alive = false;
    m_timer.reset();
    m_watcher.reset();
    m_caretQueue.reset();
}

void CursorRecorder::begin(const fs::path& directory, bool layered, double pixelsPerPoint,
                           double startTime) {
    m_directory = directory;
    m_started = startTime;
    m_pixelsPerPoint = pixelsPerPoint;
    m_track = {};
    m_track.layered = layered;
    if (m_backend->pointerInPicture()) {
        m_track.pointerInPicture = true;
    }
    m_track.pixelsPerPoint = pixelsPerPoint;
    m_lastCheckpoint = monotonicSeconds();
    if (m_caretLocator) {
        m_caretQueue = std::make_unique<SerialQueue>("app.quillo.caret");
    }
    auto alive = m_alive;
    TaskQueue* main = &m_main;
    auto watcher = m_backend->watchInput([this, alive, main](const InputEvent& event) {
        main->post([this, alive, event] {
            if (!*alive || m_finished) {
                return;
            }
            if (event.kind == InputEvent::Kind::Press && (event.button == 1 || event.button == 3)) {
                recordClick();
            } else if (event.kind == InputEvent::Kind::Key && !event.modifier) {
                recordTyping();
            }
        });
    });
    if (watcher) {
        m_watcher = std::move(*watcher);
    } else {
        logError("app.quillo.cursor", "no input watcher: " + watcher.error().message);
        m_inputNotice = watcher.error().message;
    }
    m_timer = std::make_unique<RepeatingTimer>(m_main, kSampleInterval, [this] { sample(); });
}

double CursorRecorder::elapsed() const {
    return m_started ? std::max(0.0, monotonicSeconds() - *m_started) : 0;
}

void CursorRecorder::inject(Point point, bool click) {
    m_injected = std::pair{monotonicSeconds(), point};
    if (click && m_started) {
        m_lastClick = point;
        m_track.clicks.push_back({elapsed(), point.x, point.y, std::nullopt});
    }
}

std::optional<Point> CursorRecorder::toUnit(Point screen) const {
    auto frame = m_sources.geometry ? m_sources.geometry() : std::nullopt;
    if (!frame || frame->width <= 0 || frame->height <= 0) {
        return std::nullopt;
    }
    return Point{(screen.x - frame->x) / frame->width, (screen.y - frame->y) / frame->height};
}

std::optional<Point> CursorRecorder::current(AskAgent ask) const {
    if (ask == AskAgent::Yes && m_sources.agentPointer) {
        if (auto agent = m_sources.agentPointer()) {
            return agent;
        }
    }
    if (m_injected && monotonicSeconds() - m_injected->first < kInjectedHold) {
        return m_injected->second;
    }
    auto pointer = m_backend->pointer();
    if (!pointer) {
        return std::nullopt;
    }
    return toUnit(*pointer);
}

std::optional<int64_t> CursorRecorder::currentShape(bool agent) {
    // While the agent drives, the track shows the AI cursor's own picture.
    auto image = agent ? std::optional<CursorImage>(agentCursorImage()) : m_backend->cursorImage();
    if (!image) {
        return m_lastShape;
    }
    // The server's serial changes with the picture, so the PNG is made only on a change.
    if (m_lastShape && image->serial == m_lastSerial) {
        return m_lastShape;
    }
    m_lastSerial = image->serial;
    std::string png = encodePNG(*image);
    if (png.empty()) {
        return m_lastShape;
    }
    if (auto known = m_shapeKeys.find(png); known != m_shapeKeys.end()) {
        return m_lastShape = known->second;
    }
    if (!m_track.shapes) {
        m_track.shapes.emplace();
    }
    int64_t id = static_cast<int64_t>(m_track.shapes->size()) + 1;
    if (auto written =
            writeFileAtomically(m_directory / project::CursorTrack::shapeImageName(id), png);
        !written) {
        logError("app.quillo.cursor", written.error().message);
        return m_lastShape;
    }
    m_shapeKeys[png] = id;
    m_track.shapes->push_back({id, image->width / m_pixelsPerPoint,
                               image->height / m_pixelsPerPoint, static_cast<double>(image->hotX),
                               static_cast<double>(image->hotY)});
    return m_lastShape = id;
}

void CursorRecorder::sample() {
    if (!m_started || m_finished) {
        return;
    }
    // One look at the agent pointer per sample: it is a round trip to the display server.
    std::optional<Point> agent = m_sources.agentPointer ? m_sources.agentPointer() : std::nullopt;
    if (auto point = agent ? agent : current(AskAgent::No)) {
        m_track.samples.push_back({elapsed(), point->x, point->y, currentShape(agent.has_value())});
    }
    if (monotonicSeconds() - m_lastCheckpoint >= kCheckpointInterval) {
        checkpoint();
    }
}

void CursorRecorder::recordClick() {
    if (!m_started || m_finished) {
        return;
    }
    // Agent clicks arrive through inject() while the AI cursor is shown.
    if (m_sources.agentPointer && m_sources.agentPointer()) {
        return;
    }
    auto point = current();
    if (!point || point->x < 0 || point->x > 1 || point->y < 0 || point->y > 1) {
        return;
    }
    m_lastClick = point;
    m_track.clicks.push_back({elapsed(), point->x, point->y, std::nullopt});
}

void CursorRecorder::recordTyping() {
    if (!m_started || m_finished) {
        return;
    }
    std::optional<Point> at = m_caret ? m_caret : m_lastClick ? m_lastClick : current();
    if (at) {
        if (!m_track.typing) {
            m_track.typing.emplace();
        }
        m_track.typing->push_back({elapsed(), at->x, at->y, std::nullopt});
    }
    locateCaret();
}

void CursorRecorder::locateCaret() {
    double now = monotonicSeconds();
    if (!m_caretQueue || (m_caretLookup && now - *m_caretLookup < kCaretThrottle)) {
        return;
    }
    m_caretLookup = now;
    int32_t pid = m_sources.processID ? m_sources.processID().value_or(0) : 0;
    auto alive = m_alive;
    TaskQueue* main = &m_main;
    CaretLocator* locator = m_caretLocator.get();
    auto place = m_sources.windowOrigin;
    m_caretQueue->post([this, alive, main, locator, pid, place] {
        int32_t foundIn = 0;
        std::optional<Rect> caret = locator->locate(pid, &foundIn);
        // Where the caret comes relative to its window, the window's place is added.
        if (caret && place && foundIn != 0) {
            if (auto origin = place(foundIn)) {
                caret->x += origin->x;
                caret->y += origin->y;
            }
        }
        main->post([this, alive, caret] {
            if (!*alive || !caret) {
                return;
            }
            if (auto unit = toUnit({caret->x + caret->width / 2, caret->y + caret->height / 2})) {
                m_caret = unit;
            }
        });
    });
}

void CursorRecorder::checkpoint() {
    m_lastCheckpoint = monotonicSeconds();
    if (auto written = writeFileAtomically(m_directory / project::CursorTrack::kFileName,
                                           project::encodeCursorTrack(m_track));
        !written) {
        logError("app.quillo.cursor", written.error().message);
    }
}

Result<project::CursorTrack> CursorRecorder::finish() {
    m_finished = true;
    m_timer.reset();
    m_watcher.reset();
    if (auto written = writeFileAtomically(m_directory / project::CursorTrack::kFileName,
                                           project::encodeCursorTrack(m_track));
        !written) {
        return written.error();
    }
    return m_track;
}

}  // namespace quillo::capture
