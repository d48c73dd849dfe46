#include "movie_info.h"

#include "ffmpeg_util.h"

namespace quillo::media {

Result<MovieInfo> readMovieInfo(const std::filesystem::path& file) {
    auto input = openInput(file);
    if (!input) {
        return input.error();
    }
    return describe(file, input->get());
}

Result<MovieInfo> describe(const std::filesystem::path& file, AVFormatContext* context) {
    int videoIndex = av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (videoIndex < 0) {
        return AppError("The movie “" + file.filename().string() + "” has no video track.");
    }
    const AVStream* video = context->streams[videoIndex];
    MovieInfo info;
    info.videoSize = {static_cast<double>(video->codecpar->width),
                      static_cast<double>(video->codecpar->height)};
    AVRational rate = video->avg_frame_rate.num > 0 ? video->avg_frame_rate : video->r_frame_rate;
    info.frameRate = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0;
    info.hasSound = av_find_best_stream(context, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0) >= 0;
    // The video track's own length is what the editor shows; the container's covers sound too.
    if (video->duration != AV_NOPTS_VALUE && video->duration > 0) {
        info.duration = seconds(video->duration, video->time_base);
    } else if (context->duration != AV_NOPTS_VALUE && context->duration > 0) {
        info.duration = static_cast<double>(context->duration) / AV_TIME_BASE;
    } else {
        return unreadable(file, "no duration");
    }
    return info;
}

}  // namespace quillo::media
