#include "source_thumbnails.h"

#include <algorithm>

#include "base/serial_queue.h"

namespace quillo::views {

namespace {

// The area inside the monitors' bounding box; empty when nothing of it is on screen.
Rect onScreen(const Rect& area, const std::vector<capture::MonitorInfo>& monitors) {
    Rect inside = capture::clipToScreen(area, monitors);
    return inside.width < 1 || inside.height < 1 ? Rect{} : inside;
}

QImage picture(capture::ScreenGrabber& grabber, const Rect& area, QSize bounds) {
    if (area.width < 1 || area.height < 1) {
        return {};
    }
    auto frame = grabber.grab(area, false);
    if (!frame || !*frame) {
        return {};
    }
    const capture::CapturedFrame& pixels = **frame;
    // BGRA rows are what Qt calls RGB32 on a little-endian machine; scaling copies them.
    QImage view(pixels.pixels, pixels.width, pixels.height, pixels.stride, QImage::Format_RGB32);
    return view.scaled(bounds, Qt::KeepAspectRatio, Qt::SmoothTransformation);
}

}  // namespace

SourceThumbnails::SourceThumbnails(std::shared_ptr<capture::DisplayBackend> backend, Ready onReady,
                                   QObject* parent)
    : QObject(parent),
      m_backend(std::move(backend)),
      m_onReady(std::move(onReady)),
      m_queue(std::make_unique<SerialQueue>("app.quillo.thumbnails")) {}

SourceThumbnails::~SourceThumbnails() {
    cancel();
    m_queue.reset();  // waits for the grab under way
}

void SourceThumbnails::cancel() { ++*m_batch; }

void SourceThumbnails::make(std::vector<Request> requests, QSize bounds,
                            std::vector<uint64_t> hidden) {
    uint64_t batch = ++*m_batch;
    // The destructor waits for this task, so `this` outlives it; what it posts back is dropped
    // with the object.
    m_queue->post([this, batch, counter = m_batch, backend = m_backend,
                   requests = std::move(requests), bounds, hidden = std::move(hidden)] {
        auto grabber = backend->grabber();
        if (!grabber) {
            return;
        }
        bool excluding = !hidden.empty() && backend->excludesWindows();
        if (excluding) {
            backend->setExcludedWindows(hidden);
        }
        auto monitors = backend->monitors().value_or(std::vector<capture::MonitorInfo>{});
        for (const Request& request : requests) {
            if (*counter != batch) {
                break;
            }
            QImage image = picture(**grabber, onScreen(request.area, monitors), bounds);
            QMetaObject::invokeMethod(
                this,
                [this, batch, counter, ref = request.ref, image] {
                    if (*counter == batch && m_onReady) {
                        m_onReady(ref, image);
                    }
                },
                Qt::QueuedConnection);
        }
        if (excluding) {
            backend->setExcludedWindows({});
        }
    });
}

}  // namespace quillo::views
