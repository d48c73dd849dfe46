// SoundInput through the PulseAudio client library (served by PipeWire on current desktops).

#include <atomic>
#include <chrono>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/mainloop.h>
#include <pulse/simple.h>

#include "base/clock.h"
#include "base/log.h"
#include "sound_input.h"

namespace quillo::capture {

namespace {

constexpr int kSampleRate = 48000;
// Small chunks keep the reading thread's stop prompt (a read returns after one chunk) and the
// recorder's sound close to the picture.
constexpr size_t kChunkFrames = kSampleRate / 100;
constexpr auto kConnectTimeout = std::chrono::seconds(1);

// Checks that a sound server answers, within a second and without starting one: libpulse may
// otherwise try to spawn a server, and the simple API waits for it without a time limit.
Result<void> reachServer() {
    pa_mainloop* loop = pa_mainloop_new();
    if (loop == nullptr) {
        return AppError("out of memory");
    }
    pa_context* context = pa_context_new(pa_mainloop_get_api(loop), "Quillo");
    if (context == nullptr) {
        pa_mainloop_free(loop);
        return AppError("out of memory");
    }
    Result<void> result;
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
        result = AppError(pa_strerror(pa_context_errno(context)));
    } else {
        const auto deadline = std::chrono::steady_clock::now() + kConnectTimeout;
        for (;;) {
            pa_context_state_t state = pa_context_get_state(context);
            if (state == PA_CONTEXT_READY) {
                break;
            }
            if (!PA_CONTEXT_IS_GOOD(state)) {
                result = AppError(pa_strerror(pa_context_errno(context)));
                break;
            }
            auto left = std::chrono::duration_cast<std::chrono::microseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                result = AppError(pa_strerror(PA_ERR_TIMEOUT));
                break;
            }
            if (pa_mainloop_prepare(loop, static_cast<int>(left.count())) < 0 ||
                pa_mainloop_poll(loop) < 0 || pa_mainloop_dispatch(loop) < 0) {
                result = AppError(pa_strerror(pa_context_errno(context)));
                break;
            }
        }
        pa_context_disconnect(context);
    }
    pa_context_unref(context);
    pa_mainloop_free(loop);
    return result;
}

// Reads one record stream on a thread of its own and hands each chunk to the handler.
class PulseSoundInput : public SoundInput {
public:
    PulseSoundInput(pa_simple* stream, int channels, Handler onSound)
        : m_stream(stream), m_channels(channels), m_onSound(std::move(onSound)) {
        m_thread = std::thread([this] { run(); });
        pthread_setname_np(m_thread.native_handle(), "quillo.sound");
    }
    ~PulseSoundInput() override {
        m_stop = true;
        m_thread.join();  // at most one chunk away
        pa_simple_free(m_stream);
    }

private:
    void run() {
        std::vector<float> samples(kChunkFrames * static_cast<size_t>(m_channels));
        const size_t bytes = samples.size() * sizeof(float);
        const double chunkSeconds = static_cast<double>(kChunkFrames) / kSampleRate;
        while (!m_stop) {
            int error = 0;
            if (pa_simple_read(m_stream, samples.data(), bytes, &error) < 0) {
                logError("app.quillo.sound", std::string("reading stopped: ") + pa_strerror(error));
                return;
            }
            const double now = monotonicSeconds();
            // The chunk's last sample was heard `latency` before the read returned.
            pa_usec_t latency = pa_simple_get_latency(m_stream, &error);
            if (latency == static_cast<pa_usec_t>(-1)) {
                latency = 0;
            }
            const double time = now - chunkSeconds - static_cast<double>(latency) / 1e6;
            if (m_onSound) {
                m_onSound(samples.data(), kChunkFrames, time);
            }
        }
    }

    pa_simple* m_stream;
    int m_channels;
    Handler m_onSound;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

}  // namespace

int channelCount(SoundDevice device) { return device == SoundDevice::System ? 2 : 1; }

Result<std::unique_ptr<SoundInput>> SoundInput::open(SoundDevice device, Handler onSound) {
    if (auto reached = reachServer(); !reached) {
        return reached.error();
    }
    const int channels = channelCount(device);
    pa_sample_spec spec{};
    spec.format = PA_SAMPLE_FLOAT32LE;
    spec.rate = kSampleRate;
    spec.channels = static_cast<uint8_t>(channels);
    pa_buffer_attr attributes{};
    attributes.maxlength = static_cast<uint32_t>(-1);
    attributes.tlength = static_cast<uint32_t>(-1);
    attributes.prebuf = static_cast<uint32_t>(-1);
    attributes.minreq = static_cast<uint32_t>(-1);
    attributes.fragsize = static_cast<uint32_t>(kChunkFrames * channels * sizeof(float));
    const bool system = device == SoundDevice::System;
    int error = 0;
    pa_simple* stream =
        pa_simple_new(nullptr, "Quillo", PA_STREAM_RECORD, system ? "@DEFAULT_MONITOR@" : nullptr,
                      system ? "App sound" : "Microphone", &spec, nullptr, &attributes, &error);
    if (stream == nullptr) {
        return AppError(pa_strerror(error));
    }
    return std::unique_ptr<SoundInput>(
        std::make_unique<PulseSoundInput>(stream, channels, std::move(onSound)));
}

}  // namespace quillo::capture
