#pragma once

// The desktop's ScreenCast portal: what it offers, and sessions started through its own
// dialog (or, with a restore token, without one). Calls go through libportal and GDBus on the
// portal thread; every method here may be called from any other thread and blocks until the
// portal answers.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/cancel_token.h"
#include "base/geometry.h"
#include "base/result.h"
#include "capture/agent_devices.h"
#include "glib_loop.h"

typedef struct _XdpPortal XdpPortal;
typedef struct _XdpSession XdpSession;

namespace quillo::capture::portal {

// The portal's ScreenCast properties. Bits as the portal defines them: sources 1 monitor,
// 2 window, 4 virtual; cursor modes 1 hidden, 2 embedded, 4 metadata.
struct ScreenCastOffer {
    uint32_t sourceTypes = 0;
    uint32_t cursorModes = 0;
    uint32_t version = 0;
    uint32_t remoteDevices = 0;  // the RemoteDesktop portal's: 1 keyboard, 2 pointer; 0 none

    bool windows() const { return (sourceTypes & 2) != 0; }
    bool monitors() const { return (sourceTypes & 1) != 0; }
    bool cursorMetadata() const { return (cursorModes & 4) != 0; }
};

// A started screen cast: one stream on the PipeWire remote `fd`. Closing it (the destructor)
// ends the stream for the compositor too.
class ScreenCastSession {
public:
    // Keeps the portal thread alive for as long as it needs it.
    ScreenCastSession(std::shared_ptr<GlibLoop> loop, XdpSession* session, int fd);
    ~ScreenCastSession();
    ScreenCastSession(const ScreenCastSession&) = delete;
    ScreenCastSession& operator=(const ScreenCastSession&) = delete;

    int fd() const { return m_fd; }
    uint32_t node = 0;
    bool window = false;  // a window rather than a monitor
    Size size;            // as the portal announced it
    Point position;       // of a monitor, in the desktop's layout
    bool cursorMetadata = false;
    std::string restoreToken;  // for the next session; empty when the portal gave none
    // True once the portal closed the session (the user revoked it, the source went away).
    bool closed() const;

private:
    std::shared_ptr<GlibLoop> m_loop;
    XdpSession* m_session;
    int m_fd;
    std::shared_ptr<bool> m_closed = std::make_shared<bool>(false);  // portal thread only
    unsigned long m_closedHandler = 0;
};

class ScreenCastPortal {
public:
    // None (with the reason) when there is no session bus or no portal on it.
    static Result<std::unique_ptr<ScreenCastPortal>> connect();
    ~ScreenCastPortal();
    ScreenCastPortal(const ScreenCastPortal&) = delete;
    ScreenCastPortal& operator=(const ScreenCastPortal&) = delete;

    const ScreenCastOffer& offer() const { return m_offer; }

    // Asks for a window or a monitor, persisting the choice until revoked. With `token` the
    // portal may restore the earlier choice without asking. None when the user dismissed the
    // dialog, `cancel` fired or `timeout` seconds passed.
    Result<std::optional<std::unique_ptr<ScreenCastSession>>> start(bool window,
                                                                    const std::string& token,
                                                                    double timeout,
                                                                    CancelToken cancel);
    // Whether the desktop still remembers the choice behind `token` (the portal's permission
    // store); unknown (true) where the store can't be asked.
    bool remembers(const std::string& token);

    // Pointer and keyboard through the RemoteDesktop portal (asks the user).
    Result<std::unique_ptr<AgentDevices>> remoteDesktop(std::function<Point()> origin,
                                                        double timeout);

private:
    ScreenCastPortal() = default;
    std::shared_ptr<GlibLoop> m_loop;
    XdpPortal* m_portal = nullptr;
    ScreenCastOffer m_offer;
};

}  // namespace quillo::capture::portal
