#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "task_queue.h"

namespace quillo {

// A named thread that runs its tasks in order ("app.quillo.frames", "app.quillo.export", ...).
// The destructor runs the tasks already queued, then joins the thread.
class SerialQueue final : public TaskQueue {
public:
    explicit SerialQueue(std::string name);
    ~SerialQueue() override;
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    void post(Task task) override;
    bool isCurrent() const override;
    const std::string& name() const { return m_name; }

private:
    void loop();

    const std::string m_name;
    // Guarded by m_mutex:
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<Task> m_tasks;
    bool m_stopping = false;

    std::thread m_thread;  // started last, after every member it reads
};

}  // namespace quillo
