// The agent's master pointer/keyboard pair: created with XInput2's hierarchy requests, driven
// through its XTEST slaves, removed again on destruction. Keys are looked up in the core keyboard
// map because that is the map toolkits translate every keyboard's keycodes with.

#include <algorithm>
#include <cmath>
#include <deque>
#include <set>
#include <string>
#include <vector>

#include <X11/XKBlib.h>
#include <X11/cursorfont.h>
#include <X11/extensions/XInput.h>
#include <X11/extensions/XInput2.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include "base/log.h"
#include "capture/agent_devices.h"
#include "x11_internal.h"

namespace quillo::capture {

namespace {

using x11::DisplayPtr;
using x11::ErrorTrap;

constexpr const char* kLogger = "app.quillo.input";
constexpr const char* kMasterName = "Quillo agent";
constexpr const char* kPointerName = "Quillo agent pointer";
constexpr const char* kXTestPointerName = "Quillo agent XTEST pointer";
constexpr const char* kXTestKeyboardName = "Quillo agent XTEST keyboard";
constexpr int kMaxButton = 7;
constexpr size_t kMaxSpares = 16;  // keycodes of the map the agent may borrow at once

struct DeviceCloser {
    Display* display = nullptr;
    void operator()(XDevice* device) const { XCloseDevice(display, device); }
};
using DevicePtr = std::unique_ptr<XDevice, DeviceCloser>;

AppError unsupported(const std::string& why) {
    return AppError("Quillo can't work in apps on this display: the X server lacks " + why + ".",
                    why);
}

// Announces XInput 2.2 on the connection (needed before any XI2 request).
Result<void> checkExtensions(Display* display) {
    int opcode = 0;
    int event = 0;
    int error = 0;
    if (!XQueryExtension(display, "XInputExtension", &opcode, &event, &error)) {
        return unsupported("XInput");
    }
    int major = 2;
    int minor = 2;
    if (XIQueryVersion(display, &major, &minor) != Success || major * 100 + minor < 202) {
        return unsupported("XInput 2.2");
    }
    int xtestMajor = 0;
    int xtestMinor = 0;
    if (!XTestQueryExtension(display, &event, &error, &xtestMajor, &xtestMinor)) {
        return unsupported("XTEST");
    }
    return {};
}

// The ids of every device with `name` and `use` (XIMasterPointer, XISlavePointer, ...).
std::vector<int> devicesNamed(Display* display, const std::string& name, int use,
                              int attachment = -1) {
    std::vector<int> ids;
    int count = 0;
    XIDeviceInfo* devices = XIQueryDevice(display, XIAllDevices, &count);
    for (int i = 0; devices != nullptr && i < count; ++i) {
        if (devices[i].use == use && devices[i].name != nullptr && name == devices[i].name &&
            (attachment < 0 || devices[i].attachment == attachment)) {
            ids.push_back(devices[i].deviceid);
        }
    }
    if (devices != nullptr) {
        XIFreeDeviceInfo(devices);
    }
    return ids;
}

// Removes the master pair whose pointer is `pointerId`; its XTEST slaves go with it and any
// other slave is left floating.
bool removeMaster(Display* display, int pointerId) {
    ErrorTrap trap(display);
    XIRemoveMasterInfo remove{XIRemoveMaster, pointerId, XIFloating, 0, 0};
    XIChangeHierarchy(display, reinterpret_cast<XIAnyHierarchyChangeInfo*>(&remove), 1);
    return !trap.failed();
}

int removeStale(Display* display) {
    int removed = 0;
    for (int id : devicesNamed(display, kPointerName, XIMasterPointer)) {
        removed += removeMaster(display, id) ? 1 : 0;
    }
    return removed;
}

// A snapshot of the core keyboard map: keysyms per keycode from `minKeycode` on.
struct KeyMap {
    int minKeycode = 0;
    int maxKeycode = 0;
    int perKeycode = 0;
    std::vector<KeySym> keysyms;

    static KeyMap read(Display* display) {
        KeyMap map;
        XDisplayKeycodes(display, &map.minKeycode, &map.maxKeycode);
        int count = map.maxKeycode - map.minKeycode + 1;
        KeySym* raw = XGetKeyboardMapping(display, static_cast<KeyCode>(map.minKeycode), count,
                                          &map.perKeycode);
        if (raw != nullptr) {
            map.keysyms.assign(raw, raw + static_cast<size_t>(count) * map.perKeycode);
            XFree(raw);
        }
        return map;
    }

