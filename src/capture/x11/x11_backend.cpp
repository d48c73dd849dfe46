// The X11 display backend: windows from the window manager's client list (or the root's mapped
// children without one), monitors from RandR, the pointer and its picture from XFixes, and
// resizing through EWMH. One connection, serialised by a mutex; the grabber, the input watcher
// and the picker open connections of their own.

#include "x11_backend.h"

#include <chrono>
#include <mutex>
#include <thread>

#include <X11/Xutil.h>
#include <X11/extensions/Xcomposite.h>
#include <X11/extensions/Xfixes.h>

#include "capture/capture_texts.h"
#include "x11_exclusion.h"
#include "x11_internal.h"

namespace quillo::capture::x11 {

namespace {

constexpr auto kResizeWait = std::chrono::seconds(1);
constexpr auto kResizePoll = std::chrono::milliseconds(20);
// A window manager that rounds the size (to a terminal's character cells, say) never shows the
// exact one: a new size that holds this many polls is the answer.
constexpr int kSteadyPolls = 5;

// EWMH _NET_MOVERESIZE_WINDOW flags: which values are set, and who asks (2: a pager, which
// window managers honour without second-guessing).
constexpr long kMoveResizeWidth = 1L << 10;
constexpr long kMoveResizeHeight = 1L << 11;
constexpr long kMoveResizeFromPager = 2L << 12;

class X11Backend final : public DisplayBackend {
public:
    explicit X11Backend(DisplayPtr display)
        : m_display(std::move(display)),
          m_name(DisplayString(m_display.get())),
          m_atoms(Atoms::load(m_display.get())) {
        int eventBase = 0;
        int errorBase = 0;
        m_hasFixes = XFixesQueryExtension(m_display.get(), &eventBase, &errorBase);
        m_hasComposite = XCompositeQueryExtension(m_display.get(), &eventBase, &errorBase);
    }

    std::string name() const override { return "x11"; }

    Result<std::vector<WindowInfo>> windows() override {
        std::lock_guard lock(m_mutex);
        std::vector<WindowInfo> list;
        for (Window window : clientWindows(m_display.get(), m_atoms)) {
            if (auto info = describeWindow(m_display.get(), m_atoms, window)) {
                list.push_back(std::move(*info));
            }
        }
        return list;
    }

    Result<std::vector<MonitorInfo>> monitors() override {
        std::lock_guard lock(m_mutex);
        return listMonitors(m_display.get());
    }

    std::optional<WindowInfo> window(uint32_t id) override {
        std::lock_guard lock(m_mutex);
        return describeWindow(m_display.get(), m_atoms, id);
    }

    std::optional<Point> pointer() override {
        std::lock_guard lock(m_mutex);
        Window root = 0;
        Window child = 0;
        int rootX = 0;
        int rootY = 0;
        int x = 0;
        int y = 0;
        unsigned int mask = 0;
        if (!XQueryPointer(m_display.get(), DefaultRootWindow(m_display.get()), &root, &child,
                           &rootX, &rootY, &x, &y, &mask)) {
            return std::nullopt;  // on another screen
        }
        return Point{static_cast<double>(rootX), static_cast<double>(rootY)};
    }

    std::optional<CursorImage> cursorImage() override {
        if (!m_hasFixes) {
            return std::nullopt;
        }
        std::lock_guard lock(m_mutex);
        XFixesCursorImage* image = XFixesGetCursorImage(m_display.get());
        if (image == nullptr) {
            return std::nullopt;
        }
        CursorImage cursor;
        cursor.width = image->width;
        cursor.height = image->height;
        cursor.hotX = image->xhot;
        cursor.hotY = image->yhot;
        cursor.serial = image->cursor_serial;
        // The pixels arrive one per unsigned long, already premultiplied ARGB.
        size_t count = static_cast<size_t>(image->width) * image->height;
        cursor.argb.resize(count);
        for (size_t i = 0; i < count; ++i) {
            cursor.argb[i] = static_cast<uint32_t>(image->pixels[i]);
        }
        XFree(image);
        return cursor;
    }

    Result<Size> resizeWindow(uint32_t id, Size size) override {
        int width = std::max(1, static_cast<int>(size.width + 0.5));
        int height = std::max(1, static_cast<int>(size.height + 0.5));
        std::optional<Size> before;
        {
            std::lock_guard lock(m_mutex);
            before = clientSize(id);
            if (!before) {
                return AppError(texts::kWindowGone);
            }
            requestSize(id, width, height);
        }
        Size wanted{static_cast<double>(width), static_cast<double>(height)};
        Size last = *before;
        int steady = 0;
        auto deadline = std::chrono::steady_clock::now() + kResizeWait;
        while (std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(kResizePoll);
            std::optional<Size> now;
            {
                std::lock_guard lock(m_mutex);
                now = clientSize(id);
            }
            if (!now) {
                return AppError(texts::kWindowGone);
            }
            if (*now == wanted) {
                return *now;
            }
            steady = *now == last ? steady + 1 : 0;
            last = *now;
            if (last != *before && steady >= kSteadyPolls) {
                break;
            }
        }
        return last;
    }

