#pragma once

#include <cstddef>
#include <string>

// Captions' fixed texts, in one place. Texts that named the original platform's places say what
// the user does on Linux instead.
namespace quillo::captions::texts {

inline constexpr const char* kPreparingAudio = "Preparing audio…";
inline constexpr const char* kTranscribing = "Transcribing…";
inline constexpr const char* kNoSound = "Couldn't read the recording's sound.";
inline constexpr const char* kAudioFailed = "Couldn't prepare the audio for captions.";
inline constexpr const char* kNoSpeech = "No speech was found in this recording.";
// `language` is the language's name in English, e.g. "German (Germany)".
inline std::string languageUnavailable(const std::string& language) {
    return "Captions aren't available in " + language +
           " on this computer. Choose another language.";
}
// Checks of a caption track against its recording; `n` is the caption's index.
inline std::string captionTimes(size_t n) {
    return "Caption " + std::to_string(n) + " needs an end after its start.";
}
inline std::string captionPastEnd(size_t n) {
    return "Caption " + std::to_string(n) + " ends after the recording does.";
}
inline std::string captionOverlaps(size_t n) {
    return "Caption " + std::to_string(n) + " starts before the one before it ends.";
}
inline constexpr const char* kTranscribingNow = "Transcribing now.";
inline constexpr const char* kTranscriptionStopped = "Transcription was stopped.";
inline constexpr const char* kRegenerateWarning = "Regenerating replaces your corrections.";

}  // namespace quillo::captions::texts
