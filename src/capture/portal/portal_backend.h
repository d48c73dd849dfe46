#pragma once

// The Wayland backend's entry point: screens and windows through the desktop's ScreenCast
// portal and PipeWire. No portal or PipeWire header here.

#include <memory>

#include "capture/display_backend.h"

namespace quillo::capture::portal {

// The backend for a Wayland session. The portal is first asked when a source is chosen, so
// making one costs nothing and works without a portal (choosing then fails with a message).
std::shared_ptr<DisplayBackend> makePortalBackend();

}  // namespace quillo::capture::portal
