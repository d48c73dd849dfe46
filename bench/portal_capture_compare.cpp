// Screen recording on a headless Wayland desktop (sway, 1920×1080) for a minute (FRAMES_SECONDS
// to shorten) while a terminal scrolls steadily: Quillo's capture session through the ScreenCast
// portal against GStreamer's `pipewiresrc ! videoconvert ! x264enc speed-preset=ultrafast` on a
// portal stream of its own, one after the other on the same output. Each recorder runs in a
// child process; CPU time and peak memory come from wait4. Quillo's log says how many pictures
// the compositor delivered and how many reached the movie. Prints "name: figure" lines and one
// verdict line per target.

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <regex>
#include <signal.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "base/clock.h"
#include "base/main_queue.h"
#include "capture/capture_session.h"
#include "capture/display_backend.h"
#include "capture/portal/screencast_portal.h"
#include "command_output.h"
#include "session_recording.h"
#include "support/wayland_session.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace quillo;

namespace {

// The child's side: the capture session as the app drives it: the portal's choice, then a
// recording of `seconds`.
[[noreturn]] void recordWithQuillo(const fs::path& folder, double seconds) {
    std::string failure = bench::recordWithSession(
        folder, seconds, 30, [](capture::CaptureSession& session) { session.pick(false, 20); },
        [](const std::string&, const Json&) {});
    if (!failure.empty()) {
        std::fprintf(stderr, "portal_capture_compare: %s\n", failure.c_str());
    }
    _exit(failure.empty() ? 0 : 1);
}

// GStreamer on a portal stream the parent opened: its PipeWire remote is inherited.
pid_t startGStreamer(int fd, uint32_t node, const fs::path& movie, const fs::path& log) {
    pid_t pid = fork();
    if (pid == 0) {
        int kept = dup2(fd, 3);
        fcntl(kept, F_SETFD, 0);
        int out = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(out, 1);
        dup2(out, 2);
        std::string path = "path=" + std::to_string(node);
        std::string location = "location=" + movie.string();
        execlp("gst-launch-1.0", "gst-launch-1.0", "-e", "pipewiresrc", "fd=3", path.c_str(),
               "always-copy=true", "!", "videoconvert", "!", "x264enc", "speed-preset=ultrafast",
               "!", "mp4mux", "!", "filesink", location.c_str(), nullptr);
        _exit(127);
    }
    return pid;
}

int countFrames(const fs::path& movie) {
    std::string text = bench::output(
        "ffprobe -v error -select_streams v:0 -count_frames -show_entries stream=nb_read_frames "
        "-of csv=p=0 '" +
        movie.string() + "'");
    return std::atoi(text.c_str());
}

}  // namespace

int main() {
    double seconds = 60;
    if (const char* shorter = std::getenv("FRAMES_SECONDS")) {
        seconds = std::max(5.0, std::atof(shorter));
    }
    std::string why;
    auto session = testing::WaylandSession::start({}, why);
    if (!session) {
        std::printf("portal capture: skipped (%s)\n", why.c_str());
        return 0;
    }
    fs::path folder =
        fs::temp_directory_path() / ("quillo-portal-bench-" + std::to_string(getpid()));
    fs::create_directories(folder / "quillo");
    setenv("QUILLO_SUPPORT", (folder / "support").c_str(), 1);
    // A terminal as large as the output, scrolling a line every 20 ms.
    session->spawn({"foot", "--app-id", "scroller", "-e", "sh", "-c",
                    "i=0; while :; do i=$((i+1)); echo \"line $i of a steadily scrolling "
                    "terminal $(date +%T.%N)\"; sleep 0.02; done"});
    session->waitForWindow("scroller");

    std::fflush(nullptr);
    pid_t quillo = fork();
    if (quillo == 0) {
        int log = open((folder / "quillo.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(log, 2);
        recordWithQuillo(folder / "quillo", seconds);
    }
    bench::Usage ours = bench::waitChild(quillo, Clock::now(), seconds + 60);
    fs::path movie = folder / "quillo" / "recording.mp4";
    int ourFrames = countFrames(movie);
    long delivered = 0, taken = 0;
    std::ifstream log(folder / "quillo.log");
    std::regex stats(R"(screen cast pictures: (\d+) delivered, (\d+) taken)");
    for (std::string line; std::getline(log, line);) {
        std::smatch match;
        if (std::regex_search(line, match, stats)) {
            delivered = std::stol(match[1]);
            taken = std::stol(match[2]);
        }
    }

    auto portal = capture::portal::ScreenCastPortal::connect();
    if (!portal) {
        std::printf("portal capture: reference skipped (%s)\n", portal.error().message.c_str());
        return 0;
    }
    auto cast = (*portal)->start(false, "", 20, CancelToken());
    if (!cast || !*cast) {
        std::printf("portal capture: reference skipped (no portal stream)\n");
        return 0;
    }
    fs::path reference = folder / "gstreamer.mp4";
    pid_t gst = startGStreamer((**cast)->fd(), (**cast)->node, reference, folder / "gst.log");
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds + 1));
    kill(gst, SIGINT);
    bench::Usage theirs = bench::waitChild(gst, Clock::now(), 30);
    int theirFrames = countFrames(reference);

    std::printf("portal capture quillo cpu: %.2f s (%.1f %% of a core)\n", ours.cpuSeconds,
                100 * ours.cpuSeconds / seconds);
    std::printf("portal capture quillo peak memory: %.0f MB\n", ours.peakKB / 1024.0);
    std::printf(
        "portal capture quillo frames: %d in the movie, %ld pictures delivered, %ld taken\n",
        ourFrames, delivered, taken);
    std::printf("portal capture gstreamer cpu: %.2f s (%.1f %% of a core)\n", theirs.cpuSeconds,
                100 * theirs.cpuSeconds / seconds);
    std::printf("portal capture gstreamer peak memory: %.0f MB\n", theirs.peakKB / 1024.0);
    std::printf("portal capture gstreamer frames: %d\n", theirFrames);
    double missing = delivered > 0 ? 100.0 * (delivered - taken) / delivered : 100;
    std::printf("portal capture missing pictures: %.2f %%\n", missing);
    std::printf("portal capture verdict cpu: %s\n",
                ours.exited && ours.cpuSeconds <= theirs.cpuSeconds ? "met" : "missed");
    std::printf("portal capture verdict missing: %s\n", missing <= 1 ? "met" : "missed");
    std::printf("portal capture verdict memory: %s\n", ours.peakKB < 250 * 1024 ? "met" : "missed");
    fs::remove_all(folder);
    return 0;
}
