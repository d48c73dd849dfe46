#pragma once

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>

#include <QImage>
#include <QObject>

#include "base/serial_queue.h"

namespace quillo::views {

// Still pictures of recordings for the library's cards. A picture is made once, on one worker
// (the "app.quillo.thumbnails" serial queue): a frame decoded about 10% into the movie (1 s for
// short ones), kThumbnailWidth pixels wide, written as a JPEG to the cache folder under a name
// made from the recording's folder and its movie's size and modification time, so a later start
// reads the file instead of decoding. Pictures arrive on the GUI thread through `ready`. The
// last requested picture is made first, so the cards just scrolled into view fill in first.
// Thread: the GUI thread, except for the worker's own state.
class ThumbnailCache : public QObject {
    Q_OBJECT

public:
    // Pixels across: 2x the card's thumbnail frame, so HiDPI screens get sharp pictures.
    static constexpr int kThumbnailWidth = 640;

    // `folder` holds the cached files (made when missing).
    explicit ThumbnailCache(std::filesystem::path folder, QObject* parent = nullptr);
    ~ThumbnailCache() override;

    // The picture of `movie` when it has arrived; null otherwise.
    QImage image(const std::string& movie) const;
    // Whether making the picture of `movie` failed (an unreadable movie).
    bool failed(const std::string& movie) const;
    // Asks for the picture of `movie` unless it is there or already asked for.
    void request(const std::string& movie);

    // Pictures asked for so far (each movie once).
    size_t requests() const { return m_requested.size(); }
    // Frames decoded so far by this cache (cached files read back do not count).
    int decodes() const;
    const std::filesystem::path& folder() const { return m_folder; }

signals:
    // The picture of `movie` arrived (or failed).
    void ready(const QString& movie);

private:
    struct State;
    void deliver(const std::string& movie, const QImage& image);

    const std::filesystem::path m_folder;
    std::map<std::string, QImage> m_images;
    std::set<std::string> m_failed;
    std::set<std::string> m_requested;
    std::shared_ptr<State> m_state;  // shared with the worker's tasks
    SerialQueue m_worker{"app.quillo.thumbnails"};
};

// The cache file of `movie` in `folder`: a hash of the movie's path, size and modification time
// with ".jpg"; none when the movie cannot be read.
std::optional<std::filesystem::path> thumbnailFile(const std::filesystem::path& folder,
                                                   const std::filesystem::path& movie);
// The movie time a thumbnail shows: 10% in, but at least the first second of longer movies.
double thumbnailTime(double duration);

}  // namespace quillo::views
