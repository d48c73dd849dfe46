#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "agent_devices.h"
#include "base/geometry.h"
#include "base/result.h"

namespace quillo {
class SerialQueue;
}

namespace quillo::capture {

// Input for the shared app from the agent's own pointer and keyboard, so the user's pointer and
// keyboard focus never move. Every call queues its sequence on "app.quillo.input" and returns at
// once; sequences never interleave; flush() waits for them. Points are screen pixels.
class BackgroundInput {
public:
    // The pause between typed characters unless a caller asks for another, in seconds.
    static constexpr double kTypingDelay = 0.012;
    // Pixels one wheel step scrolls in common toolkits; smaller deltas are carried over.
    static constexpr double kPixelsPerWheelStep = 50;

    // Over `devices`, made on the input queue (they belong to that thread).
    explicit BackgroundInput(std::function<Result<std::unique_ptr<AgentDevices>>()> devices);
    ~BackgroundInput();
    BackgroundInput(const BackgroundInput&) = delete;
    BackgroundInput& operator=(const BackgroundInput&) = delete;

    // Gives the agent keyboard's focus to `window` (the user's focus stays where it is).
    void focus(uint32_t window);
    // Moves the agent pointer, gliding over `duration` seconds (at 60 steps a second).
    void move(Point to, double duration = 0);
    void down(Point at, int button = 1);
    void up(Point at, int button = 1);
    // Presses at `from`, moves to `to` in `steps` moves, releases.
    void drag(Point from, Point to, int steps = 20);
    // `count` clicks (2: a double click) with the modifier keysyms held. `accessible`, when
    // given, runs on the input queue first with the point (the accessibility press or focus);
    // when it answers true the element was pressed, and the pointer only moves there.
    void click(Point at, int button = 1, int count = 1, std::vector<uint32_t> modifiers = {},
               std::function<bool(Point)> accessible = nullptr);
    // Pixel deltas (positive: down and right) as wheel steps, the remainder kept for the next.
    void scroll(Point at, double deltaX, double deltaY);
    // A key (X keysym) with modifier keysyms held.
    void key(uint32_t keysym, std::vector<uint32_t> modifiers = {});
    // Types `text` (UTF-8); "\r\n", "\r" and "\n" are one Return each. Pauses of `delay`
    // seconds, jittered between 0.7 and 1.3 times when longer than kTypingDelay.
    void type(const std::string& text, double delay = kTypingDelay);
    // Waits until everything queued so far was posted; the first failure since the last flush.
    Result<void> flush();
    // Where the agent pointer was last moved, in screen pixels (for the AI cursor and the cursor
    // track); none before the first move. Any thread.
    std::optional<Point> position() const;

private:
    void run(std::function<Result<void>(AgentDevices&)> sequence);
    Result<void> moveNow(AgentDevices& devices, Point to);

    std::function<Result<std::unique_ptr<AgentDevices>>()> m_make;
    // Input queue only:
    std::unique_ptr<AgentDevices> m_devices;
    double m_scrollRemainderX = 0;
    double m_scrollRemainderY = 0;
    // Guarded by m_mutex:
    mutable std::mutex m_mutex;
    std::optional<AppError> m_error;
    std::optional<Point> m_position;

    std::unique_ptr<SerialQueue> m_queue;  // last: joined first
};

// The Unicode code points of UTF-8 text (invalid bytes become U+FFFD).
std::u32string decodeUTF8(const std::string& text);

}  // namespace quillo::capture
