#include "movie_writer.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

extern "C" {
#include <libavutil/audio_fifo.h>
#include <libavutil/opt.h>
}

#include "colour_convert.h"
#include "ffmpeg_util.h"
#include "libyuv/planar_functions.h"
#include "quiet_blocks.h"

namespace quillo::media {

namespace fs = std::filesystem;

namespace {

constexpr int kSoundBitRate = 192000;
// The longest stretch between key frames, so players can seek anywhere quickly.
constexpr double kKeyFrameSeconds = 2;

AppError writeError(const std::string& what, int code) {
    return AppError("The movie could not be written.", what + ": " + avError(code));
}

void freeFifo(AVAudioFifo* fifo) { av_audio_fifo_free(fifo); }
using FifoPtr = CHandle<AVAudioFifo, freeFifo>;

// Constant quality for a 0–1 quality: 0.92 gives CRF 18 for H.264 (20 for HEVC, whose scale
// sits about two steps lower for the same look), where small text keeps its edges.
int constantRateFactor(double quality, VideoCodec codec) {
    double crf = 40 - 24 * std::clamp(quality, 0.0, 1.0) + (codec == VideoCodec::HEVC ? 2 : 0);
    return static_cast<int>(std::lround(crf));
}

}  // namespace

struct MovieWriter::Impl {
    fs::path file;
    MovieSettings settings;
    CHandle<AVFormatContext, avformat_free_context> output;
    bool opened = false;  // the file is open (avio)
    bool headerWritten = false;

    CodecPtr video;
    AVStream* videoStream = nullptr;
    FramePtr picture{av_frame_alloc()};
    int64_t frames = 0;
    std::vector<uint8_t> fresh;  // a changed part of the picture before it is taken (I420)

    CodecPtr sound;
    AVStream* soundStream = nullptr;
    FifoPtr fifo;
    FramePtr soundFrame{av_frame_alloc()};
    int64_t samples = 0;

    PacketPtr packet{av_packet_alloc()};

    ~Impl() {
        if (opened) {
            avio_closep(&output->pb);
        }
    }

    Result<void> openVideo() {
        bool hevc = settings.codec == VideoCodec::HEVC;
        const AVCodec* codec = avcodec_find_encoder_by_name(hevc ? "libx265" : "libx264");
        if (codec == nullptr) {
            return AppError("The movie could not be written.",
                            std::string("no encoder ") + (hevc ? "libx265" : "libx264"));
        }
        video.reset(avcodec_alloc_context3(codec));
        AVCodecContext* c = video.get();
        AVRational rate = av_d2q(settings.fps, 1000000);
        c->width = settings.width;
        c->height = settings.height;
        c->pix_fmt = AV_PIX_FMT_YUV420P;
        c->framerate = rate;
        c->time_base = av_inv_q(rate);
        c->color_primaries = AVCOL_PRI_BT709;
        c->color_trc = AVCOL_TRC_BT709;
        c->colorspace = AVCOL_SPC_BT709;
        c->color_range = AVCOL_RANGE_MPEG;
        c->gop_size = std::max(1, static_cast<int>(std::floor(settings.fps * kKeyFrameSeconds)));
        // One encoding thread per core: the encoders' default of 1.5 per core buys no speed on
        // small machines and costs a frame's worth of memory per thread.
        c->thread_count = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
        if (output->oformat->flags & AVFMT_GLOBALHEADER) {
            c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        }
        // Screen content: constant quality, and a slightly weaker deblocking filter so that thin
        // text strokes and one-pixel lines are not smeared. For H.264 the medium preset with a
        // 15-frame rate-control look-ahead (instead of 40), which keeps a 1080p export's memory
        // under 400 MB at no visible cost.
        int crf = constantRateFactor(settings.quality, settings.codec);
        av_opt_set_int(c->priv_data, "crf", crf, 0);
        std::string keyint = std::to_string(c->gop_size);
        if (hevc) {
            // HEVC's encoder keeps a great deal of analysis per frame in flight (about 40 MB at
            // 4K), so its look-ahead, B-frames and references are kept short and one frame is
            // encoded at a time (rows still run in parallel); "fast" keeps 4K exports practical.
            c->profile = FF_PROFILE_HEVC_MAIN;
            av_opt_set(c->priv_data, "preset", "fast", 0);
            av_opt_set(c->priv_data, "x265-params",
                       ("log-level=error:keyint=" + keyint +
                        ":deblock=-1,-1:rc-lookahead=4:bframes=1:ref=2:frame-threads=1")
                           .c_str(),
                       0);
        } else {
            c->profile = FF_PROFILE_H264_HIGH;
            av_opt_set(c->priv_data, "preset", "medium", 0);
            av_opt_set(c->priv_data, "profile", "high", 0);
            av_opt_set(c->priv_data, "x264-params", "deblock=-1,-1:rc-lookahead=15", 0);
        }
        if (int code = avcodec_open2(c, codec, nullptr); code < 0) {
            return writeError("open the video encoder", code);
        }
        videoStream = avformat_new_stream(output.get(), nullptr);
        if (videoStream == nullptr) {
            return writeError("add the video stream", AVERROR(ENOMEM));
        }
        videoStream->time_base = c->time_base;
        videoStream->avg_frame_rate = rate;
        if (int code = avcodec_parameters_from_context(videoStream->codecpar, c); code < 0) {
            return writeError("describe the video stream", code);
        }
        if (hevc) {
            videoStream->codecpar->codec_tag = MKTAG('h', 'v', 'c', '1');
        }

        picture->format = AV_PIX_FMT_YUV420P;
        picture->width = settings.width;
        picture->height = settings.height;
        picture->color_primaries = AVCOL_PRI_BT709;
        picture->color_trc = AVCOL_TRC_BT709;
        picture->colorspace = AVCOL_SPC_BT709;
        picture->color_range = AVCOL_RANGE_MPEG;
        if (int code = av_frame_get_buffer(picture.get(), 0); code < 0) {
            return writeError("allocate a picture", code);
        }
        return {};
    }

