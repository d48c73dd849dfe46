#pragma once

// The editor's fixed texts, in one place. Where a text named a macOS key or place it names the
// Linux one (the undo shortcut is Ctrl+Z here).

namespace quillo::editor::texts {

inline constexpr const char* kNoRoomForZoom = "There isn't room for a zoom here.";
inline constexpr const char* kNoRoomForSegment = "There isn't room here. Move the playhead first.";
inline constexpr const char* kNothingToZoomOn =
    "No clicks or typing were recorded inside the clip, so there's nothing to zoom on.";
inline constexpr const char* kAutoZoomNoticeEnd = " from your clicks and typing · Ctrl+Z to undo";
inline constexpr const char* kWaitForExport = "Wait for the export to finish.";
inline constexpr const char* kWholeClipIdle =
    "The whole clip looks idle. Speed it up instead of cutting it.";
inline constexpr const char* kNoDeadTime = "No dead time found";

}  // namespace quillo::editor::texts
