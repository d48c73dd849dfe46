#pragma once

// The capture layer's messages, in one place. Texts that named another desktop's places are
// adapted for Linux here.

#include <string>

namespace quillo::capture::texts {

inline constexpr const char* kOwnWindow =
    "Quillo can't record its own window. Choose another app's window.";
inline constexpr const char* kNoSource = "Choose a source before recording.";
inline constexpr const char* kSharingStopped = "Sharing stopped. Choose your source again.";
inline constexpr const char* kSharingEnded =
    "Sharing ended before recording finalized. Any recoverable video remains in the project "
    "folder.";
inline constexpr const char* kChooseWindowFirst = "Choose an app window first.";
inline constexpr const char* kWindowGone = "That window is no longer open. Choose another.";
inline constexpr const char* kDisplayGone = "That display is no longer connected. Choose another.";
inline constexpr const char* kStopFirst = "Stop recording before choosing another source.";
inline constexpr const char* kSelectedWindow = "Selected window";
inline constexpr const char* kSelectedDisplay = "Selected display";
inline constexpr const char* kScreen = "Screen";

inline std::string noWindowMatches(int pid, const std::string& title) {
    std::string what = pid != 0 ? "of process " + std::to_string(pid) : "";
    if (!title.empty()) {
        what += std::string(what.empty() ? "" : " ") + "titled “" + title + "”";
    }
    return "No window " + what + " is open.";
}
inline std::string noResize(const std::string& app) {
    return app + " didn't expose its window for resizing.";
}
inline std::string noSound(bool microphone, const std::string& reason) {
    return std::string(microphone ? "The microphone" : "App sound") + " can't be recorded (" +
           reason + "), so this recording goes on without it.";
}

// The camera. Camera access on Linux is membership of the "video" group.
inline constexpr const char* kCameraDenied =
    "Allow camera access by adding your user to the “video” group, then log in again and turn "
    "the camera on again.";
inline constexpr const char* kCameraMissing =
    "No camera found. Connect one, then turn the camera on again.";
inline constexpr const char* kCameraTurnedOff = "The camera was turned off.";
inline std::string cameraUnavailable(const std::string& camera) {
    return camera + " is in use or unavailable.";
}
inline std::string cameraDidNotStart(const std::string& camera) {
    return camera + " didn't start.";
}
inline std::string withoutCamera(const std::string& reason) {
    return "Recording without the camera. " + reason;
}

}  // namespace quillo::capture::texts
