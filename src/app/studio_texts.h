#pragma once

// The studio's status lines and messages, in one place. Texts that named another desktop's
// places are adapted for Linux here ("the sharing picker").

#include <string>
#include <string_view>

namespace quillo::app::texts {

inline constexpr const char* kChooseSource = "Choose a window or display to start.";
inline constexpr const char* kReadyToRecord = "Ready to record.";
inline constexpr const char* kChooseInPicker = "Choose your source in the sharing picker.";
inline constexpr const char* kCountdownCancelled = "Countdown cancelled.";
inline constexpr const char* kShortcutTaken =
    " is taken by another app. Choose another in Settings, or use the Record button.";
inline constexpr const char* kStarting = "Starting recording…";
inline constexpr const char* kPaused = "Paused. Anything you do now is cut from the video.";
inline constexpr const char* kFinishing = "Finishing your recording…";
inline constexpr const char* kSaved = "Saved. Trim, zoom, and export below.";
inline constexpr const char* kDiscarded = "The recording was discarded.";
inline constexpr const char* kRecordingFailed = "Recording failed.";
inline constexpr const char* kExportBlocksQuit = "Finish or cancel the export before closing.";
inline constexpr const char* kNotRetina =
    " This display isn't HiDPI, so zooms will look soft; record on a HiDPI display for sharp "
    "ones.";
// Agent-facing answers of the recording tools.
inline constexpr const char* kNoRecordingUnderWay = "No recording is in progress.";
inline constexpr const char* kAlreadyRecording = "A recording is already in progress.";
inline constexpr const char* kNothingChosen = "No source was chosen.";
inline constexpr const char* kSelfTestOnly =
    "share_window works only in self-test mode (start Quillo with QUILLO_SELFTEST=1).";
inline constexpr const char* kNothingToRetake =
    "There is no step to retake: give demo_step a label to mark where a step begins.";
inline constexpr const char* kNoFrameYet = "The shared source has not shown a frame yet.";

inline std::string chooseFirst(std::string_view shortcut) {
    return "Choose a window or display first, then press " + std::string(shortcut) + " again.";
}
inline std::string ready(std::string_view shortcut) {
    return "Ready. Press Record or " + std::string(shortcut) + " from any app.";
}
inline std::string startsIn(int seconds) {
    return "Recording starts in " + std::to_string(seconds) + "…";
}
inline std::string recordingApp(std::string_view app) {
    return "Recording " + std::string(app) + ".";
}
inline std::string metadataFailed(std::string_view error) {
    return "Video saved, but metadata could not be updated: " + std::string(error);
}
inline std::string recovered(size_t count) {
    return count == 1 ? "A recording that was cut short was recovered into your library."
                      : std::to_string(count) +
                            " recordings that were cut short were recovered into your library.";
}

}  // namespace quillo::app::texts
