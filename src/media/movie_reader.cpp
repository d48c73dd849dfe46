#include "movie_reader.h"

#include <algorithm>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

#include "ffmpeg_util.h"
#include "libyuv/convert_argb.h"
#include "libyuv/scale.h"

namespace quillo::media {

namespace fs = std::filesystem;

namespace {

// A request further ahead than this seeks instead of decoding on: decoding 3 s of frames costs
// about as much as a seek to the keyframe before the target and decoding from there.
constexpr double kForwardWindow = 3.0;
// Frame times are compared with a microsecond of slack, so t = k / fps finds frame k.
constexpr double kSlack = 0.000001;

AVPixelFormat avFormat(PixelFormat format) {
    return format == PixelFormat::Gray8 ? AV_PIX_FMT_GRAY8 : AV_PIX_FMT_BGRA;
}

int evenRound(double value) { return std::max(2, static_cast<int>(std::lround(value / 2)) * 2); }

}  // namespace

struct MovieReader::Impl {
    fs::path file;
    MovieInfo info;
    InputPtr input;
    CodecPtr decoder;
    const AVStream* stream = nullptr;
    double origin = 0;  // seconds of the first video frame's timestamp

    PacketPtr packet{av_packet_alloc()};
    FramePtr current{av_frame_alloc()};  // last frame at or before the last request
    FramePtr pending{av_frame_alloc()};  // decoded one step ahead, not yet shown
    bool haveCurrent = false;
    bool havePending = false;
    bool flushed = false;  // the decoder has been drained at the end of the file
    bool ended = false;
    double lastRequest = -1;

    ScalerPtr scaler;
    // 4:2:0 planes scaled down before conversion: halvings and the final size.
    std::vector<uint8_t> halfA, halfB, small;

    struct Planes {
        const uint8_t* data[3];
        int stride[3];
        int width, height;
    };
    // `from` box-scaled to width × height into `buffer`.
    static Planes scaled(const Planes& from, int width, int height, std::vector<uint8_t>& buffer) {
        const int cw = (width + 1) / 2;
        const int ch = (height + 1) / 2;
        buffer.resize(static_cast<size_t>(width) * height + 2 * static_cast<size_t>(cw) * ch);
        uint8_t* y = buffer.data();
        uint8_t* u = y + static_cast<size_t>(width) * height;
        uint8_t* v = u + static_cast<size_t>(cw) * ch;
        libyuv::I420Scale(from.data[0], from.stride[0], from.data[1], from.stride[1], from.data[2],
                          from.stride[2], from.width, from.height, y, width, u, cw, v, cw, width,
                          height, libyuv::kFilterBox);
        return {{y, u, v}, {width, cw, cw}, width, height};
    }
    static Planes halve(const Planes& from, std::vector<uint8_t>& buffer) {
        return scaled(from, from.width / 2, from.height / 2, buffer);
    }
    // The 4:2:0 planes last converted into `lastTarget`, to notice frames that repeat.
    std::vector<uint8_t> lastPlanes;
    const VideoFrame* lastTarget = nullptr;

    // Whether `frame` holds the same picture as the one last converted into `out`; remembers it.
    bool repeats(const AVFrame* frame, const VideoFrame& out) {
        const int w = frame->width;
        const int h = frame->height;
        const int cw = (w + 1) / 2;  // chroma planes round up
        const int ch = (h + 1) / 2;
        const size_t size = static_cast<size_t>(w) * h + 2 * static_cast<size_t>(cw) * ch;
        bool same = lastTarget == &out && lastPlanes.size() == size;
        lastPlanes.resize(size);
        uint8_t* copy = lastPlanes.data();
        for (int plane = 0; plane < 3; ++plane) {
            const int pw = plane == 0 ? w : cw;
            const int ph = plane == 0 ? h : ch;
            for (int y = 0; y < ph; ++y) {
                const uint8_t* row =
                    frame->data[plane] + static_cast<ptrdiff_t>(y) * frame->linesize[plane];
                if (same && std::memcmp(copy, row, pw) != 0) {
                    same = false;
                }
                if (!same) {
                    std::memcpy(copy, row, pw);
                }
                copy += pw;
            }
        }
        lastTarget = &out;
        return same;
    }

    double timeOf(const AVFrame* frame) const {
        int64_t pts = frame->best_effort_timestamp;
        if (pts == AV_NOPTS_VALUE) {
            pts = frame->pts;
        }
        return pts == AV_NOPTS_VALUE ? 0 : seconds(pts, stream->time_base) - origin;
    }

    void seek(double t) {
        int64_t target = static_cast<int64_t>(std::floor((t + origin) / av_q2d(stream->time_base)));
        av_seek_frame(input.get(), stream->index, target, AVSEEK_FLAG_BACKWARD);
        avcodec_flush_buffers(decoder.get());
        haveCurrent = havePending = flushed = ended = false;
    }

