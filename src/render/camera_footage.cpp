#include "camera_footage.h"

#include <cmath>
#include <system_error>

#include "media/movie_info.h"
#include "project/edits.h"
#include "project/local_project.h"

namespace quillo::render {

namespace fs = std::filesystem;

Result<std::optional<CameraFootage>> CameraFootage::load(const fs::path& folder) {
    CameraFootage footage;
    footage.movie = folder / project::LocalProject::kCamera;
    std::error_code error;
    if (!fs::exists(footage.movie, error)) {
        return std::optional<CameraFootage>();
    }
    auto info = media::readMovieInfo(footage.movie);
    if (!info) {
        return info.error();
    }
    auto sync = project::CameraSync::load(folder);
    if (!sync) {
        return sync.error();
    }
    footage.size = info->videoSize;
    footage.duration = info->duration;
    footage.sync = *sync;
    return std::optional<CameraFootage>(std::move(footage));
}

Result<std::unique_ptr<CameraFeed>> CameraFeed::open(const CameraFootage& footage, Size size) {
    // A small picture is read from the footage's small copy when it carries one that is big
    // enough: decoding that costs a fraction of decoding the full picture.
    auto reader = media::MovieReader::open(footage.movie, media::DecodeMode::OneThread, size);
    if (!reader) {
        return reader.error();
    }
    return std::unique_ptr<CameraFeed>(new CameraFeed(footage, std::move(*reader), size));
}

CameraFeed::CameraFeed(const CameraFootage& footage, std::unique_ptr<media::MovieReader> reader,
                       Size size)
    : m_sync(footage.sync), m_reader(std::move(reader)) {
    // Pictures with up to twice the pixels asked for are delivered as they are: converting them
    // whole and scaling only the part the camera shows costs less than scaling them all first.
    const Size track = m_reader->pictureSize();
    if (!(track.width * track.height <= 2 * size.width * size.height)) {
        m_format.width = static_cast<int>(size.width);
        m_format.height = static_cast<int>(size.height);
    }
    m_thread = std::thread([this] { decodeAhead(); });
}

CameraFeed::~CameraFeed() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void CameraFeed::decodeAhead() {
    std::unique_lock lock(m_mutex);
    while (true) {
        m_wake.wait(lock, [&] { return m_stopping || m_request; });
        if (m_stopping) {
            return;
        }
        const double time = *m_request;
        m_request.reset();
        m_busy = true;
        lock.unlock();
        const bool read = static_cast<bool>(m_reader->frame(time, m_format, m_ahead));
        lock.lock();
        m_busy = false;
        m_aheadTime = read ? std::optional(time) : std::nullopt;
        m_wake.notify_all();
    }
}

void CameraFeed::settle(std::unique_lock<std::mutex>& lock) {
    m_wake.wait(lock, [&] { return !m_busy && !m_request; });
}

Result<const media::VideoFrame*> CameraFeed::frame(double t) {
    const double time = m_sync.cameraTime(t);
    std::unique_lock lock(m_mutex);
    settle(lock);
    if (m_aheadTime && std::abs(*m_aheadTime - time) <= project::kTimeSlack) {
        std::swap(m_frame, m_ahead);
    } else if (auto read = m_reader->frame(time, m_format, m_frame); !read) {
        // The reader gives the first frame for earlier times and the last one for later times.
        return read.error();
    }
    m_aheadTime.reset();
    // The next request most likely comes a step as long as this one later.
    if (m_last && time > *m_last) {
        m_request = time + (time - *m_last);
        m_wake.notify_all();
    }
    m_last = time;
    return &m_frame;
}

}  // namespace quillo::render
