// Screen cast sessions through libportal, with the portal's properties and its permission store
// read over GDBus, all on the portal thread.

#include "screencast_portal.h"

#include <chrono>
#include <future>
#include <gio/gio.h>
#include <unistd.h>

#include <libportal/portal.h>

#include "base/log.h"
#include "portal_texts.h"
#include "remote_desktop.h"

namespace quillo::capture::portal {

namespace {

constexpr const char* kLog = "app.quillo.capture";
constexpr const char* kPortalName = "org.freedesktop.portal.Desktop";
constexpr const char* kPortalPath = "/org/freedesktop/portal/desktop";

// A property of the ScreenCast interface; none when the portal lacks it.
std::optional<uint32_t> portalProperty(GDBusConnection* bus, const char* interface,
                                       const char* name) {
    GError* error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        bus, kPortalName, kPortalPath, "org.freedesktop.DBus.Properties", "Get",
        g_variant_new("(ss)", interface, name), G_VARIANT_TYPE("(v)"), G_DBUS_CALL_FLAGS_NONE, 5000,
        nullptr, &error);
    if (reply == nullptr) {
        logInfo(kLog, std::string(interface) + "." + name + ": " + error->message);
        g_error_free(error);
        return std::nullopt;
    }
    GVariant* value = nullptr;
    g_variant_get(reply, "(v)", &value);
    std::optional<uint32_t> result;
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32)) {
        result = g_variant_get_uint32(value);
    }
    g_variant_unref(value);
    g_variant_unref(reply);
    return result;
}

// What the start of a session hands back to the waiting caller.
struct Starting {
    std::promise<Result<std::optional<std::unique_ptr<ScreenCastSession>>>> answer;
    std::shared_ptr<GlibLoop> loop;
    GCancellable* cancellable = nullptr;
    bool window = false;
    bool cursorMetadata = false;

    void finish(Result<std::optional<std::unique_ptr<ScreenCastSession>>> result) {
        answer.set_value(std::move(result));
        g_object_unref(cancellable);
        delete this;
    }
    void fail(GError* error) {
        bool dismissed = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED);
        std::string detail = error->message;
        g_error_free(error);
        if (dismissed) {
            finish(std::optional<std::unique_ptr<ScreenCastSession>>());
        } else {
            finish(AppError(texts::kPortalFailed, detail));
        }
    }
};

void started(GObject* object, GAsyncResult* result, gpointer data) {
    auto* starting = static_cast<Starting*>(data);
    auto* session = XDP_SESSION(object);
    GError* error = nullptr;
    if (!xdp_session_start_finish(session, result, &error)) {
        xdp_session_close(session);
        g_object_unref(session);
        starting->fail(error);
        return;
    }
    GVariant* streams = xdp_session_get_streams(session);
    GVariantIter iterator;
    uint32_t node = 0;
    GVariant* properties = nullptr;
    bool found = streams != nullptr && g_variant_iter_init(&iterator, streams) > 0 &&
                 g_variant_iter_next(&iterator, "(u@a{sv})", &node, &properties);
    int fd = found ? xdp_session_open_pipewire_remote(session) : -1;
    if (fd < 0) {
        if (properties != nullptr) {
            g_variant_unref(properties);
        }
        xdp_session_close(session);
        g_object_unref(session);
        starting->finish(AppError(texts::kPortalFailed,
                                  found ? "no PipeWire remote" : "the portal started no stream"));
        return;
    }
    auto made = std::make_unique<ScreenCastSession>(starting->loop, session, fd);
    made->node = node;
    made->window = starting->window;
    made->cursorMetadata = starting->cursorMetadata;
    int32_t width = 0, height = 0, x = 0, y = 0;
    if (g_variant_lookup(properties, "position", "(ii)", &x, &y)) {
        made->position = {static_cast<double>(x), static_cast<double>(y)};
    }
    if (g_variant_lookup(properties, "size", "(ii)", &width, &height)) {
        made->size = {static_cast<double>(width), static_cast<double>(height)};
    }
    // The session asked for one kind of source, so its stream is of that kind ("source_type"
    // is not to be trusted: some portals send the kind's bit shifted once more).
    g_variant_unref(properties);
    if (char* token = xdp_session_get_restore_token(session)) {
        made->restoreToken = token;
        g_free(token);
    }
    starting->finish(std::optional(std::move(made)));
}

void created(GObject* object, GAsyncResult* result, gpointer data) {
    auto* starting = static_cast<Starting*>(data);
    GError* error = nullptr;
    XdpSession* session =
        xdp_portal_create_screencast_session_finish(XDP_PORTAL(object), result, &error);
    if (session == nullptr) {
        starting->fail(error);
        return;
    }
    xdp_session_start(session, nullptr, starting->cancellable, started, starting);
}

}  // namespace

// --- sessions

ScreenCastSession::ScreenCastSession(std::shared_ptr<GlibLoop> loop, XdpSession* session, int fd)
    : m_loop(std::move(loop)), m_session(session), m_fd(fd) {
    // Made on the portal thread, where the signal is delivered.
    auto* flag = new std::shared_ptr<bool>(m_closed);
    m_closedHandler = g_signal_connect_data(
        session, "closed", G_CALLBACK(+[](XdpSession*, gpointer data) {
            **static_cast<std::shared_ptr<bool>*>(data) = true;
        }),
        flag, [](gpointer data, GClosure*) { delete static_cast<std::shared_ptr<bool>*>(data); },
        GConnectFlags(0));
}

