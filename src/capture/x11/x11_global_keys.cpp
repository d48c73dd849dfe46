// Desktop-wide keys through passive grabs on the root window, on a connection and thread of
// their own. A grab covers one modifier combination, so each chord is grabbed four times: as it
// is, with CapsLock, with NumLock and with both.

#include <cerrno>
#include <map>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <X11/XKBlib.h>
#include <X11/keysym.h>

#include "base/log.h"
#include "x11_internal.h"

namespace quillo::capture::x11 {

namespace {

// The modifier bit NumLock sets on this keyboard (usually Mod2).
unsigned numLockMask(Display* display) {
    unsigned mask = 0;
    KeyCode numLock = XKeysymToKeycode(display, XK_Num_Lock);
    XModifierKeymap* map = XGetModifierMapping(display);
    if (map == nullptr) {
        return Mod2Mask;
    }
    for (int modifier = 0; modifier < 8 && numLock != 0; ++modifier) {
        for (int i = 0; i < map->max_keypermod; ++i) {
            if (map->modifiermap[modifier * map->max_keypermod + i] == numLock) {
                mask = 1u << modifier;
            }
        }
    }
    XFreeModifiermap(map);
    return mask != 0 ? mask : Mod2Mask;
}

class X11GlobalKeys final : public GlobalKeys {
public:
    X11GlobalKeys(DisplayPtr display, int wakeFd)
        : m_display(std::move(display)),
          m_wakeFd(wakeFd),
          m_numLock(numLockMask(m_display.get())),
          m_thread([this] { run(); }) {}

    ~X11GlobalKeys() override {
        {
            std::lock_guard lock(m_mutex);
            for (auto& [id, grab] : m_grabs) {
                ungrab(grab);
            }
            m_grabs.clear();
            XFlush(m_display.get());
            m_stopping = true;
        }
        wake();
        m_thread.join();
        ::close(m_wakeFd);
    }

    Result<int> grab(const KeyChord& chord, std::function<void()> pressed) override {
        std::lock_guard lock(m_mutex);
        Display* display = m_display.get();
        Grab grab;
        grab.keycode = XKeysymToKeycode(display, chord.keysym);
        if (grab.keycode == 0) {
            return AppError("That key is not on this keyboard.");
        }
        grab.modifiers = (chord.ctrl ? ControlMask : 0u) | (chord.shift ? ShiftMask : 0u) |
                         (chord.alt ? Mod1Mask : 0u) | (chord.super ? Mod4Mask : 0u);
        grab.pressed = std::move(pressed);
        Window root = DefaultRootWindow(display);
        ErrorTrap trap(display);
        for (unsigned locks : lockVariants()) {
            XGrabKey(display, grab.keycode, grab.modifiers | locks, root, False, GrabModeAsync,
                     GrabModeAsync);
        }
        if (trap.failed()) {
            // Another client's grab on any variant: give back the ones that took.
            ungrab(grab);
            (void)trap.failed();
            return AppError("The shortcut is taken by another app.");
        }
        int id = ++m_lastId;
        m_grabs.emplace(id, std::move(grab));
        wake();  // the sync may have read events the thread has not seen
        return id;
    }

    void release(int id) override {
        std::lock_guard lock(m_mutex);
        auto it = m_grabs.find(id);
        if (it == m_grabs.end()) {
            return;
        }
        ungrab(it->second);
        m_grabs.erase(it);
        XFlush(m_display.get());
    }

private:
    struct Grab {
        KeyCode keycode = 0;
        unsigned modifiers = 0;
        std::function<void()> pressed;
        bool down = false;  // held: key repeats are not presses
    };

    std::vector<unsigned> lockVariants() const {
        return {0u, LockMask, m_numLock, LockMask | m_numLock};
    }

    // Needs m_mutex.
    void ungrab(const Grab& grab) {
        ErrorTrap trap(m_display.get());
        for (unsigned locks : lockVariants()) {
            XUngrabKey(m_display.get(), grab.keycode, grab.modifiers | locks,
                       DefaultRootWindow(m_display.get()));
        }
        (void)trap.failed();
    }

    void wake() {
        uint64_t one = 1;
        (void)!::write(m_wakeFd, &one, sizeof one);
    }

    void run() {
        Display* display = m_display.get();
        pollfd fds[2] = {{ConnectionNumber(display), POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
        while (true) {
            std::vector<std::function<void()>> presses;
            {
                std::lock_guard lock(m_mutex);
                if (m_stopping) {
                    return;
                }
                while (XPending(display) > 0) {
                    XEvent event;
                    XNextEvent(display, &event);
                    handle(event, presses);
                }
            }
            // Outside the lock: a press may grab or release keys.
            for (auto& pressed : presses) {
                pressed();
            }
            if (::poll(fds, 2, -1) < 0 && errno != EINTR) {
                logError("app.quillo.capture", "global keys: poll failed");
                return;
            }
            if (fds[1].revents != 0) {
                uint64_t count = 0;
                (void)!::read(m_wakeFd, &count, sizeof count);
            }
            if (fds[0].revents & (POLLHUP | POLLERR)) {
                return;
            }
        }
    }

    // Needs m_mutex.
    void handle(const XEvent& event, std::vector<std::function<void()>>& presses) {
        if (event.type != KeyPress && event.type != KeyRelease) {
            return;
        }
        const unsigned state = event.xkey.state & ~(LockMask | m_numLock);
        for (auto& [id, grab] : m_grabs) {
            if (grab.keycode != event.xkey.keycode) {
                continue;
            }
            if (event.type == KeyRelease) {
                grab.down = false;
            } else if (state == grab.modifiers && !grab.down) {
                grab.down = true;
                presses.push_back(grab.pressed);
            }
        }
    }

    DisplayPtr m_display;
    int m_wakeFd;
    unsigned m_numLock;
    std::mutex m_mutex;
    std::map<int, Grab> m_grabs;
    int m_lastId = 0;
    bool m_stopping = false;
    std::thread m_thread;  // last: starts once the rest is set
};

}  // namespace

Result<std::unique_ptr<GlobalKeys>> makeGlobalKeys(const std::string& displayName) {
    auto display = openDisplay(displayName);
    if (!display) {
        return display.error();
    }
    // Held keys repeat as presses alone, without the releases between them.
    XkbSetDetectableAutoRepeat(display->get(), True, nullptr);
    int wakeFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd < 0) {
        return AppError("Global shortcuts could not be set up.", "eventfd failed");
    }
    return std::unique_ptr<GlobalKeys>(new X11GlobalKeys(std::move(*display), wakeFd));
}

}  // namespace quillo::capture::x11