    Result<std::optional<SourceRef>> pick(bool displayOnly, double timeout,
                                          CancelToken cancel) override {
        return pickSource(m_name, displayOnly, timeout, cancel);
    }

    void activate(uint32_t id) override {
        std::lock_guard lock(m_mutex);
        Display* display = m_display.get();
        ErrorTrap trap(display);
        if (hasWindowManager(display, m_atoms)) {
            // Through the window manager, as a pager would ask, so it is honoured.
            XEvent event{};
            event.xclient.type = ClientMessage;
            event.xclient.window = id;
            event.xclient.message_type = XInternAtom(display, "_NET_ACTIVE_WINDOW", False);
            event.xclient.format = 32;
            event.xclient.data.l[0] = 2;
            event.xclient.data.l[1] = CurrentTime;
            XSendEvent(display, DefaultRootWindow(display), False,
                       SubstructureRedirectMask | SubstructureNotifyMask, &event);
        } else {
            XRaiseWindow(display, id);
            XSetInputFocus(display, id, RevertToPointerRoot, CurrentTime);
        }
        XFlush(display);
        (void)trap.failed();
    }

    Result<std::unique_ptr<ScreenGrabber>> grabber() override {
        return makeGrabber(m_name, m_exclusions);
    }

    bool excludesWindows() const override { return m_hasComposite; }

    // While windows are left out, every top-level keeps its picture off screen as well
    // (automatic redirection: the server still shows them as before), so the grabber can paint
    // what lies beneath an excluded window. Ended when the list empties, or with this
    // connection.
    void setExcludedWindows(std::vector<uint64_t> ids) override {
        if (!m_hasComposite) {
            return;
        }
        std::lock_guard lock(m_mutex);
        Display* display = m_display.get();
        ErrorTrap trap(display);
        if (!ids.empty() && !m_redirected) {
            XCompositeRedirectSubwindows(display, DefaultRootWindow(display),
                                         CompositeRedirectAutomatic);
            m_redirected = true;
        } else if (ids.empty() && m_redirected) {
            XCompositeUnredirectSubwindows(display, DefaultRootWindow(display),
                                           CompositeRedirectAutomatic);
            m_redirected = false;
        }
        m_exclusions->set(std::vector<Window>(ids.begin(), ids.end()));
        (void)trap.failed();  // waits for the server, so the next grab sees the redirection
    }

    Result<std::unique_ptr<GlobalKeys>> globalKeys() override { return makeGlobalKeys(m_name); }

    Result<std::unique_ptr<InputWatcher>> watchInput(
        std::function<void(const InputEvent&)> onInput) override {
        return makeInputWatcher(m_name, std::move(onInput));
    }

private:
    // Needs m_mutex.
    std::optional<Size> clientSize(Window window) {
        ErrorTrap trap(m_display.get());
        XWindowAttributes attributes{};
        if (XGetWindowAttributes(m_display.get(), window, &attributes) == 0 || trap.failed()) {
            return std::nullopt;
        }
        return Size{static_cast<double>(attributes.width), static_cast<double>(attributes.height)};
    }

    // Needs m_mutex. Under a window manager the request goes through it (it owns the frame);
    // without one the window is resized directly.
    void requestSize(Window window, int width, int height) {
        Display* display = m_display.get();
        ErrorTrap trap(display);
        if (hasWindowManager(display, m_atoms)) {
            XEvent event{};
            event.xclient.type = ClientMessage;
            event.xclient.window = window;
            event.xclient.message_type = m_atoms.netMoveResizeWindow;
            event.xclient.format = 32;
            event.xclient.data.l[0] =
                NorthWestGravity | kMoveResizeWidth | kMoveResizeHeight | kMoveResizeFromPager;
            event.xclient.data.l[3] = width;
            event.xclient.data.l[4] = height;
            XSendEvent(display, DefaultRootWindow(display), False,
                       SubstructureRedirectMask | SubstructureNotifyMask, &event);
        } else {
            XResizeWindow(display, window, static_cast<unsigned>(width),
                          static_cast<unsigned>(height));
        }
        (void)trap.failed();
    }

    DisplayPtr m_display;
    std::string m_name;
    Atoms m_atoms;
    bool m_hasFixes = false;
    bool m_hasComposite = false;
    bool m_redirected = false;  // guarded by m_mutex
    std::shared_ptr<Exclusions> m_exclusions = std::make_shared<Exclusions>();
    std::mutex m_mutex;  // one request at a time on m_display
};

}  // namespace

std::shared_ptr<DisplayBackend> makeX11Backend() {
    auto display = openDisplay({});
    if (!display) {
        return nullptr;
    }
    return std::make_shared<X11Backend>(std::move(*display));
}

}  // namespace quillo::capture::x11
