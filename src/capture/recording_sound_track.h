#pragma once

// A recording's sound track, internal to the capture module (screen_recorder.cpp).

#include <functional>
#include <memory>
#include <optional>
#include <vector>

extern "C" {
#include <libavutil/audio_fifo.h>
}

#include "base/result.h"
#include "media/ffmpeg_util.h"
#include "sound_input.h"

namespace quillo::capture {

inline constexpr int kRecordingSampleRate = 48000;

// One sound device's AAC track in a recording being written: stereo at 192 kbit/s for app sound,
// mono at 128 kbit/s for the microphone. Positions count samples from the movie's start; samples
// are placed one after the other, and a chunk that lands more than 0.2 s away from where the
// last one ended is realigned (silence fills a gap, overlapping samples are dropped). Used
// under the recorder's lock.
class RecordingSoundTrack {
public:
    // Sends a frame (null: the end) to `encoder` and writes the packets into `stream`.
    using Encode =
        std::function<Result<void>(AVCodecContext* encoder, AVStream* stream, const AVFrame*)>;

    // Adds the track's stream to `output` (before its header is written). Errors carry the
    // library's reason in their detail.
    static Result<std::unique_ptr<RecordingSoundTrack>> open(AVFormatContext* output,
                                                             SoundDevice device, Encode encode);
    ~RecordingSoundTrack();
    RecordingSoundTrack(const RecordingSoundTrack&) = delete;
    RecordingSoundTrack& operator=(const RecordingSoundTrack&) = delete;

    SoundDevice device() const { return m_device; }
    // `frames` interleaved sample frames whose first was heard at position `at` (negative:
    // before the movie's start, which is dropped).
    Result<void> place(const float* samples, size_t frames, int64_t at);
    // Silence up to `position` when the track has fallen more than `slack` samples behind it:
    // the device delivers nothing.
    Result<void> keepUp(int64_t position, int64_t slack);
    // Ends the track at `end`: silence up to it, nothing beyond it, the encoder drained.
    Result<void> finish(int64_t end);

private:
    RecordingSoundTrack(SoundDevice device, Encode encode);
    // Position of the next queued sample.
    int64_t next() const;
    Result<void> queue(const float* samples, int64_t frames);
    Result<void> drain(std::optional<int64_t> limit = std::nullopt);

    SoundDevice m_device;
    int m_channels;
    Encode m_encode;
    media::CodecPtr m_encoder;
    AVStream* m_stream = nullptr;
    media::CHandle<AVAudioFifo, av_audio_fifo_free> m_fifo;
    media::FramePtr m_frame;
    int64_t m_encoded = 0;  // samples handed to the encoder: the next AAC frame's pts
    bool m_heard = false;   // a chunk has been placed
    std::vector<float> m_planes[2];
};

}  // namespace quillo::capture
