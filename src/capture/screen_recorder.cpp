#include "screen_recorder.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/opt.h>
}

#include "base/clock.h"
#include "base/log.h"
#include "libyuv/scale_argb.h"
#include "media/colour_convert.h"
#include "media/ffmpeg_util.h"
#include "movie_completion.h"
#include "recording_sound_track.h"

namespace quillo::capture {

namespace fs = std::filesystem;
using media::avError;

namespace {

constexpr const char* kNotStarted = "The recording could not start.";
constexpr const char* kNotSaved = "The recording could not be saved.";
constexpr const char* kNothing = "Nothing was recorded.";

// Sound that lags the picture by more than twice this (seconds) is not coming: silence fills
// the track up to this lag, and samples for that time that still come are dropped.
constexpr double kSoundLagLimit = 1.0;
// The muxer waits at most this long (microseconds) for a quiet track before writing the others.
constexpr int64_t kMaxInterleaveDelta = 500000;
// Screen text through libx264 in real time on two cores: the "ultrafast" preset with the 8×8
// transform back on (High profile; fewer bits for the same look), intra 4×4 and 8×8 blocks
// allowed in P frames (changed glyphs keep their edges), no deblocking filter (one-pixel strokes
// stay sharp, and it buys nothing on screen content), CAVLC rather than CABAC (at the 20-30
// Mbit/s of a busy 1080p screen CABAC costs about a third of the encoding time for 8 % fewer
// bits), no B frames (no reordering delay) and key frames only where the recorder asks for them,
// once a second.
constexpr const char* kX264Params =
    "cabac=0:8x8dct=1:partitions=i4x4,i8x8:bframes=0:deblock=0:scenecut=0";
constexpr int kConstantRateFactor = 20;

std::string describe(const std::string& what, int code) { return what + ": " + avError(code); }

// Where a frame of another size goes inside the movie's picture.
struct Fit {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
    bool operator==(const Fit&) const = default;
};

Fit fitInside(int width, int height, int intoWidth, int intoHeight) {
    double scale =
        std::min(static_cast<double>(intoWidth) / width, static_cast<double>(intoHeight) / height);
    Fit fit;
    fit.width = std::clamp(static_cast<int>(std::lround(width * scale)), 1, intoWidth);
    fit.height = std::clamp(static_cast<int>(std::lround(height * scale)), 1, intoHeight);
    fit.x = (intoWidth - fit.width) / 2;
    fit.y = (intoHeight - fit.height) / 2;
    return fit;
}

}  // namespace

struct ScreenRecorder::Impl {
    RecorderSettings settings;
    std::mutex mutex;

    // Guarded by mutex:
    media::CHandle<AVFormatContext, avformat_free_context> output;
    bool fileCreated = false;
    bool started = false;
    bool finished = false;
    std::optional<AppError> failure;
    double startTime = 0;

    media::CodecPtr video;
    AVStream* videoStream = nullptr;
    media::FramePtr picture{av_frame_alloc()};
    bool havePicture = false;
    uint64_t lastSerial = 0;
    int64_t lastPts = -1;
    int64_t lastKeyPts = 0;
    std::vector<uint32_t> canvas;  // BGRA of the settings' size for frames of another size
    Fit canvasFit;

    std::vector<std::unique_ptr<RecordingSoundTrack>> sound;
    media::PacketPtr packet{av_packet_alloc()};

    ~Impl() { closeFile(); }

    void closeFile() {
        if (output && output->pb != nullptr) {
            avio_closep(&output->pb);
        }
    }

    // --- opening (at the first frame)

