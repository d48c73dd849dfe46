#pragma once

// Captions' fixed texts, in one place. Texts that named the original platform's places say what
// the user does on Linux instead.
namespace quillo::captions::texts {

inline constexpr const char* kPreparingAudio = "Preparing audio…";
inline constexpr const char* kTranscribing = "Transcribing…";
inline constexpr const char* kNoSound = "Couldn't read the recording's sound.";
inline constexpr const char* kAudioFailed = "Couldn't prepare the audio for captions.";
inline constexpr const char* kNoSpeech = "No speech was found in this recording.";
// {language} is the language's name in English, e.g. "German (Germany)".
inline constexpr const char* kLanguageUnavailable =
    "Captions aren't available in {language} on this computer. Choose another language.";
inline constexpr const char* kTranscribingNow = "Transcribing now.";
inline constexpr const char* kTranscriptionStopped = "Transcription was stopped.";
inline constexpr const char* kRegenerateWarning = "Regenerating replaces your corrections.";

}  // namespace quillo::captions::texts
