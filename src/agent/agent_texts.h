#pragma once

// Texts of the agent interface that name places or features of another desktop in their original
// form, adapted here in one place for Linux: "a Mac window" is "a window", the "macOS picker" is
// the sharing picker.

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

}  // namespace quillo::agent::texts