    Result<void> openVideo() {
        const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
        if (codec == nullptr) {
            return AppError({}, "no libx264 encoder");
        }
        video.reset(avcodec_alloc_context3(codec));
        AVCodecContext* c = video.get();
        if (c == nullptr) {
            return AppError({}, "out of memory");
        }
        c->width = settings.width;
        c->height = settings.height;
        c->pix_fmt = AV_PIX_FMT_YUV420P;
        c->framerate = AVRational{settings.fps, 1};
        c->time_base = AVRational{1, settings.fps};
        c->color_primaries = AVCOL_PRI_BT709;
        c->color_trc = AVCOL_TRC_BT709;
        c->colorspace = AVCOL_SPC_BT709;
        c->color_range = AVCOL_RANGE_MPEG;
        c->gop_size = settings.fps;
        c->max_b_frames = 0;
        c->thread_count = 2;
        c->profile = FF_PROFILE_H264_HIGH;
        c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;  // the fragmented index needs it up front
        av_opt_set(c->priv_data, "preset", "ultrafast", 0);
        av_opt_set(c->priv_data, "profile", "high", 0);
        av_opt_set_int(c->priv_data, "crf", kConstantRateFactor, 0);
        av_opt_set_int(c->priv_data, "forced-idr", 1, 0);
        av_opt_set(c->priv_data, "x264-params", kX264Params, 0);
        if (int code = avcodec_open2(c, codec, nullptr); code < 0) {
            return AppError({}, describe("open the video encoder", code));
        }
        videoStream = avformat_new_stream(output.get(), nullptr);
        if (videoStream == nullptr) {
            return AppError({}, "add the video stream: out of memory");
        }
        videoStream->time_base = c->time_base;
        videoStream->avg_frame_rate = c->framerate;
        if (int code = avcodec_parameters_from_context(videoStream->codecpar, c); code < 0) {
            return AppError({}, describe("describe the video stream", code));
        }
        picture->format = AV_PIX_FMT_YUV420P;
        picture->width = settings.width;
        picture->height = settings.height;
        picture->color_primaries = AVCOL_PRI_BT709;
        picture->color_trc = AVCOL_TRC_BT709;
        picture->colorspace = AVCOL_SPC_BT709;
        picture->color_range = AVCOL_RANGE_MPEG;
        if (int code = av_frame_get_buffer(picture.get(), 0); code < 0) {
            return AppError({}, describe("allocate a picture", code));
        }
        return {};
    }

    Result<void> openSound(SoundDevice device) {
        auto track = RecordingSoundTrack::open(
            output.get(), device,
            [this](AVCodecContext* encoder, AVStream* stream, const AVFrame* frame) {
                return encode(encoder, stream, frame);
            });
        if (!track) {
            return track.error();
        }
        sound.push_back(std::move(*track));
        return {};
    }

    // Creates the file and writes its header: a fragmented MP4 whose fragments start at key
    // frames and are flushed to the disk as soon as they are complete. The index is written with
    // the first fragment, once the tracks' first timestamps are known, so that its edit list
    // hides the AAC encoder's priming samples; otherwise the sound would play 1024 samples late.
    Result<void> open() {
        media::quietLibraryLogs();
        AVFormatContext* raw = nullptr;
        if (int code = avformat_alloc_output_context2(&raw, nullptr, "mp4", settings.file.c_str());
            code < 0) {
            return AppError({}, describe("create the container", code));
        }
        output.reset(raw);
        if (auto opened = openVideo(); !opened) {
            return opened;
        }
        for (auto [device, wanted] : {std::pair{SoundDevice::System, settings.systemSound},
                                      std::pair{SoundDevice::Microphone, settings.microphone}}) {
            if (wanted) {
                if (auto opened = openSound(device); !opened) {
                    return opened;
                }
            }
        }
        if (int code = avio_open(&raw->pb, settings.file.c_str(), AVIO_FLAG_WRITE); code < 0) {
            return AppError({}, describe("open " + settings.file.string(), code));
        }
        fileCreated = true;
        raw->flush_packets = 1;
        raw->max_interleave_delta = kMaxInterleaveDelta;
        AVDictionary* options = nullptr;
        av_dict_set(&options, "movflags", "frag_keyframe+empty_moov+delay_moov+default_base_moof",
                    0);
        int code = avformat_write_header(raw, &options);
        av_dict_free(&options);
        if (code < 0) {
            return AppError({}, describe("write the header", code));
        }
        return {};
    }

    // --- encoding

