#include "command_line.h"

#include <algorithm>
#include <cmath>
#include <pthread.h>
#include <unistd.h>

namespace quillo::app {

ProgressBar::ProgressBar(std::ostream& err, std::string label)
    : m_err(err), m_label(std::move(label)), m_enabled(isatty(STDERR_FILENO)) {}

void ProgressBar::update(double fraction) {
    int percent = static_cast<int>(std::floor(std::clamp(fraction, 0.0, 1.0) * 100));
    if (!m_enabled || percent == m_last) {
        return;
    }
    m_last = percent;
    constexpr int kWidth = 30;
    int filled = percent * kWidth / 100;
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kWidth - filled), ' ');
    m_err << "\r" << m_label << " [" << bar << "] " << percent << " %" << std::flush;
}

void ProgressBar::end() {
    if (m_enabled && m_last >= 0) {
        m_err << "\r\033[K" << std::flush;
    }
}

InterruptWatch::InterruptWatch(CancelToken token) {
    sigemptyset(&m_signals);
    sigaddset(&m_signals, SIGINT);
    sigaddset(&m_signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &m_signals, &m_previous);
    m_waiter = std::thread([this, token] {
        int received = 0;
        sigwait(&m_signals, &received);
        if (!m_done) {
            token.cancel();
        }
    });
}

InterruptWatch::~InterruptWatch() {
    m_done = true;
    pthread_kill(m_waiter.native_handle(), SIGTERM);
    m_waiter.join();
    pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
}

std::optional<std::string> optionValue(const std::vector<std::string>& args, size_t& i) {
    if (i + 1 >= args.size()) {
        return std::nullopt;
    }
    return args[++i];
}

}  // namespace quillo::app
