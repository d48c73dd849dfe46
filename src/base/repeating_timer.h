#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "task_queue.h"

namespace quillo {

// Runs `tick` on `queue` every `interval` seconds until stopped or destroyed. A tick that is
// still queued when the next one is due is not queued twice, so a busy queue is never flooded.
// Start and stop from the queue's own thread; the tick never runs after stop() returned there.
class RepeatingTimer {
public:
    RepeatingTimer(TaskQueue& queue, double interval, std::function<void()> tick);
    ~RepeatingTimer();
    RepeatingTimer(const RepeatingTimer&) = delete;
    RepeatingTimer& operator=(const RepeatingTimer&) = delete;

    void stop();

private:
    struct State;
    std::shared_ptr<State> m_state;
    std::thread m_thread;
};

}  // namespace quillo
