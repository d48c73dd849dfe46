// MovieReader's sound: every sound track of a movie decoded and mixed into one.

#include <algorithm>
#include <cmath>
#include <optional>
#include <vector>

extern "C" {
#include <libavutil/channel_layout.h>
}

#include "ffmpeg_util.h"
#include "movie_reader.h"

namespace quillo::media {

namespace fs = std::filesystem;

namespace {

// One sound stream of a movie decoded into the requested format, chunk by chunk, trimmed to
// start … end (movie seconds, measured from the first video frame like frame times). Each
// stream has a file handle of its own, so several are read side by side without buffering
// each other's packets.
class StreamSound {
public:
    static Result<std::unique_ptr<StreamSound>> open(const fs::path& file, int index,
                                                     const SoundFormat& format, double start,
                                                     double end) {
        auto input = openInput(file);
        if (!input) {
            return input.error();
        }
        auto sound = std::unique_ptr<StreamSound>(new StreamSound(file, format, start, end));
        sound->m_input = std::move(*input);
        sound->m_index = index;
        AVFormatContext* context = sound->m_input.get();
        int videoIndex = av_find_best_stream(context, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
        if (videoIndex >= 0 && context->streams[videoIndex]->start_time != AV_NOPTS_VALUE) {
            sound->m_origin = seconds(context->streams[videoIndex]->start_time,
                                      context->streams[videoIndex]->time_base);
        }
        for (unsigned i = 0; i < context->nb_streams; ++i) {
            if (static_cast<int>(i) != index) {
                context->streams[i]->discard = AVDISCARD_ALL;
            }
        }
        if (auto opened = sound->openDecoding(); !opened) {
            return opened.error();
        }
        return sound;
    }

    // Decodes up to the next chunk that lies inside start … end. False at the end.
    Result<bool> next() {
        while (!m_done) {
            int code = avcodec_receive_frame(m_decoder.get(), m_frame.get());
            if (code == AVERROR(EAGAIN) && !m_flushed) {
                if (auto fed = feed(); !fed) {
                    return fed.error();
                }
                continue;
            }
            if (code == AVERROR_EOF || code == AVERROR(EAGAIN)) {
                break;
            }
            if (code < 0) {
                return unreadable(m_file, avError(code));
            }
            if (convertFrame()) {
                return true;
            }
        }
        m_done = true;
        return false;
    }

    // The chunk found by next(): interleaved samples, and the movie time of the first.
    const float* samples() const { return m_buffer.data() + m_skip * m_format.channels; }
    size_t frames() const { return m_keep; }
    double time() const { return m_chunkStart; }

private:
    StreamSound(fs::path file, const SoundFormat& format, double start, double end)
        : m_file(std::move(file)), m_format(format), m_start(start), m_end(end) {}

    Result<void> openDecoding() {
        const AVStream* stream = m_input->streams[m_index];
        auto decoder = openDecoder(m_file, stream);
        if (!decoder) {
            return decoder.error();
        }
        m_decoder = std::move(*decoder);
        if (m_start > 0) {
            // Seek a little early: a compressed sound frame needs the one before it to decode
            // cleanly, and everything before `start` is dropped anyway.
            constexpr double kPreroll = 0.2;
            int64_t target =
                static_cast<int64_t>((m_start - kPreroll + m_origin) / av_q2d(stream->time_base));
            av_seek_frame(m_input.get(), m_index, target, AVSEEK_FLAG_BACKWARD);
        }
        AVChannelLayout outLayout;
        av_channel_layout_default(&outLayout, m_format.channels);
        SwrContext* rawResampler = nullptr;
        int code = swr_alloc_set_opts2(&rawResampler, &outLayout, AV_SAMPLE_FMT_FLT,
                                       m_format.sampleRate, &m_decoder->ch_layout,
                                       m_decoder->sample_fmt, m_decoder->sample_rate, 0, nullptr);
        m_resampler.reset(rawResampler);
        av_channel_layout_uninit(&outLayout);
        if (code >= 0 && m_decoder->ch_layout.nb_channels == 1 && m_format.channels == 2) {
            // A mono track (the microphone) is heard at full level on both sides, not at the
            // 3 dB lower level of a centre channel.
            const double matrix[2] = {1.0, 1.0};
            code = swr_set_matrix(m_resampler.get(), matrix, 1);
        }
        if (code < 0 || swr_init(m_resampler.get()) < 0) {
            return unreadable(m_file, "cannot convert its sound");
        }
        if (!m_packet || !m_frame) {
            return unreadable(m_file, "out of memory");
        }
        return {};
    }

    // Hands the decoder its next packet, or the end of the stream.
    Result<void> feed() {
        int code = av_read_frame(m_input.get(), m_packet.get());
        if (code == AVERROR_EOF) {
            avcodec_send_packet(m_decoder.get(), nullptr);
            m_flushed = true;
            return {};
        }
        if (code < 0) {
            return unreadable(m_file, avError(code));
        }
        if (m_packet->stream_index == m_index) {
            avcodec_send_packet(m_decoder.get(), m_packet.get());
        }
        av_packet_unref(m_packet.get());
        return {};
    }

    // Converts the decoded frame; true when part of it lies inside start … end.
    bool convertFrame() {
        const AVStream* stream = m_input->streams[m_index];
        if (m_clock < 0) {
            m_clock = m_frame->pts == AV_NOPTS_VALUE
                          ? 0
                          : seconds(m_frame->pts, stream->time_base) - m_origin;
        }
        int capacity = swr_get_out_samples(m_resampler.get(), m_frame->nb_samples);
        m_buffer.resize(static_cast<size_t>(capacity) * m_format.channels);
        auto* out = reinterpret_cast<uint8_t*>(m_buffer.data());
        int produced =
            swr_convert(m_resampler.get(), &out, capacity,
                        const_cast<const uint8_t**>(m_frame->extended_data), m_frame->nb_samples);
        av_frame_unref(m_frame.get());
        if (produced <= 0) {
            return false;
        }
        const double rate = m_format.sampleRate;
        // Only the part of this chunk that lies inside start … end.
        m_skip = m_clock < m_start ? static_cast<size_t>(std::min<double>(
                                         produced, std::round((m_start - m_clock) * rate)))
                                   : 0;
        m_keep = static_cast<size_t>(produced) - m_skip;
        m_chunkStart = m_clock + m_skip / rate;
        if (m_chunkStart + m_keep / rate > m_end) {
            m_keep = m_chunkStart >= m_end
                         ? 0
                         : static_cast<size_t>(std::round((m_end - m_chunkStart) * rate));
            m_keep = std::min(m_keep, static_cast<size_t>(produced) - m_skip);
        }
        m_clock += produced / rate;
        m_done = m_clock >= m_end;
        return m_keep > 0;
    }

    fs::path m_file;
    SoundFormat m_format;
    double m_start;
    double m_end;
    InputPtr m_input;
    int m_index = -1;
    double m_origin = 0;  // seconds of the first video frame's timestamp
    CodecPtr m_decoder;
    ResamplerPtr m_resampler;
    PacketPtr m_packet{av_packet_alloc()};
    FramePtr m_frame{av_frame_alloc()};
    std::vector<float> m_buffer;
    double m_clock = -1;  // time of the next converted sample; set from the first frame
    bool m_flushed = false;
    bool m_done = false;
    size_t m_skip = 0;  // the current chunk: samples dropped at its front, samples kept, time
    size_t m_keep = 0;
    double m_chunkStart = 0;
};

// A stream's decoded samples not yet mixed, placed on the output's sample grid: positions count
// samples from `start`; a stream's chunks follow each other without gaps.
struct MixLane {
    std::unique_ptr<StreamSound> sound;
    std::vector<float> pending;
    int64_t pendingStart = 0;
    bool started = false;
    bool ended = false;

