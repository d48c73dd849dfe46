// Watches raw presses of every master device through XInput2, on a thread with its own
// connection. Raw events reach the root window whatever window has the focus or a grab.

#include <cerrno>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

#include <X11/XKBlib.h>
#include <X11/extensions/XInput2.h>
#include <X11/keysym.h>

#include "base/log.h"
#include "x11_internal.h"

namespace quillo::capture::x11 {

namespace {

bool isModifier(KeySym symbol) {
    switch (symbol) {
        case XK_Shift_L:
        case XK_Shift_R:
        case XK_Control_L:
        case XK_Control_R:
        case XK_Alt_L:
        case XK_Alt_R:
        case XK_Super_L:
        case XK_Super_R:
        case XK_Meta_L:
        case XK_Meta_R:
        case XK_ISO_Level3_Shift:
            return true;
        default:
            return false;
    }
}

class X11InputWatcher final : public InputWatcher {
public:
    X11InputWatcher(DisplayPtr display, int opcode, int wakeFd,
                    std::function<void(const InputEvent&)> onInput)
        : m_display(std::move(display)),
          m_opcode(opcode),
          m_wakeFd(wakeFd),
          m_onInput(std::move(onInput)),
          m_thread([this] { run(); }) {}

    ~X11InputWatcher() override {
        uint64_t one = 1;
        (void)!::write(m_wakeFd, &one, sizeof one);
        m_thread.join();
        ::close(m_wakeFd);
    }

private:
    void run() {
        Display* display = m_display.get();
        pollfd fds[2] = {{ConnectionNumber(display), POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
        while (true) {
            while (XPending(display) > 0) {
                XEvent event;
                XNextEvent(display, &event);
                handle(event);
            }
            if (::poll(fds, 2, -1) < 0 && errno != EINTR) {
                logError("app.quillo.capture", "input watcher: poll failed");
                return;
            }
            if (fds[1].revents != 0) {
                return;
            }
            if (fds[0].revents & (POLLHUP | POLLERR)) {
                return;
            }
        }
    }

    void handle(XEvent& event) {
        XGenericEventCookie& cookie = event.xcookie;
        if (cookie.type != GenericEvent || cookie.extension != m_opcode ||
            !XGetEventData(m_display.get(), &cookie)) {
            return;
        }
        const auto* raw = static_cast<const XIRawEvent*>(cookie.data);
        std::optional<InputEvent> input;
        if (cookie.evtype == XI_RawButtonPress && raw->detail >= 1 && raw->detail <= 3) {
            // Buttons 4 to 7 are the wheel's steps, not presses.
            input = InputEvent{InputEvent::Kind::Press, raw->detail, 0, false};
        } else if (cookie.evtype == XI_RawKeyPress) {
            KeySym symbol =
                XkbKeycodeToKeysym(m_display.get(), static_cast<KeyCode>(raw->detail), 0, 0);
            input = InputEvent{InputEvent::Kind::Key, 0, raw->detail, isModifier(symbol)};
        }
        XFreeEventData(m_display.get(), &cookie);
        if (input) {
            m_onInput(*input);
        }
    }

    DisplayPtr m_display;
    int m_opcode;
    int m_wakeFd;  // written once to stop the thread
    std::function<void(const InputEvent&)> m_onInput;
    std::thread m_thread;  // last: starts once the rest is set
};

}  // namespace

Result<std::unique_ptr<InputWatcher>> makeInputWatcher(
    const std::string& displayName, std::function<void(const InputEvent&)> onInput) {
    auto opened = openDisplay(displayName);
    if (!opened) {
        return opened.error();
    }
    DisplayPtr display = std::move(*opened);
    int opcode = 0;
    int eventBase = 0;
    int errorBase = 0;
    int major = 2;
    int minor = 2;
    if (!XQueryExtension(display.get(), "XInputExtension", &opcode, &eventBase, &errorBase) ||
        XIQueryVersion(display.get(), &major, &minor) != Success) {
        return AppError("Clicks and keys can't be watched on this display.",
                        "XInput 2.2 is missing");
    }
    unsigned char bits[XIMaskLen(XI_LASTEVENT)] = {0};
    XISetMask(bits, XI_RawButtonPress);
    XISetMask(bits, XI_RawKeyPress);
    XIEventMask mask{XIAllMasterDevices, static_cast<int>(sizeof bits), bits};
    XISelectEvents(display.get(), DefaultRootWindow(display.get()), &mask, 1);
    XSync(display.get(), False);
    int wakeFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd < 0) {
        return AppError::fromErrno(errno, "eventfd");
    }
    return std::unique_ptr<InputWatcher>(
        new X11InputWatcher(std::move(display), opcode, wakeFd, std::move(onInput)));
}

}  // namespace quillo::capture::x11
