#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "base/result.h"

namespace quillo::capture {

// A key with its modifiers, as the desktop sees it: `keysym` is an X keysym ('2', 'r', Escape).
struct KeyChord {
    uint32_t keysym = 0;
    bool ctrl = false;
    bool shift = false;
    bool alt = false;
    bool super = false;
};

// Keys taken for the whole desktop: a press of a grabbed chord reaches Quillo whatever window has
// the focus, and no other app. Lives on a thread of its own; `pressed` runs there.
class GlobalKeys {
public:
    virtual ~GlobalKeys() = default;

    // Takes `chord` (whatever the state of NumLock and CapsLock); an id for release(). Fails when
    // another app holds the chord or the key is not on the keyboard.
    virtual Result<int> grab(const KeyChord& chord, std::function<void()> pressed) = 0;
    // Gives a chord back; unknown ids are ignored.
    virtual void release(int id) = 0;
};

}  // namespace quillo::capture
