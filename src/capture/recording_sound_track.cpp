#include "recording_sound_track.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

namespace quillo::capture {

namespace {

// Sound more than this far (seconds) from where its samples would follow on is realigned;
// smaller drifts are the sound server's jitter and are ignored.
constexpr double kMaxDrift = 0.2;

AppError soundError(const std::string& what, int code) {
    return AppError({}, what + ": " + media::avError(code));
}

}  // namespace

RecordingSoundTrack::RecordingSoundTrack(SoundDevice device, Encode encode)
    : m_device(device),
      m_channels(channelCount(device)),
      m_encode(std::move(encode)),
      m_frame(av_frame_alloc()) {}

RecordingSoundTrack::~RecordingSoundTrack() = default;

Result<std::unique_ptr<RecordingSoundTrack>> RecordingSoundTrack::open(AVFormatContext* output,
                                                                       SoundDevice device,
                                                                       Encode encode) {
    const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    if (codec == nullptr) {
        return AppError({}, "no AAC encoder");
    }
    std::unique_ptr<RecordingSoundTrack> track(new RecordingSoundTrack(device, std::move(encode)));
    track->m_encoder.reset(avcodec_alloc_context3(codec));
    AVCodecContext* c = track->m_encoder.get();
    if (c == nullptr || !track->m_frame) {
        return AppError({}, "out of memory");
    }
    c->sample_fmt = AV_SAMPLE_FMT_FLTP;
    c->sample_rate = kRecordingSampleRate;
    c->bit_rate = device == SoundDevice::System ? 192000 : 128000;
    av_channel_layout_default(&c->ch_layout, track->m_channels);
    c->time_base = AVRational{1, kRecordingSampleRate};
    c->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    if (int code = avcodec_open2(c, codec, nullptr); code < 0) {
        return soundError("open the sound encoder", code);
    }
    track->m_stream = avformat_new_stream(output, nullptr);
    if (track->m_stream == nullptr) {
        return AppError({}, "add a sound stream: out of memory");
    }
    track->m_stream->time_base = c->time_base;
    if (int code = avcodec_parameters_from_context(track->m_stream->codecpar, c); code < 0) {
        return soundError("describe a sound stream", code);
    }
    track->m_fifo.reset(
        av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, track->m_channels, c->frame_size * 4));
    AVFrame* frame = track->m_frame.get();
    frame->format = AV_SAMPLE_FMT_FLTP;
    frame->nb_samples = c->frame_size;
    frame->sample_rate = kRecordingSampleRate;
    av_channel_layout_copy(&frame->ch_layout, &c->ch_layout);
    if (!track->m_fifo || av_frame_get_buffer(frame, 0) < 0) {
        return AppError({}, "allocate sound buffers: out of memory");
    }
    return track;
}

int64_t RecordingSoundTrack::next() const { return m_encoded + av_audio_fifo_size(m_fifo.get()); }

Result<void> RecordingSoundTrack::place(const float* samples, size_t frames, int64_t at) {
    const int64_t count = static_cast<int64_t>(frames);
    const int64_t drift = at - next();
    int64_t skip = 0;
    if (!m_heard || std::abs(drift) > kMaxDrift * kRecordingSampleRate) {
        // The first chunk, or one far off: what lies before the start or before the samples
        // already placed is dropped, a gap becomes silence.
        skip = std::clamp<int64_t>(-drift, 0, count);
        if (skip == count) {
            return {};
        }
        if (drift > 0) {
            if (auto padded = queue(nullptr, drift); !padded) {
                return padded;
            }
        }
        m_heard = true;
    }
    return queue(samples + skip * m_channels, count - skip);
}

Result<void> RecordingSoundTrack::keepUp(int64_t position, int64_t slack) {
    if (next() >= position - slack) {
        return {};
    }
    return queue(nullptr, position - next());
}

Result<void> RecordingSoundTrack::finish(int64_t end) {
    if (int64_t missing = end - next(); missing > 0) {
        if (auto padded = queue(nullptr, missing); !padded) {
            return padded;
        }
    }
    if (auto drained = drain(end); !drained) {
        return drained;
    }
    return m_encode(m_encoder.get(), m_stream, nullptr);
}

// Queues `frames` interleaved sample frames (silence for null) and encodes what is whole.
Result<void> RecordingSoundTrack::queue(const float* samples, int64_t frames) {
    constexpr int64_t kBlock = 4096;
    for (int64_t done = 0; done < frames;) {
        const int count = static_cast<int>(std::min(kBlock, frames - done));
        void* planes[2] = {};
        for (int c = 0; c < m_channels; ++c) {
            std::vector<float>& plane = m_planes[c];
            plane.resize(static_cast<size_t>(count));
            for (int i = 0; i < count; ++i) {
                plane[static_cast<size_t>(i)] =
                    samples ? samples[(done + i) * m_channels + c] : 0.0f;
            }
            planes[c] = plane.data();
        }
        if (av_audio_fifo_write(m_fifo.get(), planes, count) < count) {
            return AppError({}, "queue sound: out of memory");
        }
        done += count;
        if (auto drained = drain(); !drained) {
            return drained;
        }
    }
    return {};
}

// Encodes whole AAC frames from the queue; with a `limit` (a position), the rest up to it too,
// and drops what lies beyond.
Result<void> RecordingSoundTrack::drain(std::optional<int64_t> limit) {
    const int size = m_encoder->frame_size;
    for (;;) {
        int count = std::min(size, av_audio_fifo_size(m_fifo.get()));
        if (limit) {
            count = static_cast<int>(std::clamp<int64_t>(*limit - m_encoded, 0, count));
        } else if (count < size) {
            return {};
        }
        if (count == 0) {
            av_audio_fifo_reset(m_fifo.get());
            return {};
        }
        if (int code = av_frame_make_writable(m_frame.get()); code < 0) {
            return soundError("encode sound", code);
        }
        av_audio_fifo_read(m_fifo.get(), reinterpret_cast<void**>(m_frame->data), count);
        m_frame->nb_samples = count;
        m_frame->pts = m_encoded;
        m_encoded += count;
        if (auto done = m_encode(m_encoder.get(), m_stream, m_frame.get()); !done) {
            return done;
        }
    }
}

}  // namespace quillo::capture