    // Sends one frame (or the end, for null) to an encoder and writes what comes out.
    Result<void> encode(AVCodecContext* encoder, AVStream* stream, const AVFrame* frame) {
        int code = avcodec_send_frame(encoder, frame);
        if (code < 0) {
            return AppError({}, describe("encode", code));
        }
        for (;;) {
            code = avcodec_receive_packet(encoder, packet.get());
            if (code == AVERROR(EAGAIN) || code == AVERROR_EOF) {
                return {};
            }
            if (code < 0) {
                return AppError({}, describe("encode", code));
            }
            if (encoder == video.get()) {
                // A frame lasts until the next one; the last one a slot of the grid.
                packet->duration = 1;
            }
            av_packet_rescale_ts(packet.get(), encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            code = av_interleaved_write_frame(output.get(), packet.get());
            if (code < 0) {
                return AppError({}, describe("write", code));
            }
        }
    }

    // Encodes the current picture at slot `pts`, with a key frame once a second.
    Result<void> encodePicture(int64_t pts) {
        picture->pts = pts;
        picture->pict_type = AV_PICTURE_TYPE_NONE;
        if (lastPts < 0 || pts - lastKeyPts >= settings.fps) {
            picture->pict_type = AV_PICTURE_TYPE_I;
            lastKeyPts = pts;
        }
        lastPts = pts;
        return encode(video.get(), videoStream, picture.get());
    }

    Result<void> convert(const CapturedFrame& frame) {
        if (int code = av_frame_make_writable(picture.get()); code < 0) {
            return AppError({}, describe("encode video", code));
        }
        const uint8_t* pixels = frame.pixels;
        int stride = frame.stride;
        if (frame.width != settings.width || frame.height != settings.height) {
            const size_t size = static_cast<size_t>(settings.width) * settings.height;
            Fit fit = fitInside(frame.width, frame.height, settings.width, settings.height);
            if (canvas.size() != size || !(fit == canvasFit)) {
                canvas.assign(size, 0xff000000u);  // opaque black around the picture
                canvasFit = fit;
            }
            uint32_t* into = canvas.data() + static_cast<ptrdiff_t>(fit.y) * settings.width + fit.x;
            stride = settings.width * 4;
            libyuv::ARGBScale(frame.pixels, frame.stride, frame.width, frame.height,
                              reinterpret_cast<uint8_t*>(into), stride, fit.width, fit.height,
                              libyuv::kFilterBox);
            pixels = reinterpret_cast<const uint8_t*>(canvas.data());
        }
        media::bgraToI420BT709(pixels, stride, settings.width, settings.height, picture->data[0],
                               picture->linesize[0], picture->data[1], picture->linesize[1],
                               picture->data[2], picture->linesize[2]);
        return {};
    }

    // --- sound

    RecordingSoundTrack* track(SoundDevice device) {
        for (auto& track : sound) {
            if (track->device() == device) {
                return track.get();
            }
        }
        return nullptr;
    }

    // Samples from the movie's start to steady-clock `time`.
    int64_t soundPosition(double time) const {
        return std::llround((time - startTime) * kRecordingSampleRate);
    }

    // --- frames

    // Appends one frame; returns the start time when this frame started the movie.
    std::optional<double> addFrame(const CapturedFrame& frame, double time) {
        std::optional<double> startedNow;
        if (!started) {
            if (auto opened = open(); !opened) {
                closeFile();
                if (fileCreated) {
                    std::error_code ignored;
                    fs::remove(settings.file, ignored);
                }
                fail(kNotStarted, opened.error().detail);
                return std::nullopt;
            }
            started = true;
            startTime = time;
            startedNow = time;
        }
        const int64_t pts = std::llround((time - startTime) * settings.fps);
        if (pts <= lastPts) {
            return startedNow;  // the slot is taken: two frames with one timestamp
        }
        // A slot the capture missed (a late grab) shows the picture before it, as a constant
        // frame rate movie does; a longer hole (the machine was suspended) stays one.
        if (havePicture && pts - lastPts > 1 && pts - lastPts <= settings.fps) {
            for (int64_t slot = lastPts + 1; slot < pts; ++slot) {
                if (auto encoded = encodePicture(slot); !encoded) {
                    fail(kNotSaved, encoded.error().detail);
                    return startedNow;
                }
            }
        }
        if (!havePicture || frame.serial != lastSerial) {
            if (auto converted = convert(frame); !converted) {
                fail(kNotSaved, converted.error().detail);
                return startedNow;
            }
            havePicture = true;
            lastSerial = frame.serial;
        }
        if (auto encoded = encodePicture(pts); !encoded) {
            fail(kNotSaved, encoded.error().detail);
        } else if (auto kept = keepSoundUp(static_cast<double>(pts) / settings.fps); !kept) {
            fail(kNotSaved, kept.error().detail);
        }
        return startedNow;
    }

    // A device that delivers nothing (or stalled) falls behind the picture: its track gets
    // silence, so the muxer never waits for it and finish() has little left to fill.
    Result<void> keepSoundUp(double movieTime) {
        const int64_t position = std::llround((movieTime - kSoundLagLimit) * kRecordingSampleRate);
        for (auto& track : sound) {
            if (auto kept = track->keepUp(position, kRecordingSampleRate); !kept) {
                return kept;
            }
        }
        return {};
    }

    void fail(const char* message, const std::string& detail) {
        logError("app.quillo.recorder", std::string(message) + " " + detail);
        failure = AppError(message, detail);
    }

    bool accepting() const { return !failure && !finished; }

    // --- finishing

    Result<void> complete(double endTime) {
        const double length = std::max(0.0, endTime - startTime);
        // The last picture stays until the end: its slot is the one that ends there.
        const int64_t endSlot = std::llround(length * settings.fps) - 1;
        if (endSlot > lastPts) {
            if (auto encoded = encodePicture(endSlot); !encoded) {
                return encoded;
            }
        }
        if (auto done = encode(video.get(), videoStream, nullptr); !done) {
            return done;
        }
        // Each track lasts as long as the picture: silence where the device fell behind.
        const int64_t soundEnd =
            std::llround(std::max<int64_t>(lastPts + 1, 1) *
                         static_cast<double>(kRecordingSampleRate) / settings.fps);
        for (auto& track : sound) {
            if (auto done = track->finish(soundEnd); !done) {
                return done;
            }
        }
        if (int code = av_write_trailer(output.get()); code < 0) {
            return AppError({}, describe("write the index", code));
        }
        if (int code = avio_closep(&output->pb); code < 0) {
            return AppError({}, describe("close the file", code));
        }
        return {};
    }
};

ScreenRecorder::ScreenRecorder(std::unique_ptr<Impl> impl) : m(std::move(impl)) {}
ScreenRecorder::~ScreenRecorder() = default;

Result<std::unique_ptr<ScreenRecorder>> ScreenRecorder::create(const RecorderSettings& settings) {
    if (settings.width < 2 || settings.height < 2 || settings.width % 2 != 0 ||
        settings.height % 2 != 0 || settings.fps <= 0) {
        return AppError(kNotStarted, "unsupported size " + std::to_string(settings.width) + "×" +
                                         std::to_string(settings.height) + " at " +
                                         std::to_string(settings.fps) + " fps");
    }
    media::quietLibraryLogs();
    if (avcodec_find_encoder_by_name("libx264") == nullptr ||
        avcodec_find_encoder(AV_CODEC_ID_AAC) == nullptr) {
        return AppError(kNotStarted, "the H.264 or AAC encoder is missing");
    }
    auto impl = std::make_unique<Impl>();
    impl->settings = settings;
    if (!impl->picture || !impl->packet) {
        return AppError(kNotStarted, "out of memory");
    }
    return std::unique_ptr<ScreenRecorder>(new ScreenRecorder(std::move(impl)));
}

void ScreenRecorder::appendFrame(const FramePtr& frame, double time) {
    if (!frame || frame->pixels == nullptr || frame->width <= 0 || frame->height <= 0) {
        return;
    }
    std::optional<double> started;
    std::optional<AppError> failed;
    {
        std::lock_guard lock(m->mutex);
        if (!m->accepting()) {
            return;
        }
        started = m->addFrame(*frame, time);
        failed = m->failure;
    }
    // Callbacks run outside the lock: they may call back in.
    if (started && !failed && onStart) {
        onStart(*started);
    }
    if (failed && onFail) {
        onFail(*failed);
    }
}

void ScreenRecorder::begin(const FramePtr& frame) {
    {
        std::lock_guard lock(m->mutex);
        if (m->started) {
            return;
        }
    }
    // Frames come from one queue, so no other first frame can slip in between.
    appendFrame(frame, monotonicSeconds());
}

void ScreenRecorder::appendSound(SoundDevice device, const float* samples, size_t frames,
                                 double time) {
    if (samples == nullptr || frames == 0) {
        return;
    }
    std::optional<AppError> failed;
    {
        std::lock_guard lock(m->mutex);
        RecordingSoundTrack* track = m->track(device);
        if (!m->started || !m->accepting() || track == nullptr) {
            return;
        }
        if (auto placed = track->place(samples, frames, m->soundPosition(time)); !placed) {
            m->fail(kNotSaved, placed.error().detail);
            failed = m->failure;
        }
    }
    if (failed && onFail) {
        onFail(*failed);
    }
}

bool ScreenRecorder::hasStarted() const {
    std::lock_guard lock(m->mutex);
    return m->started;
}

Result<double> ScreenRecorder::finish(std::optional<double> endTime) {
    std::lock_guard lock(m->mutex);
    if (m->finished) {
        return AppError(kNotSaved, "the recording was finished before");
    }
    m->finished = true;
    if (!m->started) {
        return m->failure ? *m->failure : AppError(kNothing);
    }
    if (m->failure) {
        // What was written stays for recovery.
        m->closeFile();
        return AppError(kNotSaved, m->failure->detail);
    }
    const double end = endTime.value_or(monotonicSeconds());
    if (auto completed = m->complete(end); !completed) {
        m->closeFile();
        return AppError(kNotSaved, completed.error().detail);
    }
    auto rewritten = rewriteAsNormalMovie(m->settings.file);
    if (!rewritten) {
        return AppError(kNotSaved, rewritten.error().detail);
    }
    return *rewritten;
}

}  // namespace quillo::capture
