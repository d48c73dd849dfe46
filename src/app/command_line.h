#pragma once

#include <atomic>
#include <optional>
#include <ostream>
#include <signal.h>
#include <string>
#include <thread>
#include <vector>

#include "base/cancel_token.h"

namespace quillo::app {

// Draws "{label} [#####     ] 42 %" on one terminal line of `err`; nothing when it is not a
// terminal.
class ProgressBar {
public:
    ProgressBar(std::ostream& err, std::string label);
    void update(double fraction);
    // Clears the line.
    void end();

private:
    std::ostream& m_err;
    std::string m_label;
    bool m_enabled;
    int m_last = -1;
};

// Cancels `token` on SIGINT or SIGTERM while alive.
class InterruptWatch {
public:
    explicit InterruptWatch(CancelToken token);
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

private:
    sigset_t m_signals;
    sigset_t m_previous;
    std::atomic<bool> m_done{false};
    std::thread m_waiter;
};

// The value after option `args[i]` (advancing i), or none when it is the last argument.
std::optional<std::string> optionValue(const std::vector<std::string>& args, size_t& i);

}  // namespace quillo::app
