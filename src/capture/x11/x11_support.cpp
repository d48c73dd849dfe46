// Connections, error trapping and the window and monitor descriptions shared by the backend and
// the picker.

#include <algorithm>
#include <fstream>
#include <mutex>

#include <X11/Xatom.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xrandr.h>

#include "base/log.h"
#include "x11_backend.h"
#include "x11_internal.h"

namespace quillo::capture::x11 {

namespace {

// Per thread: how many traps are open and the first error they caught. Xlib calls the handler
// on the thread that reads the reply, which is the thread that made the request since every
// connection is used by one thread at a time.
thread_local int t_trapDepth = 0;
thread_local int t_errorCode = 0;

int onXError(Display* display, XErrorEvent* event) {
    if (t_trapDepth > 0) {
        if (t_errorCode == 0) {
            t_errorCode = event->error_code;
        }
        return 0;
    }
    char text[256] = {0};
    XGetErrorText(display, event->error_code, text, sizeof text);
    logError("app.quillo.capture", std::string("X error: ") + text + " (request " +
                                       std::to_string(event->request_code) + "." +
                                       std::to_string(event->minor_code) + ")");
    return 0;
}

constexpr int kMaxClientDepth = 4;  // frames of reparenting window managers are shallow

}  // namespace

void initialize() {
    static std::once_flag once;
    std::call_once(once, [] {
        XInitThreads();
        XSetErrorHandler(onXError);
    });
}

Result<DisplayPtr> openDisplay(const std::string& name) {
    initialize();
    Display* display = XOpenDisplay(name.empty() ? nullptr : name.c_str());
    if (display == nullptr) {
        return AppError("No display is available. Start Quillo in a desktop session to record.",
                        "XOpenDisplay(" + name + ") failed");
    }
    return DisplayPtr(display);
}

ErrorTrap::ErrorTrap(Display* display) : m_display(display), m_savedCode(t_errorCode) {
    ++t_trapDepth;
    t_errorCode = 0;
}

ErrorTrap::~ErrorTrap() {
    --t_trapDepth;
    t_errorCode = m_savedCode;
}

bool ErrorTrap::failed() {
    XSync(m_display, False);
    return t_errorCode != 0;
}

int ErrorTrap::code() const { return t_errorCode; }

Atoms Atoms::load(Display* display) {
    const char* names[] = {"_NET_CLIENT_LIST",
                           "_NET_CLIENT_LIST_STACKING",
                           "_NET_SUPPORTING_WM_CHECK",
                           "_NET_WM_NAME",
                           "_NET_WM_PID",
                           "_NET_MOVERESIZE_WINDOW",
                           "UTF8_STRING",
                           "WM_STATE"};
    Atom atoms[std::size(names)] = {};
    XInternAtoms(display, const_cast<char**>(names), std::size(names), False, atoms);
    Atoms result;
    result.netClientList = atoms[0];
    result.netClientListStacking = atoms[1];
    result.netSupportingWmCheck = atoms[2];
    result.netWmName = atoms[3];
    result.netWmPid = atoms[4];
    result.netMoveResizeWindow = atoms[5];
    result.utf8String = atoms[6];
    result.wmState = atoms[7];
    return result;
}

namespace {

// Reads a whole property of `type` (AnyPropertyType for any); none when it is missing.
template <class Item>
std::optional<std::vector<Item>> readProperty(Display* display, Window window, Atom property,
                                              Atom type, int format) {
    ErrorTrap trap(display);
    Atom actualType = 0;
    int actualFormat = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char* data = nullptr;
    int status = XGetWindowProperty(display, window, property, 0, 1 << 20, False, type, &actualType,
                                    &actualFormat, &count, &remaining, &data);
    std::optional<std::vector<Item>> result;
    if (status == Success && !trap.failed() && data != nullptr && actualFormat == format) {
        // Xlib hands 32-bit items over as longs, 8-bit ones as chars.
        const Item* items = reinterpret_cast<const Item*>(data);
        result.emplace(items, items + count);
    }
    if (data != nullptr) {
        XFree(data);
    }
    return result;
}

std::optional<std::string> utf8Property(Display* display, Window window, Atom property, Atom type) {
    auto bytes = readProperty<char>(display, window, property, type, 8);
    if (!bytes) {
        return std::nullopt;
    }
    return std::string(bytes->begin(), bytes->end());
}

std::string windowTitle(Display* display, const Atoms& atoms, Window window) {
    if (auto title = utf8Property(display, window, atoms.netWmName, atoms.utf8String)) {
        return *title;
    }
    // WM_NAME may be Latin-1 or compound text: Xlib converts either to UTF-8.
    ErrorTrap trap(display);
    XTextProperty property{};
    std::string title;
    if (XGetWMName(display, window, &property) != 0 && property.value != nullptr) {
        char** list = nullptr;
        int count = 0;
        if (Xutf8TextPropertyToTextList(display, &property, &list, &count) >= Success &&
            count > 0 && list != nullptr) {
            title = list[0];
        }
        if (list != nullptr) {
            XFreeStringList(list);
        }
        XFree(property.value);
    }
    (void)trap.failed();
    return title;
}

std::string processName(int32_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

std::string windowClass(Display* display, Window window) {
    ErrorTrap trap(display);
    XClassHint hint{};
    std::string name;
    if (XGetClassHint(display, window, &hint) != 0) {
        name = hint.res_class != nullptr ? hint.res_class
                                         : (hint.res_name != nullptr ? hint.res_name : "");
        XFree(hint.res_name);
        XFree(hint.res_class);
    }
    (void)trap.failed();
    return name;
}

bool hasNameOrClass(Display* display, const Atoms& atoms, Window window) {
    return hasProperty(display, window, atoms.netWmName) ||
           hasProperty(display, window, XA_WM_NAME) || hasProperty(display, window, XA_WM_CLASS);
}

}  // namespace

std::optional<std::vector<unsigned long>> longProperty(Display* display, Window window,
                                                       Atom property, Atom type) {
    return readProperty<unsigned long>(display, window, property, type, 32);
}

bool hasProperty(Display* display, Window window, Atom property) {
    ErrorTrap trap(display);
    Atom actualType = 0;
    int actualFormat = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char* data = nullptr;
    int status = XGetWindowProperty(display, window, property, 0, 0, False, AnyPropertyType,
                                    &actualType, &actualFormat, &count, &remaining, &data);
    if (data != nullptr) {
        XFree(data);
    }
    return status == Success && !trap.failed() && actualType != 0;
}

bool hasWindowManager(Display* display, const Atoms& atoms) {
    Window root = DefaultRootWindow(display);
    auto check = longProperty(display, root, atoms.netSupportingWmCheck, XA_WINDOW);
    if (!check || check->empty()) {
        return false;
    }
    // A window manager that died leaves the root's property behind; its check window is gone.
    auto again = longProperty(display, (*check)[0], atoms.netSupportingWmCheck, XA_WINDOW);
    return again && !again->empty() && (*again)[0] == (*check)[0];
}

std::optional<Window> clientWindowOf(Display* display, const Atoms& atoms, Window topLevel) {
    std::vector<Window> level{topLevel};
    for (int depth = 0; depth <= kMaxClientDepth && !level.empty(); ++depth) {
        std::vector<Window> next;
        for (Window window : level) {
            if (hasProperty(display, window, atoms.wmState)) {
                return window;
            }
            ErrorTrap trap(display);
            Window root = 0;
            Window parent = 0;
            Window* children = nullptr;
            unsigned int count = 0;
            if (XQueryTree(display, window, &root, &parent, &children, &count) != 0 &&
                children != nullptr) {
                next.insert(next.end(), children, children + count);
            }
            if (children != nullptr) {
                XFree(children);
            }
            (void)trap.failed();
        }
        level = std::move(next);
    }
    return std::nullopt;
}

std::optional<WindowInfo> describeWindow(Display* display, const Atoms& atoms, Window window) {
    XWindowAttributes attributes{};
    int x = 0;
    int y = 0;
    {
        ErrorTrap trap(display);
        Status got = XGetWindowAttributes(display, window, &attributes);
        if (got == 0 || trap.failed() || attributes.map_state != IsViewable) {
            return std::nullopt;
        }
        Window child = 0;
        XTranslateCoordinates(display, window, attributes.root, 0, 0, &x, &y, &child);
        if (trap.failed()) {
            return std::nullopt;
        }
    }
    WindowInfo info;
    info.id = static_cast<uint32_t>(window);
    info.frame = {static_cast<double>(x), static_cast<double>(y),
                  static_cast<double>(attributes.width), static_cast<double>(attributes.height)};
    info.title = windowTitle(display, atoms, window);
    if (auto pid = longProperty(display, window, atoms.netWmPid, XA_CARDINAL);
        pid && !pid->empty()) {
        info.pid = static_cast<int32_t>((*pid)[0]);
    }
    if (info.pid > 0) {
        info.app = processName(info.pid);
    }
    if (info.app.empty()) {
        info.app = windowClass(display, window);
    }
    return info;
}

std::vector<Window> clientWindows(Display* display, const Atoms& atoms) {
    Window root = DefaultRootWindow(display);
    if (hasWindowManager(display, atoms)) {
        // Stacking order is bottom to top; callers want the front first.
        auto list = longProperty(display, root, atoms.netClientListStacking, XA_WINDOW);
        if (list && !list->empty()) {
            return std::vector<Window>(list->rbegin(), list->rend());
        }
        list = longProperty(display, root, atoms.netClientList, XA_WINDOW);
        if (list) {
            return std::vector<Window>(list->begin(), list->end());
        }
    }
    std::vector<Window> found;
    ErrorTrap trap(display);
    Window rootReturn = 0;
    Window parent = 0;
    Window* children = nullptr;
    unsigned int count = 0;
    if (XQueryTree(display, root, &rootReturn, &parent, &children, &count) == 0 ||
        children == nullptr) {
        return found;
    }
    std::vector<Window> topLevels(children, children + count);
    XFree(children);
    for (auto it = topLevels.rbegin(); it != topLevels.rend(); ++it) {
        XWindowAttributes attributes{};
        if (XGetWindowAttributes(display, *it, &attributes) == 0 ||
            attributes.map_state != IsViewable || attributes.c_class != InputOutput ||
            attributes.override_redirect) {
            continue;
        }
        if (auto client = clientWindowOf(display, atoms, *it)) {
            found.push_back(*client);
        } else if (hasNameOrClass(display, atoms, *it)) {
            found.push_back(*it);
        }
    }
    (void)trap.failed();
    return found;
}

std::vector<MonitorInfo> listMonitors(Display* display) {
    std::vector<MonitorInfo> monitors;
    Window root = DefaultRootWindow(display);
    int eventBase = 0;
    int errorBase = 0;
    int major = 0;
    int minor = 0;
    if (XRRQueryExtension(display, &eventBase, &errorBase) &&
        XRRQueryVersion(display, &major, &minor) && (major > 1 || minor >= 5)) {
        int count = 0;
        XRRMonitorInfo* list = XRRGetMonitors(display, root, True, &count);
        for (int i = 0; list != nullptr && i < count; ++i) {
            MonitorInfo monitor;
            monitor.id = static_cast<uint32_t>(monitors.size());
            if (char* name = XGetAtomName(display, list[i].name)) {
                monitor.name = name;
                XFree(name);
            }
            monitor.frame = {static_cast<double>(list[i].x), static_cast<double>(list[i].y),
                             static_cast<double>(list[i].width),
                             static_cast<double>(list[i].height)};
            monitors.push_back(std::move(monitor));
        }
        if (list != nullptr) {
            XRRFreeMonitors(list);
        }
    }
    if (monitors.empty()) {
        int screen = DefaultScreen(display);
        monitors.push_back({0,
                            "screen",
                            {0, 0, static_cast<double>(DisplayWidth(display, screen)),
                             static_cast<double>(DisplayHeight(display, screen))}});
    }
    return monitors;
}

}  // namespace quillo::capture::x11
