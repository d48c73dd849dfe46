#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <sys/types.h>

#include "capture/capture_session.h"

namespace quillo::bench {

struct Usage {
    double cpuSeconds = 0;   // user + system
    double wallSeconds = 0;  // from start to exit
    long peakKB = 0;         // ru_maxrss
    bool exited = false;     // with status 0
};

// Waits for the child `pid` up to `timeout` seconds after `started` (then kills it) and takes
// its resource usage.
Usage waitChild(pid_t pid, std::chrono::steady_clock::time_point started, double timeout);

// A recording child's side: the capture session exactly as the app drives it, on a plain main
// loop. `choose` picks the source on the main queue; once the session has a frame of it, the
// recording starts, and it stops `seconds` after its first frame. `onEvent` hears every session
// event. Returns what went wrong, or empty.
std::string recordWithSession(const std::filesystem::path& folder, double seconds, double startWait,
                              const std::function<void(capture::CaptureSession&)>& choose,
                              const std::function<void(const std::string&, const Json&)>& onEvent);

}  // namespace quillo::bench
