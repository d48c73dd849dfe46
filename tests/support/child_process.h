#pragma once

#include <functional>
#include <sys/types.h>

namespace quillo::testing {

// Runs `body` in a forked child process, which exits with 0 when `body` returns. The parent
// gets the child's pid.
pid_t forkChild(const std::function<void()>& body);

// Waits for `pid`; returns the signal that ended it, or 0 when it exited normally.
int waitForSignal(pid_t pid);

}  // namespace quillo::testing
