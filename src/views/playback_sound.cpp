#include "playback_sound.h"

#include <algorithm>
#include <cstdint>

#include <pulse/error.h>
#include <pulse/simple.h>

namespace quillo::views {

namespace {

// The server holds about this much sound ahead of what is heard: short enough that a stop is
// quick and the picture's clock close to the ear, long enough not to run dry on a busy machine.
constexpr double kTargetLatency = 0.08;  // seconds

}  // namespace

struct PlaybackSound::Impl {
    pa_simple* stream = nullptr;
    int rate = 48000;
    int channels = 2;
    int64_t written = 0;  // sample frames written since the start
};

PlaybackSound::PlaybackSound(std::unique_ptr<Impl> impl) : m(std::move(impl)) {}

PlaybackSound::~PlaybackSound() {
    if (m->stream) {
        pa_simple_free(m->stream);
    }
}

std::unique_ptr<PlaybackSound> PlaybackSound::open(int sampleRate, int channels) {
    pa_sample_spec spec{};
    spec.format = PA_SAMPLE_FLOAT32LE;
    spec.rate = static_cast<uint32_t>(sampleRate);
    spec.channels = static_cast<uint8_t>(channels);
    const uint32_t bytesPerSecond = static_cast<uint32_t>(sampleRate * channels * sizeof(float));
    pa_buffer_attr attributes{};
    attributes.maxlength = static_cast<uint32_t>(-1);
    attributes.tlength = static_cast<uint32_t>(bytesPerSecond * kTargetLatency);
    attributes.prebuf = static_cast<uint32_t>(-1);
    attributes.minreq = static_cast<uint32_t>(-1);
    attributes.fragsize = static_cast<uint32_t>(-1);
    int error = 0;
    pa_simple* stream = pa_simple_new(nullptr, "Quillo", PA_STREAM_PLAYBACK, nullptr, "Preview",
                                      &spec, nullptr, &attributes, &error);
    if (!stream) {
        return nullptr;
    }
    auto impl = std::make_unique<Impl>();
    impl->stream = stream;
    impl->rate = sampleRate;
    impl->channels = channels;
    return std::unique_ptr<PlaybackSound>(new PlaybackSound(std::move(impl)));
}

bool PlaybackSound::write(const float* samples, size_t frames) {
    int error = 0;
    if (pa_simple_write(m->stream, samples, frames * m->channels * sizeof(float), &error) < 0) {
        return false;
    }
    m->written += static_cast<int64_t>(frames);
    return true;
}

double PlaybackSound::position() const {
    int error = 0;
    pa_usec_t latency = pa_simple_get_latency(m->stream, &error);
    double held = error == 0 ? static_cast<double>(latency) / 1e6 : 0.0;
    return std::max(0.0, static_cast<double>(m->written) / m->rate - held);
}

void PlaybackSound::flush() {
    int error = 0;
    pa_simple_flush(m->stream, &error);
}

}  // namespace quillo::views
