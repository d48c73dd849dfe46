#include "thumbnail_cache.h"

#include <algorithm>
#include <mutex>
#include <system_error>
#include <vector>

#include <QCryptographicHash>
#include <QImageReader>

#include "base/main_queue.h"
#include "media/movie_reader.h"

namespace quillo::views {

namespace fs = std::filesystem;

// What the worker's tasks share with the cache. `owner` is read and cleared on the GUI thread
// only, so a delivery after the cache is gone does nothing.
struct ThumbnailCache::State {
    ThumbnailCache* owner = nullptr;
    std::atomic<bool> stopped{false};
    std::atomic<int> decodes{0};
    // Guarded by mutex:
    std::mutex mutex;
    std::vector<std::string> pending;  // most recent request last
};

namespace {

QImage decodeThumbnail(const fs::path& movie) {
    auto reader = media::MovieReader::open(movie, media::DecodeMode::Fast);
    if (!reader) {
        return {};
    }
    double t = thumbnailTime((*reader)->info().duration);
    auto frame = (*reader)->frame(t, {ThumbnailCache::kThumbnailWidth, 0});
    if (!frame || frame->width <= 0 || frame->height <= 0) {
        return {};
    }
    // BGRA bytes in memory are ARGB32 words on a little-endian machine.
    QImage view(frame->pixels.data(), frame->width, frame->height, frame->stride,
                QImage::Format_ARGB32);
    return view.convertToFormat(QImage::Format_RGB32);
}

// Reads the cached picture, or decodes one and stores it (written aside, then renamed in, so a
// reader never sees half a file).
QImage makeThumbnail(const fs::path& folder, const fs::path& movie, std::atomic<int>& decodes) {
    std::optional<fs::path> cached = thumbnailFile(folder, movie);
    if (!cached) {
        return {};
    }
    if (std::error_code error; fs::exists(*cached, error)) {
        QImageReader reader(QString::fromStdString(cached->string()));
        QImage image = reader.read();
        if (!image.isNull()) {
            return image;
        }
    }
    decodes++;
    QImage image = decodeThumbnail(movie);
    if (image.isNull()) {
        return image;
    }
    std::error_code error;
    fs::create_directories(folder, error);
    fs::path partial = cached->string() + ".part";
    if (image.save(QString::fromStdString(partial.string()), "JPEG", 85)) {
        fs::rename(partial, *cached, error);
    }
    return image;
}

}  // namespace

std::optional<fs::path> thumbnailFile(const fs::path& folder, const fs::path& movie) {
    std::error_code error;
    auto size = fs::file_size(movie, error);
    if (error) {
        return std::nullopt;
    }
    auto modified = fs::last_write_time(movie, error);
    if (error) {
        return std::nullopt;
    }
    QCryptographicHash hash(QCryptographicHash::Sha1);
    hash.addData(QByteArray::fromStdString(movie.string()));
    hash.addData(QByteArray::number(static_cast<qulonglong>(size)));
    hash.addData(QByteArray::number(static_cast<qlonglong>(modified.time_since_epoch().count())));
    return folder / (hash.result().toHex().toStdString() + ".jpg");
}

double thumbnailTime(double duration) {
    if (!(duration > 0)) {
        return 0;
    }
    return std::max(duration * 0.1, std::min(1.0, duration * 0.5));
}

ThumbnailCache::ThumbnailCache(fs::path folder, QObject* parent)
    : QObject(parent), m_folder(std::move(folder)), m_state(std::make_shared<State>()) {
    m_state->owner = this;
}

ThumbnailCache::~ThumbnailCache() {
    m_state->owner = nullptr;
    m_state->stopped = true;
    // m_worker's destructor runs the queued tasks, which now return at once, and joins.
}

QImage ThumbnailCache::image(const std::string& movie) const {
    auto it = m_images.find(movie);
    return it == m_images.end() ? QImage() : it->second;
}

int ThumbnailCache::decodes() const { return m_state->decodes.load(); }

bool ThumbnailCache::failed(const std::string& movie) const { return m_failed.count(movie) > 0; }

void ThumbnailCache::request(const std::string& movie) {
    if (!m_requested.insert(movie).second) {
        return;
    }
    {
        std::lock_guard lock(m_state->mutex);
        m_state->pending.push_back(movie);
    }
    // One task per request; each takes the newest request still waiting.
    m_worker.post([state = m_state, folder = m_folder] {
        if (state->stopped) {
            return;
        }
        std::string next;
        {
            std::lock_guard lock(state->mutex);
            if (state->pending.empty()) {
                return;
            }
            next = std::move(state->pending.back());
            state->pending.pop_back();
        }
        QImage image = makeThumbnail(folder, next, state->decodes);
        if (state->stopped) {
            return;
        }
        MainQueue::shared().post([state, next, image] {
            if (state->owner) {
                state->owner->deliver(next, image);
            }
        });
    });
}

void ThumbnailCache::deliver(const std::string& movie, const QImage& image) {
    if (image.isNull()) {
        m_failed.insert(movie);
    } else {
        m_images[movie] = image;
    }
    emit ready(QString::fromStdString(movie));
}

}  // namespace quillo::views