    // Decodes the next frame into `pending`. False at the end of the movie.
    Result<bool> decodeNext() {
        for (;;) {
            int code = avcodec_receive_frame(decoder.get(), pending.get());
            if (code == 0) {
                return true;
            }
            if (code == AVERROR_EOF) {
                ended = true;
                return false;
            }
            if (code != AVERROR(EAGAIN)) {
                return unreadable(file, avError(code));
            }
            if (flushed) {
                ended = true;
                return false;
            }
            code = av_read_frame(input.get(), packet.get());
            if (code == AVERROR_EOF) {
                avcodec_send_packet(decoder.get(), nullptr);
                flushed = true;
                continue;
            }
            if (code < 0) {
                return unreadable(file, avError(code));
            }
            if (packet->stream_index == stream->index) {
                code = avcodec_send_packet(decoder.get(), packet.get());
                // A damaged packet is skipped: the decoder conceals it and carries on.
                if (code < 0 && code != AVERROR(EAGAIN) && code != AVERROR_INVALIDDATA) {
                    av_packet_unref(packet.get());
                    return unreadable(file, avError(code));
                }
            }
            av_packet_unref(packet.get());
        }
    }

    // libyuv's conversion for the common case of a 4:2:0 picture at its own size, several times
    // faster than the general scaler.
    static const libyuv::YuvConstants* directMatrix(const AVFrame* frame) {
        if (frame->format != AV_PIX_FMT_YUV420P && frame->format != AV_PIX_FMT_YUVJ420P) {
            return nullptr;
        }
        bool full = frame->color_range == AVCOL_RANGE_JPEG || frame->format == AV_PIX_FMT_YUVJ420P;
        if (frame->colorspace == AVCOL_SPC_BT709) {
            return full ? &libyuv::kYuvF709Constants : &libyuv::kYuvH709Constants;
        }
        return full ? &libyuv::kYuvJPEGConstants : &libyuv::kYuvI601Constants;
    }

