#include "camera_stream.h"

#include <cmath>
#include <mutex>
#include <optional>
#include <string>

extern "C" {
#include <libavdevice/avdevice.h>
#include <libavutil/opt.h>
}
#include <libyuv/scale.h>

#include "base/clock.h"
#include "capture_texts.h"
#include "media/ffmpeg_util.h"

namespace quillo::capture {

namespace fs = std::filesystem;
using namespace media;

namespace {

// The file's clock: 90 kHz, the usual video time base, fine enough for any camera's timing.
constexpr AVRational kFileTimeBase{1, 90000};

void closeOutput(AVFormatContext* c) {
    if (c && c->pb && !(c->oformat->flags & AVFMT_NOFILE)) {
        avio_closep(&c->pb);
    }
    avformat_free_context(c);
}
using OutputPtr = CHandle<AVFormatContext, closeOutput>;

AppError openError(const CameraDevice& device, int code) {
    if (code == AVERROR(EACCES) || code == AVERROR(EPERM)) {
        return AppError(texts::kCameraDenied, avError(code));
    }
    if (code == AVERROR(ENOENT) || code == AVERROR(ENODEV)) {
        return AppError(texts::kCameraMissing, avError(code));
    }
    return AppError(texts::cameraUnavailable(device.name), avError(code));
}

// The small copy's longest side, and the longest side a camera picture needs for one.
constexpr int kSmallSide = 640;
constexpr int kSmallFrom = 960;

// One video track of the file: its encoder, stream and the picture handed to the encoder.
struct FileTrack {
    CodecPtr encoder;
    AVStream* stream = nullptr;
    FramePtr frame;
};

// Opens an H.264 track of `width` × `height` in `output`, timed like the camera.
Result<FileTrack> openTrack(AVFormatContext* output, const AVStream* camera, int width, int height,
                            int crf) {
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    if (!codec) {
        return AppError("H.264 encoding is not available.");
    }
    FileTrack track;
    track.encoder.reset(avcodec_alloc_context3(codec));
    AVCodecContext* c = track.encoder.get();
    c->width = width;
    c->height = height;
    c->pix_fmt = AV_PIX_FMT_YUV420P;
    c->time_base = kFileTimeBase;
    c->framerate = camera->avg_frame_rate.num > 0 ? camera->avg_frame_rate : AVRational{30, 1};
    c->gop_size = static_cast<int>(std::lround(2 * av_q2d(c->framerate)));
    c->color_primaries = AVCOL_PRI_BT709;
    c->color_trc = AVCOL_TRC_BT709;
    c->colorspace = AVCOL_SPC_BT709;
    c->thread_count = 2;
    if (output->oformat->flags & AVFMT_GLOBALHEADER) {
        c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    }
    // Real time beside the screen's encoder: the quickest preset; faces need no more.
    av_opt_set(c->priv_data, "preset", "ultrafast", 0);
    av_opt_set_int(c->priv_data, "crf", crf, 0);
    if (int opened = avcodec_open2(c, codec, nullptr); opened < 0) {
        return AppError(avError(opened));
    }
    track.stream = avformat_new_stream(output, nullptr);
    if (!track.stream) {
        return AppError(avError(AVERROR(ENOMEM)));
    }
    track.stream->time_base = kFileTimeBase;
    avcodec_parameters_from_context(track.stream->codecpar, c);
    track.frame.reset(av_frame_alloc());
    track.frame->format = c->pix_fmt;
    track.frame->width = width;
    track.frame->height = height;
    if (int got = av_frame_get_buffer(track.frame.get(), 0); got < 0) {
        return AppError(avError(got));
    }
    return track;
}

}  // namespace

struct CameraStream::Impl {
    CameraDevice device;
    InputPtr input;
    int streamIndex = -1;
    CodecPtr decoder;
    FramePtr frame{av_frame_alloc()};
    PacketPtr packet{av_packet_alloc()};
    double arrived = 0;
    double frameTime = 0;  // the last frame's own time, seconds on the camera's clock

    ScalerPtr previewScaler;

    // The file being written: the full picture, and a small copy of it for readers that show
    // the camera small (when the camera's picture is large).
    OutputPtr output;
    ScalerPtr fileScaler;
    FileTrack full;
    std::optional<FileTrack> small;
    PacketPtr filePacket{av_packet_alloc()};
    double fileStart = 0;  // camera time of the file's first frame
    int64_t lastPts = -1;
    bool started = false;

    Result<void> drain(FileTrack& track) {
        while (true) {
            int got = avcodec_receive_packet(track.encoder.get(), filePacket.get());
            if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) {
                return {};
            }
            if (got < 0) {
                return AppError(avError(got));
            }
            av_packet_rescale_ts(filePacket.get(), track.encoder->time_base,
                                 track.stream->time_base);
            filePacket->stream_index = track.stream->index;
            int written = av_interleaved_write_frame(output.get(), filePacket.get());
            if (written < 0) {
                return AppError(avError(written));
            }
        }
    }

