#pragma once

// The windows a wlroots compositor of the sway family shows, read over its IPC socket
// (SWAYSOCK). Wayland gives apps no way to learn where other windows are; on a shared display,
// accessibility frames (which come relative to their window) are mapped through these.

#include <optional>
#include <string>
#include <vector>

#include "capture/capture_types.h"

namespace quillo::capture::portal {

// The views on visible workspaces, with their content areas in layout pixels and their
// process; `focused` names the one with the keyboard. Empty without SWAYSOCK or on failure.
struct ShownWindows {
    std::vector<WindowInfo> windows;
    std::optional<uint32_t> focused;
};
ShownWindows swayWindows();

// Parses a GET_TREE reply (exposed for tests).
ShownWindows parseSwayTree(const std::string& json);

}  // namespace quillo::capture::portal