    KeySym at(int keycode, int column) const {
        if (column >= perKeycode) {
            return NoSymbol;
        }
        return keysyms[static_cast<size_t>(keycode - minKeycode) * perKeycode + column];
    }

    // The keycode and level (0 plain, 1 shifted) of the first group that has `keysym`.
    std::optional<std::pair<int, int>> find(KeySym keysym) const {
        for (int level = 0; level < 2; ++level) {
            for (int keycode = minKeycode; perKeycode > 0 && keycode <= maxKeycode; ++keycode) {
                if (at(keycode, level) == keysym) {
                    return std::pair{keycode, level};
                }
            }
        }
        return std::nullopt;
    }

    // A keycode without any keysym, searched from the top where keyboards leave gaps.
    std::optional<int> spare() const {
        for (int keycode = maxKeycode; perKeycode > 0 && keycode >= minKeycode; --keycode) {
            bool empty = true;
            for (int column = 0; column < perKeycode && empty; ++column) {
                empty = at(keycode, column) == NoSymbol;
            }
            if (empty) {
                return keycode;
            }
        }
        return std::nullopt;
    }
};

std::optional<KeySym> keysymForCharacter(char32_t character) {
    switch (character) {
        case U'\n':
        case U'\r':
            return XK_Return;
        case U'\t':
            return XK_Tab;
        default:
            break;
    }
    if (character < 0x20 || (character >= 0x7f && character < 0xa0) || character > 0x10ffff ||
        (character >= 0xd800 && character <= 0xdfff)) {
        return std::nullopt;
    }
    // Latin-1 keysyms equal their code points; everything else has a Unicode keysym.
    return character < 0x100 ? KeySym{character} : KeySym{0x01000000u | character};
}

class X11AgentDevices final : public AgentDevices {
public:
    X11AgentDevices(DisplayPtr display, int pointerId, int keyboardId, DevicePtr xtestPointer,
                    DevicePtr xtestKeyboard)
        : m_display(std::move(display)),
          m_pointerId(pointerId),
          m_keyboardId(keyboardId),
          m_xtestPointer(std::move(xtestPointer)),
          m_xtestKeyboard(std::move(xtestKeyboard)) {}

    ~X11AgentDevices() override {
        Display* display = m_display.get();
        ErrorTrap trap(display);
        // Keys left down would stay down in the apps that saw them press.
        for (int keycode : m_down) {
            (void)fakeKey(keycode, false);
        }
        XSync(display, False);
        for (int keycode : m_spares) {
            (void)setKeysym(keycode, NoSymbol);
        }
        // Closing fails harmlessly when a stale-device sweep removed the pair already; the id may
        // even have been reused, hence the name check.
        m_xtestPointer.reset();
        m_xtestKeyboard.reset();
        if (isOurs(m_pointerId) && !removeMaster(display, m_pointerId)) {
            logError(kLogger, "could not remove the agent's input devices");
        }
        (void)trap.failed();
    }

    Result<void> move(Point screen) override {
        int axes[2] = {static_cast<int>(std::lround(screen.x)),
                       static_cast<int>(std::lround(screen.y))};
        ErrorTrap trap(m_display.get());
        XTestFakeDeviceMotionEvent(m_display.get(), m_xtestPointer.get(), False, 0, axes, 2,
                                   CurrentTime);
        return checked(trap, "move the agent's pointer");
    }

    Result<void> button(int button, bool down) override {
        if (button < 1 || button > kMaxButton) {
            return AppError("There is no mouse button " + std::to_string(button) + ".");
        }
        ErrorTrap trap(m_display.get());
        XTestFakeDeviceButtonEvent(m_display.get(), m_xtestPointer.get(),
                                   static_cast<unsigned>(button), down ? True : False, nullptr, 0,
                                   CurrentTime);
        return checked(trap, "press a mouse button");
    }

    Result<void> key(uint32_t keysym, bool down) override {
        KeyMap map = KeyMap::read(m_display.get());
        int keycode = 0;
        if (auto found = map.find(keysym)) {
            keycode = found->first;
        } else if (!down) {
            return {};  // never pressed: nothing to release
        } else if (auto spare = spareKeycode(map)) {
            if (auto set = setKeysym(*spare, keysym); !set) {
                return set;
            }
            keycode = *spare;
        } else {
            return AppError("The keyboard map has no room for another key.",
                            "no free keycode for keysym " + std::to_string(keysym));
        }
        if (down) {
            m_down.insert(keycode);
        } else {
            m_down.erase(keycode);
        }
        return fakeKey(keycode, down);
    }

