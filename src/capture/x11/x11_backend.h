#pragma once

// The X11 backend's entry points for the rest of capture. No X11 header here: Xlib's macros
// stay inside x11/*.cpp.

#include <memory>

#include "capture/display_backend.h"

namespace quillo::capture::x11 {

// Makes Xlib safe for threads and installs the error handler; once per process, before any
// other Xlib call. Safe to call again from any thread.
void initialize();

// The backend on the display named by DISPLAY; null when it can't be opened.
std::shared_ptr<DisplayBackend> makeX11Backend();

}  // namespace quillo::capture::x11
