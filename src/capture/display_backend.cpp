// Chooses the display backend for this session.

#include "display_backend.h"

#include <cstdlib>
#include <string>

#include "base/log.h"
#include "portal/portal_backend.h"
#include "x11/x11_backend.h"

namespace quillo::capture {

std::shared_ptr<DisplayBackend> makeDisplayBackend() {
    const char* variable = std::getenv("QUILLO_CAPTURE");
    std::string choice = variable != nullptr ? variable : "";
    if (choice == "none") {
        return makeNullBackend();
    }
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    const char* session = std::getenv("XDG_SESSION_TYPE");
    bool onWayland = (wayland != nullptr && *wayland != 0) ||
                     (session != nullptr && std::string(session) == "wayland");
    if (choice == "portal" || (choice != "x11" && onWayland)) {
        return portal::makePortalBackend();
    }
    if (auto backend = x11::makeX11Backend()) {
        return backend;
    }
    if (choice == "x11") {
        logError("app.quillo.capture", "QUILLO_CAPTURE is x11, but the X display can't be opened");
    }
    return makeNullBackend();
}

}  // namespace quillo::capture
