#include "overlay_window.h"

#include <cstdlib>
#include <string>
#include <xcb/xcb.h>

#include <QGuiApplication>
#include <QScreen>
#include <QtGui/qguiapplication_platform.h>

namespace quillo::views {

namespace {

xcb_connection_t* xConnection() {
    auto* x11 = qGuiApp != nullptr ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>()
                                   : nullptr;
    return x11 != nullptr ? x11->connection() : nullptr;
}

}  // namespace

void makeOverlayWindow(QWidget& window, bool clickThrough) {
    Qt::WindowFlags flags = Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                            Qt::WindowDoesNotAcceptFocus | Qt::NoDropShadowWindowHint;
    if (clickThrough) {
        // Placed by Quillo alone and never raised by the window manager's rules: the
        // countdown is shown above everything for a few seconds and takes no input at all.
        flags |= Qt::WindowTransparentForInput | Qt::X11BypassWindowManagerHint;
    }
    window.setWindowFlags(flags);
    window.setAttribute(Qt::WA_ShowWithoutActivating);
    window.setFocusPolicy(Qt::NoFocus);
    if (desktopBlends()) {
        window.setAttribute(Qt::WA_TranslucentBackground);
    }
}

bool desktopBlends() {
    xcb_connection_t* connection = xConnection();
    if (connection == nullptr) {
        return true;  // Wayland compositors always blend
    }
    int screen = 0;
    if (const char* display = std::getenv("DISPLAY")) {
        std::string name(display);
        if (auto dot = name.rfind('.'); dot != std::string::npos && dot > name.rfind(':')) {
            screen = std::atoi(name.c_str() + dot + 1);
        }
    }
    std::string selection = "_NET_WM_CM_S" + std::to_string(screen);
    xcb_intern_atom_reply_t* atom = xcb_intern_atom_reply(
        connection,
        xcb_intern_atom(connection, 1, static_cast<uint16_t>(selection.size()), selection.c_str()),
        nullptr);
    if (atom == nullptr) {
        return false;
    }
    bool owned = false;
    if (atom->atom != XCB_ATOM_NONE) {
        xcb_get_selection_owner_reply_t* owner = xcb_get_selection_owner_reply(
            connection, xcb_get_selection_owner(connection, atom->atom), nullptr);
        owned = owner != nullptr && owner->owner != XCB_WINDOW_NONE;
        std::free(owner);
    }
    std::free(atom);
    return owned;
}

void syncWithDisplay() {
    if (xcb_connection_t* connection = xConnection()) {
        // A request with a reply: once it is back, everything sent before it was handled.
        std::free(xcb_get_input_focus_reply(connection, xcb_get_input_focus(connection), nullptr));
    }
}

QRect screenAreaFor(const QRect& area) {
    QScreen* best = QGuiApplication::primaryScreen();
    long most = 0;
    for (QScreen* screen : QGuiApplication::screens()) {
        // Screen pixels to Qt's logical pixels on that screen.
        double ratio = screen->devicePixelRatio();
        QRect geometry = screen->geometry();
        QRect native(geometry.topLeft(), geometry.size() * ratio);
        QRect common = native.intersected(area);
        long shared = static_cast<long>(common.width()) * common.height();
        if (shared > most) {
            most = shared;
            best = screen;
        }
    }
    return best != nullptr ? best->geometry() : QRect(0, 0, 1280, 800);
}

}  // namespace quillo::views