    Result<void> openSound() {
        const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
        if (codec == nullptr) {
            return AppError("The movie could not be written.", "no AAC encoder");
        }
        sound.reset(avcodec_alloc_context3(codec));
        AVCodecContext* c = sound.get();
        c->sample_fmt = AV_SAMPLE_FMT_FLTP;
        c->sample_rate = kMovieSampleRate;
        c->bit_rate = kSoundBitRate;
        av_channel_layout_default(&c->ch_layout, kMovieChannels);
        c->time_base = AVRational{1, kMovieSampleRate};
        if (output->oformat->flags & AVFMT_GLOBALHEADER) {
            c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        }
        if (int code = avcodec_open2(c, codec, nullptr); code < 0) {
            return writeError("open the sound encoder", code);
        }
        soundStream = avformat_new_stream(output.get(), nullptr);
        if (soundStream == nullptr) {
            return writeError("add the sound stream", AVERROR(ENOMEM));
        }
        soundStream->time_base = c->time_base;
        if (int code = avcodec_parameters_from_context(soundStream->codecpar, c); code < 0) {
            return writeError("describe the sound stream", code);
        }
        fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, kMovieChannels, c->frame_size * 4));
        soundFrame->format = AV_SAMPLE_FMT_FLTP;
        soundFrame->nb_samples = c->frame_size;
        soundFrame->sample_rate = kMovieSampleRate;
        av_channel_layout_copy(&soundFrame->ch_layout, &c->ch_layout);
        if (!fifo || av_frame_get_buffer(soundFrame.get(), 0) < 0) {
            return writeError("allocate sound buffers", AVERROR(ENOMEM));
        }
        return {};
    }

    // Sends one frame (or the end, for null) to an encoder and writes what comes out.
    Result<void> encode(AVCodecContext* encoder, AVStream* stream, const AVFrame* frame) {
        int code = avcodec_send_frame(encoder, frame);
        if (code < 0) {
            return writeError("encode", code);
        }
        for (;;) {
            code = avcodec_receive_packet(encoder, packet.get());
            if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) {
                return {};
            }
            if (code < 0) {
                return writeError("encode", code);
            }
            av_packet_rescale_ts(packet.get(), encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            code = av_interleaved_write_frame(output.get(), packet.get());
            if (code < 0) {
                return writeError("write", code);
            }
        }
    }

    // Encodes whole AAC frames from the queue; with `all`, the rest too (padded by the encoder).
    Result<void> drainSound(bool all) {
        const int size = sound->frame_size;
        while (av_audio_fifo_size(fifo.get()) >= size ||
               (all && av_audio_fifo_size(fifo.get()) > 0)) {
            if (int code = av_frame_make_writable(soundFrame.get()); code < 0) {
                return writeError("encode sound", code);
            }
            int count = std::min(size, av_audio_fifo_size(fifo.get()));
            av_audio_fifo_read(fifo.get(), reinterpret_cast<void**>(soundFrame->data), count);
            soundFrame->nb_samples = count;
            soundFrame->pts = samples;
            samples += count;
            if (auto done = encode(sound.get(), soundStream, soundFrame.get()); !done) {
                return done;
            }
        }
        return {};
    }
};

