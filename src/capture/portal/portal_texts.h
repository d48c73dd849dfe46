#pragma once

// The Wayland capture backend's messages, in one place.

namespace quillo::capture::portal::texts {

inline constexpr const char* kNoPortal =
    "Screen sharing isn't available on this desktop. Install xdg-desktop-portal and your "
    "desktop's portal (for example xdg-desktop-portal-gnome, -kde or -wlr), then try again.";
inline constexpr const char* kPortalFailed =
    "The desktop couldn't start screen sharing. Try again.";
inline constexpr const char* kOnlyDisplays =
    "This desktop shares only whole displays. Choose a display instead.";
inline constexpr const char* kOnlyWindows =
    "This desktop shares only single windows. Choose a window instead.";
inline constexpr const char* kNoResize =
    "Wayland doesn't let Quillo resize another app's window. Resize it yourself, then go on.";
inline constexpr const char* kChoiceForgotten =
    "The desktop no longer remembers the window or display you shared, so it asks once more.";
inline constexpr const char* kChoiceDamaged =
    "The saved screen-sharing choice couldn't be read, so the desktop asks once more.";
inline constexpr const char* kNoInputAccess =
    "Clicks and keys aren't recorded: reading them on Wayland needs your user in the \"input\" "
    "group (sudo usermod -aG input $USER, then log out and back in).";
inline constexpr const char* kNoInputDevices =
    "Clicks and keys aren't recorded: no input devices were found.";
inline constexpr const char* kRemoteDeclined =
    "Quillo wasn't allowed to control the pointer and keyboard, so this input can't be done. "
    "Allow remote interaction when the desktop asks, or use click on buttons and fields.";
inline constexpr const char* kRemoteFailed =
    "The desktop couldn't start pointer and keyboard control. Try again.";
inline constexpr const char* kSharedWindow = "Shared window";
inline constexpr const char* kSharedDisplay = "Shared display";

}  // namespace quillo::capture::portal::texts
