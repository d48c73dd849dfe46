#include "main_queue.h"

#include <atomic>

#include "assert.h"
#include "log.h"

namespace quillo {

namespace {
std::atomic<MainQueue*> g_mainQueue{nullptr};
}

MainQueue& MainQueue::shared() {
    MainQueue* queue = g_mainQueue.load();
    QUILLO_ASSERT(queue != nullptr);
    return *queue;
}

void MainQueue::install(MainQueue* queue) { g_mainQueue.store(queue); }

LoopMainQueue::LoopMainQueue() : m_owner(std::this_thread::get_id()) {}

void LoopMainQueue::post(Task task) {
    {
        std::lock_guard lock(m_mutex);
        m_tasks.push_back(std::move(task));
    }
    m_wake.notify_one();
}

bool LoopMainQueue::isCurrent() const { return std::this_thread::get_id() == m_owner; }

void LoopMainQueue::run() {
    m_owner = std::this_thread::get_id();
    for (;;) {
        Task task;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait(lock, [this] { return m_quit || !m_tasks.empty(); });
            if (m_quit) {
                m_quit = false;
                return;
            }
            task = std::move(m_tasks.front());
            m_tasks.pop_front();
        }
        runOne(task);
    }
}

void LoopMainQueue::quit() {
    {
        std::lock_guard lock(m_mutex);
        m_quit = true;
    }
    m_wake.notify_all();
}

int LoopMainQueue::runPending() {
    m_owner = std::this_thread::get_id();
    int count = 0;
    for (;;) {
        Task task;
        {
            std::lock_guard lock(m_mutex);
            if (m_tasks.empty()) {
                return count;
            }
            task = std::move(m_tasks.front());
            m_tasks.pop_front();
        }
        runOne(task);
        ++count;
    }
}

void LoopMainQueue::runOne(Task& task) {
    try {
        task();
    } catch (const std::exception& e) {
        logError("app.quillo.main", std::string("a task failed: ") + e.what());
    } catch (...) {
        logError("app.quillo.main", "a task failed with an unknown exception");
    }
}

}  // namespace quillo
