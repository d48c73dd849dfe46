#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "speech_engine.h"

namespace quillo::captions {

// A stretch of sound decoded as one utterance, in samples of the 16 kHz sound.
struct SpeechChunk {
    size_t begin = 0;
    size_t end = 0;
    bool operator==(const SpeechChunk&) const = default;
};

// Splits sound into stretches of speech at pauses. A 10 ms frame is silent below a threshold
// set 12 dB over the sound's floor (its 10th percentile level), but at least 6 dB under its loud
// level (90th percentile) and never under -50 dBFS. Speech is cut at silences of 0.3 s or more,
// keeping up to 0.3 s of each silence on both sides; stretches with under 80 ms of sound over
// the threshold (clicks) are left out. A stretch longer than
// `maxSeconds` is cut at its quietest frame in its second half.
std::vector<SpeechChunk> speechChunks(const std::vector<int16_t>& samples, double maxSeconds = 15);

// The recogniser of Debian's pocketsphinx with its US English model. Decodes the chunks on up to
// two threads, one decoder each (a decoder is not thread-safe and loads its own model).
// Cancelling takes effect between chunks, so within one chunk's decoding (a few seconds).
class PocketSphinxEngine : public SpeechEngine {
public:
    // The model's folder; the default is Debian's pocketsphinx-en-us package.
    explicit PocketSphinxEngine(
        std::filesystem::path model = "/usr/share/pocketsphinx/model/en-us");

    std::string name() const override { return "PocketSphinx"; }
    // English in any region: the language subtag "en".
    bool supports(const std::string& locale) const override;
    Result<SpeechRuns> recognize(const std::filesystem::path& wav, const std::string& locale,
                                 const SpeechProgress& progress,
                                 const CancelToken& cancel) override;

    // The recognised word as shown: alternate pronunciation marks "word(2)" removed; empty for
    // silence and filler tokens ("<s>", "</s>", "<sil>", "[NOISE]", "++UH++").
    static std::string wordText(const std::string& token);

private:
    std::filesystem::path m_model;
};

}  // namespace quillo::captions
