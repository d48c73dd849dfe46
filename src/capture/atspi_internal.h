#pragma once

// What the AT-SPI readers in capture/ share: the one connection, the lock around libatspi, and
// owning handles for its objects. Included by their .cpp files only.

#include <atspi/atspi.h>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "base/geometry.h"
#include "base/log.h"
#include "x11/x11_backend.h"

namespace quillo::capture::atspi {

constexpr int kTimeoutMs = 500;         // per call into an app
constexpr int kMaxDrainedEvents = 200;  // bus messages handled per look-up

// libatspi keeps one connection per process and is not thread-safe: every use goes through
// this lock.
inline std::mutex g_mutex;

template <class T>
struct Unref {
    void operator()(T* object) const {
        if (object != nullptr) {
            g_object_unref(object);
        }
    }
};
template <class T>
using GRef = std::unique_ptr<T, Unref<T>>;

struct FreeError {
    void operator()(GError* error) const { g_error_free(error); }
};
using ErrorPtr = std::unique_ptr<GError, FreeError>;

struct FreeRect {
    void operator()(AtspiRect* rect) const { g_free(rect); }
};
using RectPtr = std::unique_ptr<AtspiRect, FreeRect>;

struct FreeString {
    void operator()(gchar* text) const { g_free(text); }
};
using StringPtr = std::unique_ptr<gchar, FreeString>;

// Calls `call` with a GError slot; true when it set no error (which is then dropped).
template <class Call>
auto checked(bool& ok, Call&& call) {
    GError* raw = nullptr;
    auto value = call(&raw);
    ErrorPtr error(raw);
    ok = error == nullptr;
    return value;
}

// The connection and the private main context its messages are handled on, made once. Null
// context: the accessibility bus is missing, and libatspi must not be touched again. Called
// with g_mutex held.
inline GMainContext* connect() {
    static GMainContext* context = []() -> GMainContext* {
        x11::initialize();  // libatspi may read the bus address from the X root window
        int status = atspi_init();
        if (status != 0 && status != 1) {
            logError("app.quillo.capture", "the accessibility bus is not reachable");
            return nullptr;
        }
        atspi_set_timeout(kTimeoutMs, kTimeoutMs);
        // Off the default context, which a toolkit's event loop may run on another thread.
        GMainContext* own = g_main_context_new();
        atspi_set_main_context(own);
        return own;
    }();
    return context;
}

// Connects and handles what arrived since the last look-up (cache updates), so nothing piles
// up; false when the bus is missing. Called with g_mutex held.
inline bool connectAndDrain() {
    GMainContext* context = connect();
    if (context == nullptr) {
        return false;
    }
    for (int i = 0; i < kMaxDrainedEvents && g_main_context_iteration(context, FALSE); ++i) {
    }
    return true;
}

inline std::optional<Rect> toRect(const AtspiRect* rect) {
    if (rect == nullptr || (rect->width <= 0 && rect->height <= 0)) {
        return std::nullopt;
    }
    return Rect{static_cast<double>(rect->x), static_cast<double>(rect->y),
                static_cast<double>(rect->width), static_cast<double>(rect->height)};
}

// The application on the desktop whose process is `pid`; null when none is.
inline GRef<AtspiAccessible> appOf(int32_t pid) {
    GRef<AtspiAccessible> desktop(atspi_get_desktop(0));
    if (!desktop) {
        return nullptr;
    }
    bool ok = false;
    int apps =
        checked(ok, [&](GError** e) { return atspi_accessible_get_child_count(desktop.get(), e); });
    for (int i = 0; ok && i < apps; ++i) {
        bool gotApp = false;
        GRef<AtspiAccessible> app(checked(gotApp, [&](GError** e) {
            return atspi_accessible_get_child_at_index(desktop.get(), i, e);
        }));
        if (!app) {
            continue;
        }
        bool gotPid = false;
        guint appPid = checked(
            gotPid, [&](GError** e) { return atspi_accessible_get_process_id(app.get(), e); });
        if (gotPid && static_cast<int32_t>(appPid) == pid) {
            return app;
        }
    }
    return nullptr;
}

}  // namespace quillo::capture::atspi