    Result<void> encode(FileTrack& track, const AVFrame* frame) {
        if (int sent = avcodec_send_frame(track.encoder.get(), frame); sent < 0) {
            return AppError(avError(sent));
        }
        return drain(track);
    }

    void closeFile() {
        output.reset();
        full = {};
        small.reset();
    }
};

CameraStream::CameraStream(std::unique_ptr<Impl> impl) : m(std::move(impl)) {}

CameraStream::~CameraStream() {
    if (m->output) {
        (void)finishFile();
    }
}

Result<std::unique_ptr<CameraStream>> CameraStream::open(const CameraDevice& device) {
    static std::once_flag registered;
    std::call_once(registered, [] { avdevice_register_all(); });
    quietLibraryLogs();
    auto impl = std::make_unique<Impl>();
    impl->device = device;
    const AVInputFormat* format = av_find_input_format(device.format.c_str());
    if (!format) {
        return AppError(texts::cameraUnavailable(device.name), "no input format " + device.format);
    }
    AVDictionary* options = nullptr;
    CameraChoice choice = chooseCameraMode(device);
    if (choice.mode) {
        std::string size =
            std::to_string(choice.mode->width) + "x" + std::to_string(choice.mode->height);
        av_dict_set(&options, "video_size", size.c_str(), 0);
        if (choice.mode->mjpeg) {
            av_dict_set(&options, "input_format", "mjpeg", 0);
        }
    }
    if (choice.rate > 0) {
        av_dict_set(&options, "framerate", std::to_string(choice.rate).c_str(), 0);
    }
    AVFormatContext* context = nullptr;
    int opened = avformat_open_input(&context, device.id.c_str(), format, &options);
    av_dict_free(&options);
    if (opened < 0) {
        return openError(device, opened);
    }
    impl->input.reset(context);
    const AppError didNotStart(texts::cameraDidNotStart(device.name));
    if (avformat_find_stream_info(context, nullptr) < 0) {
        return didNotStart;
    }
    impl->streamIndex = av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (impl->streamIndex < 0) {
        return didNotStart;
    }
    const AVCodecParameters* parameters = context->streams[impl->streamIndex]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    if (!codec) {
        return didNotStart;
    }
    impl->decoder.reset(avcodec_alloc_context3(codec));
    if (avcodec_parameters_to_context(impl->decoder.get(), parameters) < 0 ||
        avcodec_open2(impl->decoder.get(), codec, nullptr) < 0) {
        return didNotStart;
    }
    return std::unique_ptr<CameraStream>(new CameraStream(std::move(impl)));
}

Result<void> CameraStream::next() {
    while (true) {
        int got = avcodec_receive_frame(m->decoder.get(), m->frame.get());
        if (got == 0) {
            const AVStream* stream = m->input->streams[m->streamIndex];
            int64_t pts = m->frame->best_effort_timestamp;
            m->frameTime = pts == AV_NOPTS_VALUE
                               ? monotonicSeconds()
                               : static_cast<double>(pts) * av_q2d(stream->time_base);
            return {};
        }
        if (got != AVERROR(EAGAIN)) {
            return AppError(texts::kCameraTurnedOff, avError(got));
        }
        av_packet_unref(m->packet.get());
        int read = av_read_frame(m->input.get(), m->packet.get());
        if (read < 0) {
            return AppError(texts::kCameraTurnedOff, avError(read));
        }
        m->arrived = monotonicSeconds();
        if (m->packet->stream_index != m->streamIndex) {
            continue;
        }
        if (int sent = avcodec_send_packet(m->decoder.get(), m->packet.get());
            sent < 0 && sent != AVERROR(EAGAIN) && sent != AVERROR_INVALIDDATA) {
            return AppError(texts::kCameraTurnedOff, avError(sent));
        }
    }
}

double CameraStream::arrived() const { return m->arrived; }
int CameraStream::width() const { return m->frame->width; }
int CameraStream::height() const { return m->frame->height; }

