#include "repeating_timer.h"

#include <chrono>

namespace quillo {

struct RepeatingTimer::State {
    std::function<void()> tick;
    std::atomic<bool> stopped{false};
    std::atomic<bool> queued{false};
    std::mutex mutex;
    std::condition_variable wake;
};

RepeatingTimer::RepeatingTimer(TaskQueue& queue, double interval, std::function<void()> tick)
    : m_state(std::make_shared<State>()) {
    m_state->tick = std::move(tick);
    auto period = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
        std::chrono::duration<double>(interval));
    m_thread = std::thread([state = m_state, &queue, period] {
        auto next = std::chrono::steady_clock::now() + period;
        std::unique_lock lock(state->mutex);
        while (!state->stopped) {
            if (state->wake.wait_until(lock, next, [&] { return state->stopped.load(); })) {
                break;
            }
            // Deadlines are absolute, so ticks keep their rate; missed ones are skipped.
            auto now = std::chrono::steady_clock::now();
            next += period;
            if (next < now) {
                next = now + period;
            }
            if (!state->queued.exchange(true)) {
                queue.post([state] {
                    state->queued = false;
                    if (!state->stopped) {
                        state->tick();
                    }
                });
            }
        }
    });
}

RepeatingTimer::~RepeatingTimer() { stop(); }

void RepeatingTimer::stop() {
    {
        std::lock_guard lock(m_state->mutex);
        m_state->stopped = true;
    }
    m_state->wake.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

}  // namespace quillo
