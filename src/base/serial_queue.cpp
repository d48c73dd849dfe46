#include "serial_queue.h"

#include <pthread.h>

#include "log.h"

namespace quillo {

SerialQueue::SerialQueue(std::string name) : m_name(std::move(name)) {
    m_thread = std::thread([this] { loop(); });
}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void SerialQueue::post(Task task) {
    {
        std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
    }
    m_wake.notify_one();
}

bool SerialQueue::isCurrent() const { return std::this_thread::get_id() == m_thread.get_id(); }

void SerialQueue::loop() {
    // Thread names are limited to 15 characters; the end of "app.quillo.frames" tells them apart.
    std::string shortName = m_name.size() > 15 ? m_name.substr(m_name.size() - 15) : m_name;
    pthread_setname_np(pthread_self(), shortName.c_str());
    for (;;) {
        Task task;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_stopping || !m_tasks.empty(); });
            if (m_tasks.empty()) {
                return;  // stopping, and everything queued has run
            }
            task = std::move(m_tasks.front());
            m_tasks.pop_front();
        }
        try {
            task();
        } catch (const std::exception& e) {
            logError(m_name, std::string("a task failed: ") + e.what());
        } catch (...) {
            logError(m_name, "a task failed with an unknown exception");
        }
    }
}

}  // namespace quillo
