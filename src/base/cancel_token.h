#pragma once

#include <atomic>
#include <memory>

namespace quillo {

// Shared cancellation flag for long work: the owner keeps one copy and calls cancel(), the
// worker checks isCancelled() in its loops. Copies share the flag; safe from any thread.
class CancelToken {
public:
    CancelToken() : m_flag(std::make_shared<std::atomic<bool>>(false)) {}
    void cancel() const { m_flag->store(true, std::memory_order_relaxed); }
    bool isCancelled() const { return m_flag->load(std::memory_order_relaxed); }

private:
    std::shared_ptr<std::atomic<bool>> m_flag;
};

}  // namespace quillo