MovieWriter::MovieWriter(std::unique_ptr<Impl> impl) : m(std::move(impl)) {}
MovieWriter::~MovieWriter() = default;

int64_t MovieWriter::framesWritten() const { return m->frames; }

Result<std::unique_ptr<MovieWriter>> MovieWriter::create(const fs::path& file,
                                                         const MovieSettings& settings) {
    if (settings.width < 2 || settings.height < 2 || settings.width % 2 || settings.height % 2 ||
        !(settings.fps > 0)) {
        return AppError("The movie could not be written.",
                        "unsupported size " + std::to_string(settings.width) + "×" +
                            std::to_string(settings.height));
    }
    quietLibraryLogs();
    auto impl = std::make_unique<Impl>();
    impl->file = file;
    impl->settings = settings;
    AVFormatContext* raw = nullptr;
    if (int code = avformat_alloc_output_context2(&raw, nullptr, "mp4", file.c_str()); code < 0) {
        return writeError("create the container", code);
    }
    impl->output.reset(raw);
    if (auto opened = impl->openVideo(); !opened) {
        return opened.error();
    }
    if (settings.sound) {
        if (auto opened = impl->openSound(); !opened) {
            return opened.error();
        }
    }
    if (int code = avio_open(&impl->output->pb, file.c_str(), AVIO_FLAG_WRITE); code < 0) {
        return writeError("open " + file.string(), code);
    }
    impl->opened = true;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "+faststart", 0);
    int code = avformat_write_header(impl->output.get(), &options);
    av_dict_free(&options);
    if (code < 0) {
        return writeError("write the header", code);
    }
    impl->headerWritten = true;
    return std::unique_ptr<MovieWriter>(new MovieWriter(std::move(impl)));
}

Result<void> MovieWriter::addFrame(const uint8_t* bgra, int stride) {
    Impl& s = *m;
    if (int code = av_frame_make_writable(s.picture.get()); code < 0) {
        return writeError("encode video", code);
    }
    bgraToI420BT709(bgra, stride, s.settings.width, s.settings.height, s.picture->data[0],
                    s.picture->linesize[0], s.picture->data[1], s.picture->linesize[1],
                    s.picture->data[2], s.picture->linesize[2]);
    s.picture->pts = s.frames++;
    return s.encode(s.video.get(), s.videoStream, s.picture.get());
}