ScreenCastSession::~ScreenCastSession() {
    if (m_fd >= 0) {
        close(m_fd);
    }
    m_loop->run([session = m_session, handler = m_closedHandler] {
        g_signal_handler_disconnect(session, handler);
        if (xdp_session_get_session_state(session) == XDP_SESSION_ACTIVE) {
            xdp_session_close(session);
        }
        g_object_unref(session);
    });
}

bool ScreenCastSession::closed() const {
    bool closed = false;
    m_loop->run([&] { closed = *m_closed; });
    return closed;
}

// --- the portal

Result<std::unique_ptr<ScreenCastPortal>> ScreenCastPortal::connect() {
    std::unique_ptr<ScreenCastPortal> made(new ScreenCastPortal());
    GError* error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (bus == nullptr) {
        std::string detail = error->message;
        g_error_free(error);
        return AppError(texts::kNoPortal, detail);
    }
    const char* screenCast = "org.freedesktop.portal.ScreenCast";
    auto sources = portalProperty(bus, screenCast, "AvailableSourceTypes");
    auto cursors = portalProperty(bus, screenCast, "AvailableCursorModes");
    auto version = portalProperty(bus, screenCast, "version");
    auto remote =
        portalProperty(bus, "org.freedesktop.portal.RemoteDesktop", "AvailableDeviceTypes");
    g_object_unref(bus);
    if (!sources || !cursors) {
        return AppError(texts::kNoPortal, "the ScreenCast portal does not answer");
    }
    made->m_offer = {*sources, *cursors, version.value_or(1), remote.value_or(0)};
    made->m_loop = std::make_shared<GlibLoop>();
    made->m_loop->run([&] { made->m_portal = xdp_portal_new(); });
    if (made->m_portal == nullptr) {
        return AppError(texts::kNoPortal, "xdp_portal_new failed");
    }
    logInfo(kLog, "ScreenCast portal version " + std::to_string(made->m_offer.version) +
                      ", sources " + std::to_string(*sources) + ", cursor modes " +
                      std::to_string(*cursors) + ", remote devices " +
                      std::to_string(remote.value_or(0)));
    return made;
}

ScreenCastPortal::~ScreenCastPortal() {
    if (m_loop && m_portal != nullptr) {
        m_loop->run([portal = m_portal] { g_object_unref(portal); });
    }
}

Result<std::optional<std::unique_ptr<ScreenCastSession>>> ScreenCastPortal::start(
    bool window, const std::string& token, double timeout, CancelToken cancel) {
    auto* starting = new Starting();
    starting->loop = m_loop;
    starting->window = window;
    starting->cursorMetadata = m_offer.cursorMetadata();
    starting->cancellable = g_cancellable_new();
    GCancellable* cancellable = g_object_ref(starting->cancellable);
    auto answer = starting->answer.get_future();
    XdpCursorMode cursorMode = m_offer.cursorMetadata()         ? XDP_CURSOR_MODE_METADATA
                               : (m_offer.cursorModes & 2) != 0 ? XDP_CURSOR_MODE_EMBEDDED
                                                                : XDP_CURSOR_MODE_HIDDEN;
    // Persistence needs version 4 of the interface; older portals refuse the option.
    XdpPersistMode persist =
        m_offer.version >= 4 ? XDP_PERSIST_MODE_PERSISTENT : XDP_PERSIST_MODE_NONE;
    std::string restore = m_offer.version >= 4 ? token : "";
    m_loop->post([this, starting, window, cursorMode, persist, restore] {
        xdp_portal_create_screencast_session(
            m_portal, window ? XDP_OUTPUT_WINDOW : XDP_OUTPUT_MONITOR, XDP_SCREENCAST_FLAG_NONE,
            cursorMode, persist, restore.empty() ? nullptr : restore.c_str(), starting->cancellable,
            created, starting);
    });
    auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeout);
    while (answer.wait_for(std::chrono::milliseconds(50)) != std::future_status::ready) {
        if (cancel.isCancelled() || std::chrono::steady_clock::now() >= deadline) {
            // The request is withdrawn; its answer (cancelled) still comes through the callbacks.
            m_loop->post([cancellable] { g_cancellable_cancel(cancellable); });
            break;
        }
    }
    auto result = answer.get();
    g_object_unref(cancellable);
    return result;
}

Result<std::unique_ptr<AgentDevices>> ScreenCastPortal::remoteDesktop(std::function<Point()> origin,
                                                                      double timeout) {
    return startRemoteDesktop(m_loop, m_portal, std::move(origin), timeout);
}

bool ScreenCastPortal::remembers(const std::string& token) {
    GError* error = nullptr;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, &error);
    if (bus == nullptr) {
        g_error_free(error);
        return true;
    }
    GVariant* reply =
        g_dbus_connection_call_sync(bus, "org.freedesktop.impl.portal.PermissionStore",
                                    "/org/freedesktop/impl/portal/PermissionStore",
                                    "org.freedesktop.impl.portal.PermissionStore", "Lookup",
                                    g_variant_new("(ss)", "screencast", token.c_str()), nullptr,
                                    G_DBUS_CALL_FLAGS_NONE, 3000, nullptr, &error);
    g_object_unref(bus);
    if (reply != nullptr) {
        g_variant_unref(reply);
        return true;
    }
    // The store's NotFound arrives as an unregistered D-Bus error, named in the message.
    bool notFound = std::string(error->message).find("Error.NotFound") != std::string::npos;
    logInfo(kLog, std::string("permission store lookup: ") + error->message);
    g_error_free(error);
    return !notFound;
}

}  // namespace quillo::capture::portal
