#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/cancel_token.h"
#include "base/result.h"
#include "caption_track.h"
#include "speech_engine.h"

namespace quillo::captions {

// Status text and, while transcribing, the fraction done (0–1).
using TranscriptionProgress =
    std::function<void(const std::string& status, std::optional<double> fraction)>;

// Turns a recording's speech into a caption track with an on-device speech engine.
class CaptionTranscriber {
public:
    // Uses the built-in PocketSphinx engine unless given another.
    explicit CaptionTranscriber(std::shared_ptr<SpeechEngine> engine = nullptr);

    // Writes the movie's sound (times from its first video frame) to `to` as 16 kHz mono 16-bit
    // PCM WAV. Errors: "Couldn't read the recording's sound." when the movie has no readable
    // sound, "Couldn't prepare the audio for captions." when decoding or writing fails.
    static Result<void> extractAudio(const std::filesystem::path& movie,
                                     const std::filesystem::path& to,
                                     const CancelToken& cancel = {});

    // A fresh path for the sound handed to the engine: "quillo-captions-ID.wav" in the system's
    // temporary folder.
    static std::filesystem::path temporaryAudioPath();

    // English display name of a locale, e.g. "German (Germany)" for "de_DE".
    static std::string languageName(const std::string& locale);

    // Transcribes the movie's speech. Reports "Preparing audio…", then "Transcribing…" with
    // fractions. The temporary sound file is removed whatever happens. Errors: the two of
    // extractAudio, "Captions aren't available in LANGUAGE on this computer…", "No speech was
    // found in this recording." and "Transcription was stopped." when cancelled.
    Result<CaptionTrack> transcribe(const std::filesystem::path& movie, const std::string& locale,
                                    const TranscriptionProgress& progress,
                                    const CancelToken& cancel) const;

private:
    std::shared_ptr<SpeechEngine> m_engine;
};

}  // namespace quillo::captions