    Result<void> typeCharacter(char32_t character) override {
        auto keysym = keysymForCharacter(character);
        if (!keysym) {
            return AppError("That character can't be typed.",
                            "code point " + std::to_string(static_cast<uint32_t>(character)));
        }
        KeyMap map = KeyMap::read(m_display.get());
        auto found = map.find(*keysym);
        bool shifted = found && found->second == 1;
        auto shift = map.find(XK_Shift_L);
        if (shifted && shift) {
            if (auto pressed = fakeKey(shift->first, true); !pressed) {
                return pressed;
            }
        }
        auto pressed = key(static_cast<uint32_t>(*keysym), true);
        auto released = key(static_cast<uint32_t>(*keysym), false);
        if (shifted && shift) {
            (void)fakeKey(shift->first, false);
        }
        return !pressed ? pressed : released;
    }

    Result<void> focus(uint32_t window) override {
        ErrorTrap trap(m_display.get());
        XISetFocus(m_display.get(), m_keyboardId, window, CurrentTime);
        if (trap.failed()) {
            return AppError("That window can't take the agent's typing: it is gone.",
                            "XISetFocus failed with X error " + std::to_string(trap.code()));
        }
        return {};
    }

    std::optional<Point> position() override {
        Display* display = m_display.get();
        ErrorTrap trap(display);
        Window root = 0;
        Window child = 0;
        double rootX = 0;
        double rootY = 0;
        double windowX = 0;
        double windowY = 0;
        XIButtonState buttons{};
        XIModifierState modifiers{};
        XIGroupState group{};
        Bool same =
            XIQueryPointer(display, m_pointerId, DefaultRootWindow(display), &root, &child, &rootX,
                           &rootY, &windowX, &windowY, &buttons, &modifiers, &group);
        if (buttons.mask != nullptr) {
            XFree(buttons.mask);
        }
        if (trap.failed() || !same) {
            return std::nullopt;
        }
        return Point{rootX, rootY};
    }

    void flush() override { XSync(m_display.get(), False); }

private:
    Result<void> checked(ErrorTrap& trap, const std::string& what) {
        if (trap.failed()) {
            return AppError("Quillo could not " + what + ".",
                            "X error " + std::to_string(trap.code()));
        }
        return {};
    }

    Result<void> fakeKey(int keycode, bool down) {
        ErrorTrap trap(m_display.get());
        XTestFakeDeviceKeyEvent(m_display.get(), m_xtestKeyboard.get(),
                                static_cast<unsigned>(keycode), down ? True : False, nullptr, 0,
                                CurrentTime);
        return checked(trap, "press a key");
    }

    // Puts `keysym` on both levels of `keycode` in the core map, so Shift doesn't matter.
    Result<void> setKeysym(int keycode, KeySym keysym) {
        KeySym both[2] = {keysym, keysym};
        ErrorTrap trap(m_display.get());
        XChangeKeyboardMapping(m_display.get(), keycode, 2, both, 1);
        return checked(trap, "change the keyboard map");
    }

    // A keycode for a keysym missing from the map: an empty one while fewer than kMaxSpares are
    // ours, else the one of ours that got its keysym the longest ago and isn't held down.
    // Toolkits fetch a changed map only when they next translate a key, possibly after the
    // agent has moved on, so a keysym stays on its keycode for as long as possible; the
    // destructor empties them all again.
    std::optional<int> spareKeycode(const KeyMap& map) {
        if (m_spares.size() < kMaxSpares) {
            if (auto empty = map.spare()) {
                m_spares.push_back(*empty);
                return empty;
            }
        }
        for (auto it = m_spares.begin(); it != m_spares.end(); ++it) {
            if (!m_down.contains(*it)) {
                int keycode = *it;
                m_spares.erase(it);
                m_spares.push_back(keycode);
                return keycode;
            }
        }
        return std::nullopt;
    }

    bool isOurs(int pointerId) {
        auto ids = devicesNamed(m_display.get(), kPointerName, XIMasterPointer);
        return std::find(ids.begin(), ids.end(), pointerId) != ids.end();
    }