void CameraStream::preview(int width, CameraPreviewFrame& into) {
    const AVFrame* f = m->frame.get();
    if (f->width <= 0 || f->height <= 0) {
        return;
    }
    const int w = std::max(2, width / 2 * 2);
    const int h = std::max(
        2, static_cast<int>(std::lround(static_cast<double>(w) * f->height / f->width / 2)) * 2);
    m->previewScaler.reset(sws_getCachedContext(
        m->previewScaler.release(), f->width, f->height, static_cast<AVPixelFormat>(f->format), w,
        h, AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr));
    if (!m->previewScaler) {
        return;
    }
    into.width = w;
    into.height = h;
    into.bgra.resize(static_cast<size_t>(w) * h * 4);
    uint8_t* planes[4] = {into.bgra.data(), nullptr, nullptr, nullptr};
    int strides[4] = {w * 4, 0, 0, 0};
    sws_scale(m->previewScaler.get(), f->data, f->linesize, 0, f->height, planes, strides);
    into.time = m->arrived;
}

Result<void> CameraStream::startFile(const fs::path& file) {
    const AVFrame* f = m->frame.get();
    if (f->width <= 0 || f->height <= 0) {
        return AppError(texts::cameraDidNotStart(m->device.name));
    }
    AVFormatContext* context = nullptr;
    if (int made = avformat_alloc_output_context2(&context, nullptr, "mov", file.c_str());
        made < 0) {
        return AppError(avError(made));
    }
    m->output.reset(context);
    const AVStream* camera = m->input->streams[m->streamIndex];
    const int width = f->width / 2 * 2;
    const int height = f->height / 2 * 2;
    auto full = openTrack(context, camera, width, height, 23);
    if (!full) {
        m->closeFile();
        return full.error();
    }
    m->full = std::move(*full);
    m->full.stream->disposition = AV_DISPOSITION_DEFAULT;
    if (std::max(width, height) > kSmallFrom) {
        // The small copy keeps the picture's shape; it is encoded a little finer, as it is
        // already the size it is shown at.
        const double scale = static_cast<double>(kSmallSide) / std::max(width, height);
        auto even = [&](int side) { return std::max(2, static_cast<int>(side * scale) / 2 * 2); };
        auto small = openTrack(context, camera, even(width), even(height), 20);
        if (!small) {
            m->closeFile();
            return small.error();
        }
        m->small = std::move(*small);
    }
    if (int opened = avio_open(&context->pb, file.c_str(), AVIO_FLAG_WRITE); opened < 0) {
        m->closeFile();
        return AppError(avError(opened));
    }
    if (int written = avformat_write_header(context, nullptr); written < 0) {
        m->closeFile();
        return AppError(avError(written));
    }
    m->lastPts = -1;
    m->started = false;
    return {};
}

bool CameraStream::writing() const { return m->output != nullptr; }

Result<void> CameraStream::writeFrame() {
    if (!m->output) {
        return {};
    }
    const AVFrame* f = m->frame.get();
    AVFrame* picture = m->full.frame.get();
    if (!m->started) {
        m->fileStart = m->frameTime;
        m->started = true;
    }
    int64_t pts = std::llround((m->frameTime - m->fileStart) / av_q2d(kFileTimeBase));
    if (pts <= m->lastPts) {
        return {};  // a frame out of order or repeated: the file keeps time
    }
    m->fileScaler.reset(sws_getCachedContext(m->fileScaler.release(), f->width, f->height,
                                             static_cast<AVPixelFormat>(f->format), picture->width,
                                             picture->height, AV_PIX_FMT_YUV420P, SWS_BILINEAR,
                                             nullptr, nullptr, nullptr));
    if (!m->fileScaler) {
        return AppError("The camera's pictures could not be converted.");
    }
    if (int writable = av_frame_make_writable(picture); writable < 0) {
        return AppError(avError(writable));
    }
    sws_scale(m->fileScaler.get(), f->data, f->linesize, 0, f->height, picture->data,
              picture->linesize);
    picture->pts = pts;
    m->lastPts = pts;
    if (auto written = m->encode(m->full, picture); !written) {
        return written;
    }
    if (!m->small) {
        return {};
    }
    AVFrame* small = m->small->frame.get();
    if (int writable = av_frame_make_writable(small); writable < 0) {
        return AppError(avError(writable));
    }
    libyuv::I420Scale(picture->data[0], picture->linesize[0], picture->data[1],
                      picture->linesize[1], picture->data[2], picture->linesize[2], picture->width,
                      picture->height, small->data[0], small->linesize[0], small->data[1],
                      small->linesize[1], small->data[2], small->linesize[2], small->width,
                      small->height, libyuv::kFilterBox);
    small->pts = pts;
    return m->encode(*m->small, small);
}

Result<void> CameraStream::finishFile() {
    if (!m->output) {
        return {};
    }
    Result<void> result = m->encode(m->full, nullptr);
    if (m->small) {
        if (auto drained = m->encode(*m->small, nullptr); !drained && result) {
            result = drained;
        }
    }
    if (int written = av_write_trailer(m->output.get()); written < 0 && result) {
        result = AppError(avError(written));
    }
    m->closeFile();
    return result;
}

}  // namespace quillo::capture
