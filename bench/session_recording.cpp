#include "session_recording.h"

#include <condition_variable>
#include <csignal>
#include <mutex>
#include <optional>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>

#include "base/clock.h"
#include "base/main_queue.h"
#include "capture/display_backend.h"

namespace quillo::bench {

using Clock = std::chrono::steady_clock;

Usage waitChild(pid_t pid, Clock::time_point started, double timeout) {
    Usage usage;
    rusage used{};
    int status = 0;
    auto deadline = started + std::chrono::duration<double>(timeout);
    pid_t done = 0;
    while ((done = wait4(pid, &status, WNOHANG, &used)) == 0) {
        if (Clock::now() > deadline) {
            std::fprintf(stderr, "bench: pid %d timed out\n", pid);
            kill(pid, SIGKILL);
            done = wait4(pid, &status, 0, &used);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    usage.wallSeconds = std::chrono::duration<double>(Clock::now() - started).count();
    auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
    usage.cpuSeconds = seconds(used.ru_utime) + seconds(used.ru_stime);
    usage.peakKB = used.ru_maxrss;
    usage.exited = done == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    return usage;
}

std::string recordWithSession(const std::filesystem::path& folder, double seconds, double startWait,
                              const std::function<void(capture::CaptureSession&)>& choose,
                              const std::function<void(const std::string&, const Json&)>& onEvent) {
    LoopMainQueue queue;
    MainQueue::install(&queue);
    std::mutex mutex;
    std::condition_variable wake;
    std::optional<double> startTime;  // guarded by mutex
    bool over = false;                // guarded by mutex
    std::string failure;
    {
        capture::CaptureSession session(capture::makeDisplayBackend(), queue);
        auto end = [&](const std::string& message) {
            failure = message;
            {
                std::lock_guard lock(mutex);
                over = true;
            }
            wake.notify_all();
            queue.quit();
        };
        session.setOnEvent([&](const std::string& name, const Json& info) {
            onEvent(name, info);
            if (name == "started") {
                std::lock_guard lock(mutex);
                startTime = info.value("startTime", monotonicSeconds());
            } else if (name == "finished") {
                end("");
            } else if (name == "recordError" || name == "previewError" || name == "cancelled") {
                end(name + ": " + info.value("message", std::string()));
            }
            wake.notify_all();
        });
        queue.post([&] { choose(session); });
        std::thread controller([&] {
            auto giveUp = [&](std::string why) { queue.post([&end, why] { end(why); }); };
            auto deadline = Clock::now() + std::chrono::duration<double>(startWait);
            while (!session.latestFrame()) {
                {
                    std::lock_guard lock(mutex);
                    if (over) {
                        return;
                    }
                }
                if (Clock::now() > deadline) {
                    return giveUp("no frame of the source in time");
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
            queue.post([&] { session.start(folder, false, false, true); });
            std::unique_lock lock(mutex);
            if (!wake.wait_for(lock, std::chrono::duration<double>(startWait),
                               [&] { return over || startTime; })) {
                return giveUp("the recording did not start in time");
            }
            if (over) {
                return;
            }
            double left = *startTime + seconds - monotonicSeconds();
            wake.wait_for(lock, std::chrono::duration<double>(left), [&] { return over; });
            queue.post([&] { session.stop(); });
        });
        queue.run();
        controller.join();
    }
    MainQueue::install(nullptr);
    return failure;
}

}  // namespace quillo::bench
