#include "camera_footage.h"

#include <system_error>

#include "media/movie_info.h"
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
    auto reader = media::MovieReader::open(footage.movie);
    if (!reader) {
        return reader.error();
    }
    return std::unique_ptr<CameraFeed>(new CameraFeed(footage, std::move(*reader), size));
}

CameraFeed::CameraFeed(const CameraFootage& footage, std::unique_ptr<media::MovieReader> reader,
                       Size size)
    : m_sync(footage.sync), m_reader(std::move(reader)) {
    m_format.width = static_cast<int>(size.width);
    m_format.height = static_cast<int>(size.height);
}

Result<const media::VideoFrame*> CameraFeed::frame(double t) {
    // The reader gives the first frame for earlier times and the last one for later times.
    if (auto read = m_reader->frame(m_sync.cameraTime(t), m_format, m_frame); !read) {
        return read.error();
    }
    return &m_frame;
}

}  // namespace quillo::render
