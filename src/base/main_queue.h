#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "task_queue.h"

namespace quillo {

// The process's main queue: models live here. The studio runs it inside Qt's event loop; headless
// mode and tests use LoopMainQueue, a plain loop with the same interface.
class MainQueue : public TaskQueue {
public:
    // The installed main queue. The entry point installs one before anything posts to it.
    static MainQueue& shared();
    static void install(MainQueue* queue);
};

// A plain blocking loop. `run()` executes tasks on the calling thread (which becomes the main
// thread) until `quit()`; `runPending()` drains what is queued now, for tests.
class LoopMainQueue final : public MainQueue {
public:
    LoopMainQueue();

    void post(Task task) override;
    bool isCurrent() const override;

    // Runs tasks until quit() is called (from a task or another thread).
    void run();
    void quit();
    // Runs the tasks queued at the time of the call and those they post, then returns.
    // Returns the number of tasks run.
    int runPending();

private:
    void runOne(Task& task);

    std::thread::id m_owner;
    // Guarded by m_mutex:
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Task> m_tasks;
    bool m_quit = false;
};

}  // namespace quillo
