#pragma once

// Texts of the agent interface that name places or features of another desktop in their original
// form, adapted here in one place for Linux: "a Mac window" is "a window", the "macOS picker" is
// the sharing picker.

#include <cstdint>
#include <string>

namespace quillo::agent::texts {

inline constexpr const char* kInstructions =
    "Quillo records demos of a window or display and edits them into polished videos.\n"
    "Flow: get_status. If there's no source, call choose_source and ask the user to pick a "
    "window or display in the sharing picker (only they can). Then look with screenshot and "
    "ui_elements, drive the app with click, move_pointer, type_text, press_key, scroll, and drag "
    "(a visible AI cursor shows these actions in the preview, while the user's desktop pointer "
    "never moves), record with start_recording / stop_recording, edit (trim, zooms, cuts, "
    "speed-ups, style), check with render_frame, and finish with export.\n"
    "Input coordinates are pixels in the screenshot image (origin top-left); ui_elements uses "
    "the same space. Edit times are seconds on the original recording's timeline; zoom x/y are "
    "0–1 from the left/top.";

// Tools that act on a shared source, until one can be chosen.
inline constexpr const char* kNoSource =
    "No window or display is shared. Choose a window or display first.";
// ui_elements when nothing matches.
inline constexpr const char* kNoElements =
    "No matching elements. Chromium and Electron apps build their tree on first request; try "
    "once more, or use a screenshot.";
// Agent input where the desktop lets apps reach others only through accessibility.
inline constexpr const char* kNoPointerInput =
    "This desktop doesn't let Quillo move the pointer or press keys in other apps, so drag, "
    "scroll, move_pointer and press_key aren't available here. Use click on buttons, links and "
    "fields, and type_text, which go through accessibility.";
inline constexpr const char* kNothingAnswersThere =
    "Nothing there answers a click through accessibility (a button, link, tab, menu item or "
    "field), and this desktop doesn't let Quillo click elsewhere. Use ui_elements to find one.";
inline constexpr const char* kNoFocusedField =
    "No text field has the keyboard focus. Click a field first.";
inline constexpr const char* kNoCursorData = "This recording has no cursor data.";
inline constexpr const char* kNothingToUndo = "There is nothing to undo.";
inline constexpr const char* kNothingToRedo = "There is nothing to redo.";
inline constexpr const char* kExportRunning = "Wait for the export to finish.";
inline constexpr const char* kNoCaptions =
    "This recording has no captions yet. Use generate_captions or set_captions first.";
inline constexpr const char* kCountdownChoices = "countdown must be 0, 3, 5, or 10.";
// The named keys press_key takes besides letters, digits and punctuation.
inline constexpr const char* kNamedKeys =
    "return, enter, tab, space, delete, backspace, forward_delete, escape, left, right, up, "
    "down, home, end, page_up, page_down, f1–f12.";

inline std::string noZoom(int64_t index) {
    return "There is no zoom " + std::to_string(index) + ".";
}
inline std::string noSegment(int64_t index) {
    return "There is no cut or speed-up " + std::to_string(index) + ".";
}
inline std::string noRedaction(int64_t index) {
    return "There is no redaction " + std::to_string(index) + ".";
}
inline std::string noMarker(int64_t index) {
    return "There is no marker " + std::to_string(index) + ".";
}
inline constexpr const char* kNoRecordingInProgress =
    "No recording is in progress. Give a recording id and a time.";
inline std::string noRecording(const std::string& id) {
    return "No recording has the id “" + id + "”.";
}

}  // namespace quillo::agent::texts
