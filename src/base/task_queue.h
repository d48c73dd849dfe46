#pragma once

#include <functional>
#include <future>
#include <type_traits>
#include <utility>

namespace quillo {

using Task = std::function<void()>;

// A queue that runs tasks one at a time, in the order they were posted. Implemented by the main
// queue (one per process) and by named serial queues (one thread each).
class TaskQueue {
public:
    virtual ~TaskQueue() = default;

    // Queues `task` to run later on this queue. Safe from any thread. A task that throws is
    // caught and logged by the queue; nothing crosses threads.
    virtual void post(Task task) = 0;

    // True when called from a task running on this queue.
    virtual bool isCurrent() const = 0;

    // Runs `fn` on this queue and waits for its result. Runs it at once when already on the
    // queue, so a task may invoke its own queue without deadlocking.
    template <class F>
    std::invoke_result_t<F> invoke(F&& fn) {
        using R = std::invoke_result_t<F>;
        if (isCurrent()) {
            return fn();
        }
        std::packaged_task<R()> task(std::forward<F>(fn));
        std::future<R> result = task.get_future();
        post([&task] { task(); });
        return result.get();
    }
};

}  // namespace quillo
