// A libportal remote-desktop session with one monitor stream (the pointer's absolute positions
// are in that stream's pixels). Every call goes to the portal thread in order; flush() waits
// until those before it have been sent.

#include "remote_desktop.h"

#include <future>
#include <gio/gio.h>
#include <linux/input-event-codes.h>

#include <libportal/portal.h>

#include "portal_texts.h"

namespace quillo::capture::portal {

namespace {

struct Starting {
    std::promise<Result<XdpSession*>> answer;
    GCancellable* cancellable = nullptr;
};

void finish(Starting* starting, Result<XdpSession*> result) {
    starting->answer.set_value(std::move(result));
    g_object_unref(starting->cancellable);
    delete starting;
}

void started(GObject* object, GAsyncResult* result, gpointer data) {
    auto* session = XDP_SESSION(object);
    GError* error = nullptr;
    if (!xdp_session_start_finish(session, result, &error)) {
        bool declined = g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED);
        std::string detail = error->message;
        g_error_free(error);
        g_object_unref(session);
        finish(static_cast<Starting*>(data),
               AppError(declined ? texts::kRemoteDeclined : texts::kRemoteFailed, detail));
        return;
    }
    finish(static_cast<Starting*>(data), session);
}

void created(GObject* object, GAsyncResult* result, gpointer data) {
    auto* starting = static_cast<Starting*>(data);
    GError* error = nullptr;
    XdpSession* session =
        xdp_portal_create_remote_desktop_session_finish(XDP_PORTAL(object), result, &error);
    if (session == nullptr) {
        std::string detail = error->message;
        g_error_free(error);
        finish(starting, AppError(texts::kRemoteFailed, detail));
        return;
    }
    xdp_session_start(session, nullptr, starting->cancellable, started, starting);
}

class RemoteDesktopDevices final : public AgentDevices {
public:
    RemoteDesktopDevices(std::shared_ptr<GlibLoop> loop, XdpSession* session, uint32_t stream,
                         PictureOrigin origin)
        : m_loop(std::move(loop)),
          m_session(session),
          m_stream(stream),
          m_origin(std::move(origin)) {}

    ~RemoteDesktopDevices() override {
        m_loop->run([session = m_session] {
            xdp_session_close(session);
            g_object_unref(session);
        });
    }

    Result<void> move(Point screen) override {
        Point origin = m_origin ? m_origin() : Point{};
        m_position = screen;
        send([x = screen.x + origin.x, y = screen.y + origin.y](XdpSession* session,
                                                                uint32_t stream) {
            xdp_session_pointer_position(session, stream, x, y);
        });
        return {};
    }

    Result<void> button(int button, bool down) override {
        if (button >= 4 && button <= 7) {
            if (down) {
                auto axis = button <= 5 ? XDP_AXIS_VERTICAL_SCROLL : XDP_AXIS_HORIZONTAL_SCROLL;
                int steps = (button == 4 || button == 6) ? -1 : 1;
                send([axis, steps](XdpSession* session, uint32_t) {
                    xdp_session_pointer_axis_discrete(session, axis, steps);
                });
            }
            return {};
        }
        int code = button == 3 ? BTN_RIGHT : button == 2 ? BTN_MIDDLE : BTN_LEFT;
        auto state = down ? XDP_BUTTON_PRESSED : XDP_BUTTON_RELEASED;
        send([code, state](XdpSession* session, uint32_t) {
            xdp_session_pointer_button(session, code, state);
        });
        return {};
    }

    Result<void> key(uint32_t keysym, bool down) override {
        auto state = down ? XDP_KEY_PRESSED : XDP_KEY_RELEASED;
        send([keysym, state](XdpSession* session, uint32_t) {
            xdp_session_keyboard_key(session, TRUE, static_cast<int>(keysym), state);
        });
        return {};
    }

    Result<void> typeCharacter(char32_t character) override {
        auto keysym = keysymFor(character);
        if (!keysym) {
            return AppError("That character can't be typed.");
        }
        (void)key(*keysym, true);
        return key(*keysym, false);
    }

    Result<void> focus(uint32_t) override { return {}; }
    std::optional<Point> position() override { return m_position; }
    void flush() override {
        m_loop->run([] {});
    }

private:
    void send(std::function<void(XdpSession*, uint32_t)> call) {
        m_loop->post([session = m_session, stream = m_stream, call = std::move(call)] {
            if (xdp_session_get_session_state(session) == XDP_SESSION_ACTIVE) {
                call(session, stream);
            }
        });
    }

    std::shared_ptr<GlibLoop> m_loop;
    XdpSession* m_session;
    uint32_t m_stream;
    PictureOrigin m_origin;
    std::optional<Point> m_position;
};

}  // namespace

std::optional<uint32_t> keysymFor(char32_t character) {
    if (character == '\n' || character == '\r') {
        return 0xff0d;  // Return
    }
    if (character == '\t') {
        return 0xff09;  // Tab
    }
    if (character < 0x20 || (character >= 0x7f && character < 0xa0)) {
        return std::nullopt;
    }
    if (character < 0x100) {
        return static_cast<uint32_t>(character);
    }
    return 0x01000000u | static_cast<uint32_t>(character);
}

Result<std::unique_ptr<AgentDevices>> startRemoteDesktop(std::shared_ptr<GlibLoop> loop,
                                                         XdpPortal* portal, PictureOrigin origin,
                                                         double timeout) {
    auto* starting = new Starting();
    starting->cancellable = g_cancellable_new();
    GCancellable* cancellable = g_object_ref(starting->cancellable);
    auto answer = starting->answer.get_future();
    loop->post([portal, starting] {
        xdp_portal_create_remote_desktop_session(
            portal, static_cast<XdpDeviceType>(XDP_DEVICE_KEYBOARD | XDP_DEVICE_POINTER),
            XDP_OUTPUT_MONITOR, XDP_REMOTE_DESKTOP_FLAG_NONE, XDP_CURSOR_MODE_HIDDEN,
            starting->cancellable, created, starting);
    });
    if (answer.wait_for(std::chrono::duration<double>(timeout)) != std::future_status::ready) {
        loop->post([cancellable] { g_cancellable_cancel(cancellable); });
    }
    auto started = answer.get();
    g_object_unref(cancellable);
    if (!started) {
        return started.error();
    }
    XdpSession* session = *started;
    uint32_t stream = 0;
    loop->run([&] {
        if (GVariant* streams = xdp_session_get_streams(session)) {
            GVariantIter iterator;
            GVariant* properties = nullptr;
            if (g_variant_iter_init(&iterator, streams) > 0 &&
                g_variant_iter_next(&iterator, "(u@a{sv})", &stream, &properties)) {
                g_variant_unref(properties);
            }
        }
    });
    return std::unique_ptr<AgentDevices>(
        std::make_unique<RemoteDesktopDevices>(loop, session, stream, std::move(origin)));
}

}  // namespace quillo::capture::portal
