#include "child_process.h"

#include <sys/wait.h>
#include <unistd.h>

namespace quillo::testing {

pid_t forkChild(const std::function<void()>& body) {
    pid_t pid = ::fork();
    if (pid == 0) {
        body();
        ::_exit(0);  // skip atexit handlers and gtest's own teardown in the child
    }
    return pid;
}

int waitForSignal(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
    }
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

}  // namespace quillo::testing
