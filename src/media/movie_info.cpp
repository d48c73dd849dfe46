#include "movie_info.h"

#include <memory>
#include <string>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/error.h>
}

namespace quillo::media {

namespace {

std::string avError(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

struct InputCloser {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};

}  // namespace

Result<MovieInfo> readMovieInfo(const std::filesystem::path& file) {
    const std::string unreadable =
        "The movie “" + file.filename().string() + "” could not be read.";
    AVFormatContext* raw = nullptr;
    if (int code = avformat_open_input(&raw, file.c_str(), nullptr, nullptr); code < 0) {
        return AppError(unreadable, avError(code));
    }
    std::unique_ptr<AVFormatContext, InputCloser> context(raw);
    if (int code = avformat_find_stream_info(context.get(), nullptr); code < 0) {
        return AppError(unreadable, avError(code));
    }
    int videoIndex = av_find_best_stream(context.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (videoIndex < 0) {
        return AppError("The movie “" + file.filename().string() + "” has no video track.");
    }
    const AVStream* video = context->streams[videoIndex];
    MovieInfo info;
    info.videoSize = {static_cast<double>(video->codecpar->width),
                      static_cast<double>(video->codecpar->height)};
    AVRational rate = video->avg_frame_rate.num > 0 ? video->avg_frame_rate : video->r_frame_rate;
    info.frameRate = rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 0;
    info.hasSound = av_find_best_stream(context.get(), AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0) >= 0;
    // The video track's own length is what the editor shows; the container's covers sound too.
    if (video->duration != AV_NOPTS_VALUE && video->duration > 0) {
        info.duration = static_cast<double>(video->duration) * av_q2d(video->time_base);
    } else if (context->duration != AV_NOPTS_VALUE && context->duration > 0) {
        info.duration = static_cast<double>(context->duration) / AV_TIME_BASE;
    } else {
        return AppError(unreadable, "no duration");
    }
    return info;
}

}  // namespace quillo::media