    int64_t pendingEnd(int channels) const {
        return pendingStart + static_cast<int64_t>(pending.size() / channels);
    }

    // Decodes until the pending samples reach `until`, or the stream ends.
    Result<void> fill(int64_t until, double start, const SoundFormat& format) {
        while (!ended && (!started || pendingEnd(format.channels) < until)) {
            auto more = sound->next();
            if (!more) {
                return more.error();
            }
            if (!*more) {
                ended = true;
                break;
            }
            if (!started) {
                pendingStart = std::llround((sound->time() - start) * format.sampleRate);
                started = true;
            }
            pending.insert(pending.end(), sound->samples(),
                           sound->samples() + sound->frames() * format.channels);
        }
        return {};
    }

    // Adds the pending samples in from … from + frames into `mix` and drops them.
    void mixInto(std::vector<float>& mix, int64_t from, int64_t frames, int channels) {
        const int64_t first = std::max(from, pendingStart);
        const int64_t last = std::min(from + frames, pendingEnd(channels));
        for (int64_t at = first; at < last; ++at) {
            for (int c = 0; c < channels; ++c) {
                mix[static_cast<size_t>((at - from) * channels + c)] +=
                    pending[static_cast<size_t>((at - pendingStart) * channels + c)];
            }
        }
        const int64_t drop = std::clamp<int64_t>(from + frames - pendingStart, 0,
                                                 pendingEnd(channels) - pendingStart);
        pending.erase(pending.begin(), pending.begin() + drop * channels);
        pendingStart += drop;
    }
};

// Mixes the lanes (their sum, clamped to full scale) and hands the mix to the sink in blocks.
Result<void> mixLanes(std::vector<MixLane>& lanes, const SoundFormat& format, double start,
                      const MovieReader::SoundSink& sink) {
    constexpr int64_t kBlock = 4096;
    const double base = std::isfinite(start) ? start : 0;
    const int channels = format.channels;
    std::optional<int64_t> position;  // the mix's next sample: where the first stream starts
    for (MixLane& lane : lanes) {
        if (auto filled = lane.fill(0, base, format); !filled) {
            return filled;
        }
        if (lane.started) {
            position = std::min(position.value_or(lane.pendingStart), lane.pendingStart);
        }
    }
    if (!position) {
        return {};
    }
    std::vector<float> mix;
    for (;;) {
        int64_t until = *position + kBlock;
        bool allEnded = true;
        int64_t lastEnd = *position;
        for (MixLane& lane : lanes) {
            if (auto filled = lane.fill(until, base, format); !filled) {
                return filled;
            }
            allEnded = allEnded && lane.ended;
            lastEnd = std::max(lastEnd, lane.pendingEnd(channels));
        }
        if (allEnded) {
            until = std::min(until, lastEnd);
        }
        if (until <= *position) {
            return {};
        }
        const int64_t frames = until - *position;
        mix.assign(static_cast<size_t>(frames * channels), 0.0f);
        for (MixLane& lane : lanes) {
            lane.mixInto(mix, *position, frames, channels);
        }
        for (float& sample : mix) {
            sample = std::clamp(sample, -1.0f, 1.0f);
        }
        if (!sink(mix.data(), static_cast<size_t>(frames))) {
            return {};
        }
        *position = until;
    }
}

}  // namespace

Result<void> MovieReader::readSound(const fs::path& file, const SoundFormat& format, double start,
                                    double end, const SoundSink& sink) {
    std::vector<int> indices;
    {
        auto input = openInput(file);
        if (!input) {
            return input.error();
        }
        for (unsigned i = 0; i < (*input)->nb_streams; ++i) {
            if ((*input)->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
                indices.push_back(static_cast<int>(i));
            }
        }
    }
    std::vector<MixLane> lanes;
    for (int index : indices) {
        auto sound = StreamSound::open(file, index, format, start, end);
        if (!sound) {
            return sound.error();
        }
        lanes.emplace_back().sound = std::move(*sound);
    }
    if (lanes.size() == 1) {
        // One track needs no mixing: its chunks go out as they are decoded.
        StreamSound& sound = *lanes[0].sound;
        for (;;) {
            auto more = sound.next();
            if (!more) {
                return more.error();
            }
            if (!*more || !sink(sound.samples(), sound.frames())) {
                return {};
            }
        }
    }
    return mixLanes(lanes, format, start, sink);
}

Result<std::vector<float>> MovieReader::sound(const fs::path& file, const SoundFormat& format,
                                              double start, double end) {
    std::vector<float> all;
    auto read = readSound(file, format, start, end, [&](const float* samples, size_t frames) {
        all.insert(all.end(), samples, samples + frames * format.channels);
        return true;
    });
    if (!read) {
        return read.error();
    }
    return all;
}

}  // namespace quillo::media