    DisplayPtr m_display;
    int m_pointerId;
    int m_keyboardId;
    DevicePtr m_xtestPointer;
    DevicePtr m_xtestKeyboard;
    // Keycodes given a keysym of ours, oldest first; all of them empty in the map before.
    std::deque<int> m_spares;
    std::set<int> m_down;  // keycodes pressed and not yet released
};

}  // namespace

namespace {

// The agent pointer looks its own on screen: a violet arrow with a white edge wherever the app
// under it sets no cursor of its own (text fields still show their I-beam).
void showAgentCursor(Display* display, int pointerId) {
    ErrorTrap trap(display);
    Cursor arrow = XCreateFontCursor(display, XC_left_ptr);
    XColor violet{};
    violet.red = 0x7d00;
    violet.green = 0x5c00;
    violet.blue = 0xfa00;
    violet.flags = DoRed | DoGreen | DoBlue;
    XColor white{};
    white.red = white.green = white.blue = 0xffff;
    white.flags = DoRed | DoGreen | DoBlue;
    XRecolorCursor(display, arrow, &violet, &white);
    XIDefineCursor(display, pointerId, DefaultRootWindow(display), arrow);
    XFreeCursor(display, arrow);  // the server keeps it while it is defined
    if (trap.failed()) {
        logInfo(kLogger, "the agent pointer keeps the default cursor (no cursor font)");
    }
}

}  // namespace

Result<std::unique_ptr<AgentDevices>> makeAgentDevices() {
    auto opened = x11::openDisplay("");
    if (!opened) {
        return opened.error();
    }
    DisplayPtr display = std::move(opened.value());
    Display* raw = display.get();
    if (auto supported = checkExtensions(raw); !supported) {
        return supported.error();
    }
    if (int stale = removeStale(raw); stale > 0) {
        logInfo(kLogger, "removed " + std::to_string(stale) + " agent device pair(s) left behind");
    }
    {
        ErrorTrap trap(raw);
        XIAddMasterInfo add{XIAddMaster, const_cast<char*>(kMasterName), True, True};
        XIChangeHierarchy(raw, reinterpret_cast<XIAnyHierarchyChangeInfo*>(&add), 1);
        if (trap.failed()) {
            return AppError("Quillo could not add its own pointer and keyboard to the display.",
                            "XIChangeHierarchy(XIAddMaster) failed with X error " +
                                std::to_string(trap.code()));
        }
    }
    auto pointers = devicesNamed(raw, kPointerName, XIMasterPointer);
    int keyboardId = -1;
    int count = 0;
    XIDeviceInfo* info = pointers.size() == 1 ? XIQueryDevice(raw, pointers[0], &count) : nullptr;
    if (info != nullptr && count == 1) {
        keyboardId = info[0].attachment;  // a master's attachment is its paired master
    }
    if (info != nullptr) {
        XIFreeDeviceInfo(info);
    }
    auto xtestPointers = keyboardId < 0
                             ? std::vector<int>{}
                             : devicesNamed(raw, kXTestPointerName, XISlavePointer, pointers[0]);
    auto xtestKeyboards = keyboardId < 0
                              ? std::vector<int>{}
                              : devicesNamed(raw, kXTestKeyboardName, XISlaveKeyboard, keyboardId);
    if (xtestPointers.size() != 1 || xtestKeyboards.size() != 1) {
        for (int id : pointers) {
            removeMaster(raw, id);
        }
        return AppError("Quillo could not add its own pointer and keyboard to the display.",
                        "the new master or its XTEST devices are missing");
    }
    ErrorTrap trap(raw);
    DevicePtr xtestPointer(XOpenDevice(raw, static_cast<XID>(xtestPointers[0])), {raw});
    DevicePtr xtestKeyboard(XOpenDevice(raw, static_cast<XID>(xtestKeyboards[0])), {raw});
    if (trap.failed() || !xtestPointer || !xtestKeyboard) {
        xtestPointer.reset();
        xtestKeyboard.reset();
        removeMaster(raw, pointers[0]);
        return AppError("Quillo could not open its own pointer and keyboard.",
                        "XOpenDevice on the XTEST slaves failed");
    }
    showAgentCursor(raw, pointers[0]);
    return std::unique_ptr<AgentDevices>(
        std::make_unique<X11AgentDevices>(std::move(display), pointers[0], keyboardId,
                                          std::move(xtestPointer), std::move(xtestKeyboard)));
}

int removeStaleAgentDevices() {
    auto display = x11::openDisplay("");
    if (!display || !checkExtensions(display->get())) {
        return 0;
    }
    int removed = removeStale(display->get());
    XSync(display->get(), False);
    return removed;
}

}  // namespace quillo::capture
