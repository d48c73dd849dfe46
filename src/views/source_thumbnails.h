#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include <QImage>
#include <QObject>
#include <QSize>

#include "capture/display_backend.h"

namespace quillo {
class SerialQueue;
}

namespace quillo::views {

// Small pictures of shareable sources, made on "app.quillo.thumbnails": each source's area is
// grabbed through the backend's grabber (without the pointer) and scaled down to fit `bounds`.
// `onReady` hears each one on the GUI thread as it is done (a null image when the grab failed).
class SourceThumbnails : public QObject {
    Q_OBJECT

public:
    struct Request {
        capture::SourceRef ref;
        Rect area;  // screen pixels
    };
    using Ready = std::function<void(const capture::SourceRef&, const QImage&)>;

    SourceThumbnails(std::shared_ptr<capture::DisplayBackend> backend, Ready onReady,
                     QObject* parent = nullptr);
    ~SourceThumbnails() override;

    // Starts a batch, after any under way is dropped. Where the backend can leave windows out
    // of its grabs, `hidden` (Quillo's own windows, such as the picker) are left out of these.
    void make(std::vector<Request> requests, QSize bounds, std::vector<uint64_t> hidden = {});
    // Drops the batch under way; pictures not yet reported never are.
    void cancel();

private:
    std::shared_ptr<capture::DisplayBackend> m_backend;
    Ready m_onReady;
    std::shared_ptr<std::atomic<uint64_t>> m_batch = std::make_shared<std::atomic<uint64_t>>(0);
    std::unique_ptr<SerialQueue> m_queue;
};

}  // namespace quillo::views
