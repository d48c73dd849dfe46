// SoundInput through the PulseAudio client library (served by PipeWire on current desktops).

#include <atomic>
#include <chrono>
#include <functional>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/introspect.h>
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

// A short-lived connection to the sound server that never starts one and gives up after a
// second: libpulse may otherwise try to spawn a server, and the simple API waits for it
// without a time limit.
class ServerQuery {
public:
    ServerQuery()
        : m_loop(pa_mainloop_new()),
          m_context(m_loop ? pa_context_new(pa_mainloop_get_api(m_loop), "Quillo") : nullptr),
          m_deadline(std::chrono::steady_clock::now() + kConnectTimeout) {}
    ~ServerQuery() {
        if (m_context != nullptr) {
            pa_context_disconnect(m_context);
            pa_context_unref(m_context);
        }
        if (m_loop != nullptr) {
            pa_mainloop_free(m_loop);
        }
    }
    ServerQuery(const ServerQuery&) = delete;
    ServerQuery& operator=(const ServerQuery&) = delete;

    Result<void> connect() {
        if (m_context == nullptr) {
            return AppError("out of memory");
        }
        if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
            return failure();
        }
        return runUntil([this] {
            pa_context_state_t state = pa_context_get_state(m_context);
            return state == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(state);
        });
    }

    // The name of the default output. (Its monitor is asked for by name: "@DEFAULT_MONITOR@"
    // may be linked to the default input instead by PipeWire's session manager.)
    Result<std::string> defaultSink() {
        struct Answer {
            std::string name;
            bool done = false;
        } answer;
        auto collect = [](pa_context*, const pa_server_info* info, void* data) {
            auto* into = static_cast<Answer*>(data);
            if (info != nullptr && info->default_sink_name != nullptr) {
                into->name = info->default_sink_name;
            }
            into->done = true;
        };
        pa_operation* operation = pa_context_get_server_info(m_context, collect, &answer);
        if (operation == nullptr) {
            return failure();
        }
        auto waited = runUntil([&] { return answer.done; });
        pa_operation_unref(operation);
        if (!waited) {
            return waited.error();
        }
        if (answer.name.empty()) {
            return AppError("There is no sound output.");
        }
        return answer.name;
    }

private:
    AppError failure() const { return AppError(pa_strerror(pa_context_errno(m_context))); }

    // Runs the loop until `done` holds, the connection fails or the time is up.
    Result<void> runUntil(const std::function<bool()>& done) {
        for (;;) {
            if (done()) {
                break;
            }
            auto left = std::chrono::duration_cast<std::chrono::microseconds>(
                m_deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0) {
                return AppError(pa_strerror(PA_ERR_TIMEOUT));
            }
            if (pa_mainloop_prepare(m_loop, static_cast<int>(left.count())) < 0 ||
                pa_mainloop_poll(m_loop) < 0 || pa_mainloop_dispatch(m_loop) < 0) {
                return failure();
            }
        }
        if (pa_context_get_state(m_context) != PA_CONTEXT_READY) {
            return failure();
        }
        return {};
    }

    pa_mainloop* m_loop;
    pa_context* m_context;
    std::chrono::steady_clock::time_point m_deadline;
};

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
    const bool system = device == SoundDevice::System;
    std::string source;
    {
        ServerQuery server;
        if (auto connected = server.connect(); !connected) {
            return connected.error();
        }
        if (system) {
            auto sink = server.defaultSink();
            if (!sink) {
                return sink.error();
            }
            source = *sink + ".monitor";
        }
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
    int error = 0;
    pa_simple* stream =
        pa_simple_new(nullptr, "Quillo", PA_STREAM_RECORD, system ? source.c_str() : nullptr,
                      system ? "App sound" : "Microphone", &spec, nullptr, &attributes, &error);
    if (stream == nullptr) {
        return AppError(pa_strerror(error));
    }
    return std::unique_ptr<SoundInput>(
        std::make_unique<PulseSoundInput>(stream, channels, std::move(onSound)));
}

}  // namespace quillo::capture
