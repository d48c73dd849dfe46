#pragma once

#include <functional>
#include <memory>

#include "base/result.h"

namespace quillo::capture {

enum class SoundDevice {
    System,      // what the apps play: the default output's monitor
    Microphone,  // the default input
};

// Reads one sound device through the sound server on a thread of its own until destroyed.
// `onSound` gets interleaved float samples at 48 kHz (2 channels for System, 1 for Microphone)
// and the steady-clock time (seconds, monotonicSeconds()) at which the first of them was heard.
class SoundInput {
public:
    using Handler = std::function<void(const float* samples, size_t frames, double time)>;
    virtual ~SoundInput() = default;

    // Fails with the sound server's reason when it can't be reached.
    static Result<std::unique_ptr<SoundInput>> open(SoundDevice device, Handler onSound);
};

int channelCount(SoundDevice device);

}  // namespace quillo::capture
