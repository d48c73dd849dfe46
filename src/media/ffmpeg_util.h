#pragma once

// Shared FFmpeg plumbing for the media module's .cpp files: owning handles and error text.
// Only files under src/media include FFmpeg headers.

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <filesystem>
#include <memory>
#include <string>

#include "base/result.h"

namespace quillo::media {

template <auto fn>
struct CDeleter {
    template <class T>
    void operator()(T* p) const {
        fn(p);
    }
};
template <class T, auto fn>
using CHandle = std::unique_ptr<T, CDeleter<fn>>;

inline void closeInput(AVFormatContext* c) { avformat_close_input(&c); }
inline void freeCodec(AVCodecContext* c) { avcodec_free_context(&c); }
inline void freeFrame(AVFrame* f) { av_frame_free(&f); }
inline void freePacket(AVPacket* p) { av_packet_free(&p); }
inline void freeResampler(SwrContext* s) { swr_free(&s); }

using InputPtr = CHandle<AVFormatContext, closeInput>;
using CodecPtr = CHandle<AVCodecContext, freeCodec>;
using FramePtr = CHandle<AVFrame, freeFrame>;
using PacketPtr = CHandle<AVPacket, freePacket>;
using ScalerPtr = CHandle<SwsContext, sws_freeContext>;
using ResamplerPtr = CHandle<SwrContext, freeResampler>;

inline std::string avError(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

// "The movie “NAME” could not be read." with the library's reason as detail.
AppError unreadable(const std::filesystem::path& file, const std::string& reason);

// Keeps FFmpeg's own messages to errors and sends them to the log file (logToFile), never to
// the terminal: its notes are noise for users, and our errors carry the library's reason in
// their detail. Called before every first use of the libraries; cheap after the first call.
void quietLibraryLogs();

// Opens a movie's container and reads its stream information.
Result<InputPtr> openInput(const std::filesystem::path& file);

// The movie's main video track: the one with the largest picture (the first of equals), cover art
// left out; -1 when there is none.
int mainVideoStream(const AVFormatContext* input);
// The video track with the smallest picture that is at least `width` × `height`, else (and for
// 0 × 0) the main one.
// A movie may carry a small copy of its picture beside the full one for readers that need less.
int videoStreamCovering(const AVFormatContext* input, int width, int height);

// The facts of an opened movie (see movie_info.h).
struct MovieInfo;
Result<MovieInfo> describe(const std::filesystem::path& file, AVFormatContext* input);

// Opens a decoder for `stream` with threads as the machine offers.
Result<CodecPtr> openDecoder(const std::filesystem::path& file, const AVStream* stream,
                             void (*configure)(AVCodecContext*) = nullptr);

// Seconds of a stream timestamp.
inline double seconds(int64_t timestamp, AVRational timeBase) {
    return static_cast<double>(timestamp) * av_q2d(timeBase);
}

}  // namespace quillo::media
