#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "base/geometry.h"
#include "base/result.h"

namespace quillo::capture {

// The agent's own pointer and keyboard: a second master pointer/keyboard pair ("Quillo agent")
// in the X server, driven through its XTEST slave devices, so the user's pointer and keyboard
// focus never move. Used on one thread ("app.quillo.input"); it holds its own connection.
class AgentDevices {
public:
    virtual ~AgentDevices() = default;  // removes the devices from the server

    // Moves the agent pointer to `screen` (screen pixels).
    virtual Result<void> move(Point screen) = 0;
    // 1 left, 2 middle, 3 right, 4-7 wheel.
    virtual Result<void> button(int button, bool down) = 0;
    // An X keysym. A keysym missing from the keyboard map is lent an empty keycode of the
    // user's map (at most 16 at once, the oldest reused first); the destructor empties them.
    virtual Result<void> key(uint32_t keysym, bool down) = 0;
    // Presses and releases the key for any Unicode character, with Shift when the map needs it.
    // '\n' and '\r' type Return, '\t' Tab; other control characters fail.
    virtual Result<void> typeCharacter(char32_t character) = 0;
    // Gives the agent keyboard's focus (not the user's) to `window`.
    virtual Result<void> focus(uint32_t window) = 0;
    // The agent pointer now, in screen pixels; none when it can't be read.
    virtual std::optional<Point> position() = 0;
    // Waits until the server has handled every request sent so far.
    virtual void flush() = 0;
};

// Creates the pair on the display of DISPLAY (removing pairs named "Quillo agent" left by a
// crashed Quillo first); fails with a clear AppError when XInput 2.2 or XTEST is missing.
Result<std::unique_ptr<AgentDevices>> makeAgentDevices();

// Removes every "Quillo agent" master pair left in the server (used at start-up); returns how
// many. 0 without a display.
int removeStaleAgentDevices();

}  // namespace quillo::capture