Result<void> MovieWriter::updateFrame(const uint8_t* bgra, int stride, int x, int y, int width,
                                      int height, bool holdNoise) {
    Impl& s = *m;
    if (s.frames == 0) {
        return addFrame(bgra, stride);
    }
    if (int code = av_frame_make_writable(s.picture.get()); code < 0) {
        return writeError("encode video", code);
    }
    // Whole chroma samples: the rectangle grown to even edges, held to the frame.
    const int left = std::clamp(x, 0, s.settings.width) & ~1;
    const int top = std::clamp(y, 0, s.settings.height) & ~1;
    const int right = std::min(s.settings.width, (std::max(x + width, left) + 1) & ~1);
    const int bottom = std::min(s.settings.height, (std::max(y + height, top) + 1) & ~1);
    AVFrame* p = s.picture.get();
    auto planesAt = [&](int px, int py) {
        return PlanesI420{
            p->data[0] + static_cast<ptrdiff_t>(py) * p->linesize[0] + px,         p->linesize[0],
            p->data[1] + static_cast<ptrdiff_t>(py / 2) * p->linesize[1] + px / 2, p->linesize[1],
            p->data[2] + static_cast<ptrdiff_t>(py / 2) * p->linesize[2] + px / 2, p->linesize[2]};
    };
    auto convert = [&](const PlanesI420& to) {
        bgraToI420BT709(bgra + static_cast<ptrdiff_t>(top) * stride + left * 4, stride,
                        right - left, bottom - top, to.y, to.yStride, to.u, to.uStride, to.v,
                        to.vStride);
    };
    if (right > left && bottom > top && !holdNoise) {
        convert(planesAt(left, top));
    } else if (right > left && bottom > top) {
        // The encoder's blocks that the rectangle touches: converted beside the picture, then
        // taken block by block.
        const int gridLeft = left & ~15;
        const int gridTop = top & ~15;
        const int w = std::min(s.settings.width, (right + 15) & ~15) - gridLeft;
        const int h = std::min(s.settings.height, (bottom + 15) & ~15) - gridTop;
        const size_t luma = static_cast<size_t>(w) * h;
        s.fresh.resize(luma + luma / 2);
        const PlanesI420 fresh{
            s.fresh.data(), w, s.fresh.data() + luma, w / 2, s.fresh.data() + luma + luma / 4,
            w / 2};
        const PlanesI420 shown = planesAt(gridLeft, gridTop);
        libyuv::I420Copy(shown.y, shown.yStride, shown.u, shown.uStride, shown.v, shown.vStride,
                         fresh.y, fresh.yStride, fresh.u, fresh.uStride, fresh.v, fresh.vStride, w,
                         h);
        const int dx = left - gridLeft;
        const int dy = top - gridTop;
        convert({fresh.y + static_cast<ptrdiff_t>(dy) * w + dx, w,
                 fresh.u + static_cast<ptrdiff_t>(dy / 2) * (w / 2) + dx / 2, w / 2,
                 fresh.v + static_cast<ptrdiff_t>(dy / 2) * (w / 2) + dx / 2, w / 2});
        takeChangedBlocks(fresh, shown, w, h);
    }
    s.picture->pts = s.frames++;
    return s.encode(s.video.get(), s.videoStream, s.picture.get());
}

Result<void> MovieWriter::repeatFrame() {
    Impl& s = *m;
    if (s.frames == 0) {
        return AppError("The movie could not be written.", "no frame to repeat");
    }
    s.picture->pts = s.frames++;
    return s.encode(s.video.get(), s.videoStream, s.picture.get());
}

Result<void> MovieWriter::addSound(const float* interleaved, size_t frames) {
    Impl& s = *m;
    if (!s.sound) {
        return {};
    }
    // The encoder takes one plane per channel.
    constexpr size_t kChunk = 4096;
    float left[kChunk];
    float right[kChunk];
    for (size_t done = 0; done < frames;) {
        size_t count = std::min(kChunk, frames - done);
        for (size_t i = 0; i < count; ++i) {
            left[i] = interleaved[(done + i) * 2];
            right[i] = interleaved[(done + i) * 2 + 1];
        }
        void* planes[2] = {left, right};
        if (av_audio_fifo_write(s.fifo.get(), planes, static_cast<int>(count)) < 0) {
            return writeError("queue sound", AVERROR(ENOMEM));
        }
        done += count;
        if (auto drained = s.drainSound(false); !drained) {
            return drained;
        }
    }
    return {};
}

Result<void> MovieWriter::finish() {
    Impl& s = *m;
    if (auto done = s.encode(s.video.get(), s.videoStream, nullptr); !done) {
        return done;
    }
    if (s.sound) {
        if (auto drained = s.drainSound(true); !drained) {
            return drained;
        }
        if (auto done = s.encode(s.sound.get(), s.soundStream, nullptr); !done) {
            return done;
        }
    }
    if (int code = av_write_trailer(s.output.get()); code < 0) {
        return writeError("write the index", code);
    }
    s.opened = false;
    if (int code = avio_closep(&s.output->pb); code < 0) {
        return writeError("close the file", code);
    }
    return {};
}

}  // namespace quillo::media
