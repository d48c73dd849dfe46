#pragma once

// Pointer and keyboard input through the desktop's RemoteDesktop portal, for agents on Wayland
// desktops that offer it. Unlike X11's second pointer, this is the user's own pointer: it moves
// on screen, and the tools say so. The desktop asks the user before the first input.

#include <functional>
#include <memory>

#include "base/geometry.h"
#include "base/result.h"
#include "capture/agent_devices.h"
#include "glib_loop.h"

typedef struct _XdpPortal XdpPortal;

namespace quillo::capture::portal {

// Where a point of the shared picture lies on the monitor the portal's pointer moves over (a
// shared window's place there; nothing for a shared monitor).
using PictureOrigin = std::function<Point()>;

// Starts a remote-desktop session on `portal` (the user's consent; up to `timeout` seconds)
// and returns devices over it. Fails with a clear message when the user declines.
Result<std::unique_ptr<AgentDevices>> startRemoteDesktop(std::shared_ptr<GlibLoop> loop,
                                                         XdpPortal* portal, PictureOrigin origin,
                                                         double timeout);

// The keysym a character is typed with: Latin-1 as itself, Return and Tab for their control
// characters, anything else as a Unicode keysym; none for other control characters.
std::optional<uint32_t> keysymFor(char32_t character);

}  // namespace quillo::capture::portal
