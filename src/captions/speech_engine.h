#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/cancel_token.h"
#include "base/result.h"
#include "caption_track.h"

namespace quillo::captions {

// Sound handed to speech engines: 16 kHz mono, signed 16-bit samples.
inline constexpr int kSpeechSampleRate = 16000;

// Writes `samples` as a 16 kHz mono 16-bit PCM WAV file.
Result<void> writeSpeechWav(const std::filesystem::path& path, const std::vector<int16_t>& samples);
// Reads a WAV file written by writeSpeechWav (or any 16 kHz mono 16-bit PCM WAV).
Result<std::vector<int16_t>> readSpeechWav(const std::filesystem::path& path);

// One run of timed words per recognised phrase, in order, times in seconds of the sound.
using SpeechRuns = std::vector<std::vector<CaptionWord>>;
// Fraction of the sound recognised so far, 0–1; called on the thread that called recognize().
using SpeechProgress = std::function<void(double fraction)>;

// A speech recogniser that runs on this computer. recognize() may run on several threads at once.
class SpeechEngine {
public:
    virtual ~SpeechEngine() = default;

    // The engine's name as stored in caption tracks, e.g. "PocketSphinx".
    virtual std::string name() const = 0;
    // Whether the engine has a model for `locale` ("en_US", "en-GB", "de"…).
    virtual bool supports(const std::string& locale) const = 0;
    // Recognises the speech in a WAV file written by writeSpeechWav. An empty result means no
    // speech was found. Cancelling returns soon after with "Transcription was stopped.".
    virtual Result<SpeechRuns> recognize(const std::filesystem::path& wav,
                                         const std::string& locale, const SpeechProgress& progress,
                                         const CancelToken& cancel) = 0;
};

}  // namespace quillo::captions
