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

namespace {

bool isPicture(const AVStream* stream) {
    return stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
           !(stream->disposition & AV_DISPOSITION_ATTACHED_PIC) && stream->codecpar->width > 0 &&
           stream->codecpar->height > 0;
}

int64_t area(const AVStream* stream) {
    return static_cast<int64_t>(stream->codecpar->width) * stream->codecpar->height;
}

}  // namespace

int mainVideoStream(const AVFormatContext* input) {
    int best = -1;
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVStream* stream = input->streams[i];
        if (isPicture(stream) && (best < 0 || area(stream) > area(input->streams[best]))) {
            best = static_cast<int>(i);
        }
    }
    return best;
}

int videoStreamCovering(const AVFormatContext* input, int width, int height) {
    int best = mainVideoStream(input);
    if (width <= 0 && height <= 0) {
        return best;
    }
    for (unsigned i = 0; i < input->nb_streams && best >= 0; ++i) {
        const AVStream* stream = input->streams[i];
        if (isPicture(stream) && stream->codecpar->width >= width &&
            stream->codecpar->height >= height && area(stream) < area(input->streams[best])) {
            best = static_cast<int>(i);
        }
    }
    return best;
}

Result<MovieInfo> describe(const std::filesystem::path& file, AVFormatContext* context) {
    int videoIndex = mainVideoStream(context);
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