    Result<void> convert(const AVFrame* frame, const FrameFormat& format, VideoFrame& out) {
        int width = format.width;
        int height = format.height;
        if (width <= 0 && height <= 0) {
            width = frame->width;
            height = frame->height;
        } else if (height <= 0) {
            height = evenRound(static_cast<double>(width) * frame->height / frame->width);
        } else if (width <= 0) {
            width = evenRound(static_cast<double>(height) * frame->width / frame->height);
        }
        const libyuv::YuvConstants* matrix = directMatrix(frame);
        const bool direct = format.pixelFormat == PixelFormat::BGRA && matrix != nullptr &&
                            width == frame->width && height == frame->height;
        const bool sameShape = out.width == width && out.height == height &&
                               out.pixelFormat == format.pixelFormat &&
                               out.pixels.size() == static_cast<size_t>(width) * height * 4;
        out.time = timeOf(frame);
        out.unchanged = false;
        if (direct && repeats(frame, out) && sameShape) {
            out.unchanged = true;
            return {};
        }
        out.width = width;
        out.height = height;
        out.pixelFormat = format.pixelFormat;
        out.stride = format.pixelFormat == PixelFormat::Gray8 ? width : width * 4;
        out.pixels.resize(static_cast<size_t>(out.stride) * height);
        if (direct) {
            libyuv::I420ToARGBMatrix(frame->data[0], frame->linesize[0], frame->data[1],
                                     frame->linesize[1], frame->data[2], frame->linesize[2],
                                     out.pixels.data(), out.stride, matrix, width, height);
            return {};
        }
        lastTarget = nullptr;
        if (format.pixelFormat == PixelFormat::BGRA && matrix != nullptr && width <= frame->width &&
            height <= frame->height) {
            // Smaller 4:2:0 pictures: box-filtered in 4:2:0 first, halving while the picture is
            // at least twice the size (the quick exact case), then converted at the small size:
            // a fraction of the general scaler's work for the same averaging.
            Planes from{{frame->data[0], frame->data[1], frame->data[2]},
                        {frame->linesize[0], frame->linesize[1], frame->linesize[2]},
                        frame->width,
                        frame->height};
            for (int step = 0; from.width >= 2 * width && from.height >= 2 * height; ++step) {
                from = halve(from, step % 2 == 0 ? halfA : halfB);
            }
            Planes to = scaled(from, width, height, small);
            libyuv::I420ToARGBMatrix(to.data[0], to.stride[0], to.data[1], to.stride[1], to.data[2],
                                     to.stride[2], out.pixels.data(), out.stride, matrix, width,
                                     height);
            return {};
        }
        // Area averaging keeps small pictures faithful to the whole frame (no aliasing), which
        // matters for change detection on 160-pixel thumbnails.
        int flags = (width < frame->width / 2) ? SWS_AREA : SWS_BILINEAR;
        scaler.reset(sws_getCachedContext(scaler.release(), frame->width, frame->height,
                                          static_cast<AVPixelFormat>(frame->format), width, height,
                                          avFormat(format.pixelFormat), flags, nullptr, nullptr,
                                          nullptr));
        if (!scaler) {
            return unreadable(file, "unsupported pixel format");
        }
        uint8_t* planes[4] = {out.pixels.data(), nullptr, nullptr, nullptr};
        int strides[4] = {out.stride, 0, 0, 0};
        sws_scale(scaler.get(), frame->data, frame->linesize, 0, frame->height, planes, strides);
        return {};
    }
};

MovieReader::MovieReader(std::unique_ptr<Impl> impl) : m(std::move(impl)) {}
MovieReader::~MovieReader() = default;

const MovieInfo& MovieReader::info() const { return m->info; }

Size MovieReader::pictureSize() const {
    return {static_cast<double>(m->stream->codecpar->width),
            static_cast<double>(m->stream->codecpar->height)};
}

Result<std::unique_ptr<MovieReader>> MovieReader::open(const fs::path& file, DecodeMode mode,
                                                       Size atLeast) {
    auto input = openInput(file);
    if (!input) {
        return input.error();
    }
    auto info = describe(file, input->get());
    if (!info) {
        return info.error();
    }
    auto impl = std::make_unique<Impl>();
    impl->file = file;
    impl->info = *info;
    impl->input = std::move(input.value());
    const int index = videoStreamCovering(impl->input.get(), static_cast<int>(atLeast.width),
                                          static_cast<int>(atLeast.height));
    impl->stream = impl->input->streams[index];
    for (unsigned i = 0; i < impl->input->nb_streams; ++i) {
        if (static_cast<int>(i) != index) {
            impl->input->streams[i]->discard = AVDISCARD_ALL;
        }
    }
    auto fast = [](AVCodecContext* c) {
        c->skip_loop_filter = AVDISCARD_ALL;
        c->skip_frame = AVDISCARD_NONREF;
        c->flags2 |= AV_CODEC_FLAG2_FAST;
    };
    auto single = [](AVCodecContext* c) { c->thread_count = 1; };
    auto decoder = openDecoder(file, impl->stream,
                               mode == DecodeMode::Fast        ? +fast
                               : mode == DecodeMode::OneThread ? +single
                                                               : nullptr);
    if (!decoder) {
        return decoder.error();
    }
    impl->decoder = std::move(decoder.value());
    if (impl->stream->start_time != AV_NOPTS_VALUE) {
        impl->origin = seconds(impl->stream->start_time, impl->stream->time_base);
    }
    if (!impl->packet || !impl->current || !impl->pending) {
        return unreadable(file, "out of memory");
    }
    return std::unique_ptr<MovieReader>(new MovieReader(std::move(impl)));
}

Result<VideoFrame> MovieReader::frame(double t, const FrameFormat& format) {
    VideoFrame out;
    if (auto read = frame(t, format, out); !read) {
        return read.error();
    }
    return out;
}

Result<void> MovieReader::frame(double t, const FrameFormat& format, VideoFrame& into) {
    Impl& s = *m;
    if (!std::isfinite(t)) {
        t = 0;
    }
    bool forward = s.lastRequest >= 0 && t >= s.lastRequest && t <= s.lastRequest + kForwardWindow;
    if (!forward) {
        s.seek(t);
    }
    s.lastRequest = t;
    for (;;) {
        if (!s.havePending && !s.ended) {
            auto decoded = s.decodeNext();
            if (!decoded) {
                return decoded.error();
            }
            s.havePending = *decoded;
        }
        if (!s.havePending) {
            break;  // end of the movie: the last frame stays on screen
        }
        if (s.timeOf(s.pending.get()) > t + kSlack && s.haveCurrent) {
            break;  // the pending frame comes later; the current one is shown at t
        }
        std::swap(s.current, s.pending);
        av_frame_unref(s.pending.get());
        s.haveCurrent = true;
        s.havePending = false;
        if (s.timeOf(s.current.get()) > t + kSlack) {
            break;  // t lies before the first frame: show the first frame
        }
    }
    if (!s.haveCurrent) {
        return unreadable(s.file, "no frame could be decoded");
    }
    return s.convert(s.current.get(), format, into);
}

Result<void> MovieReader::keyFrame(double t, const FrameFormat& format, VideoFrame& into) {
    Impl& s = *m;
    s.seek(std::isfinite(t) ? t : 0);
    auto decoded = s.decodeNext();
    if (!decoded) {
        return decoded.error();
    }
    if (!*decoded) {
        return unreadable(s.file, "no frame could be decoded");
    }
    std::swap(s.current, s.pending);
    av_frame_unref(s.pending.get());
    s.haveCurrent = true;
    s.lastRequest = s.timeOf(s.current.get());
    return s.convert(s.current.get(), format, into);
}

}  // namespace quillo::media
