// Screen recording of a 1920×1080 Xvfb display for a minute (FRAMES_SECONDS to shorten), Quillo's
// capture session against `ffmpeg -f x11grab … -c:v libx264 -preset ultrafast`, on two kinds of
// content: a terminal that scrolls steadily ("changing") and a text editor with short typing
// bursts ("still"). Each recorder runs in a child process of its own on a fresh display; its CPU
// time and peak memory come from wait4, its frames from ffprobe. After Quillo's still run the
// movie's last frame is compared with a lossless grab of the unchanged screen (SSIM). Prints
// "name: figure" lines and one verdict line per target.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <poll.h>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "base/clock.h"
#include "base/main_queue.h"
#include "capture/capture_session.h"
#include "capture/display_backend.h"
#include "command_output.h"
#include "project/local_project.h"
#include "session_recording.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace quillo;

namespace {

constexpr int kFps = 30;
const char* const kScreenSize = "1920x1080";
// An xterm of 213×57 cells of Monospace 11 covers 1920×1080 (a cell is 9×19 pixels at 96 dpi).
const char* const kTerminalGeometry = "213x57+0+0";
// 30 characters typed at 80 ms a key every 5 s, as someone writing a note would.
const char* const kTypedText = "the quick brown fox jumps over";

// --- child processes

// Every long-lived child (Xvfb, xterm, recorders, the typist), so that a failure or a signal
// still tears them all down by pid.
std::array<std::atomic<pid_t>, 16> g_children{};

void remember(pid_t pid) {
    for (auto& slot : g_children) {
        pid_t empty = 0;
        if (slot.compare_exchange_strong(empty, pid)) {
            return;
        }
    }
}

void forget(pid_t pid) {
    for (auto& slot : g_children) {
        pid_t expected = pid;
        slot.compare_exchange_strong(expected, 0);
    }
}

// Signal-safe: kill() only.
void killRemembered() {
    for (auto& slot : g_children) {
        if (pid_t pid = slot.exchange(0); pid > 0) {
            kill(pid, SIGKILL);
        }
    }
}

extern "C" void onSignal(int signal) {
    killRemembered();
    _exit(128 + signal);
}

// Ends one child: SIGTERM, up to 3 s to go, then SIGKILL; reaps it.
void stopChild(pid_t pid) {
    if (pid <= 0) {
        return;
    }
    kill(pid, SIGTERM);
    for (int i = 0; i < 60; ++i) {
        if (waitpid(pid, nullptr, WNOHANG) != 0) {
            forget(pid);
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    forget(pid);
}

// Starts `args` with DISPLAY=`display` (unless empty), stdin from /dev/null and both outputs
// into `log`. Descriptors without close-on-exec (a pipe's write end) are inherited.
pid_t spawn(const std::vector<std::string>& args, const std::string& display, const fs::path& log) {
    std::fflush(nullptr);  // a child would write out its copy of what is buffered
    pid_t pid = fork();
    if (pid == 0) {
        signal(SIGINT, SIG_DFL);
        signal(SIGTERM, SIG_DFL);
        if (!display.empty()) {
            setenv("DISPLAY", display.c_str(), 1);
        }
        std::freopen("/dev/null", "r", stdin);
        std::freopen(log.c_str(), "a", stdout);
        dup2(STDOUT_FILENO, STDERR_FILENO);
        std::vector<char*> argv;
        for (const auto& arg : args) {
            argv.push_back(const_cast<char*>(arg.c_str()));
        }
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    if (pid > 0) {
        remember(pid);
    }
    return pid;
}

using quillo::bench::output;

bool have(const char* program) {
    return std::system(("command -v " + std::string(program) + " >/dev/null 2>&1").c_str()) == 0;
}

// One line from `fd` within `timeout` seconds; none on timeout or end of file.
std::optional<std::string> readLine(int fd, double timeout) {
    std::string line;
    auto deadline = Clock::now() + std::chrono::duration<double>(timeout);
    while (Clock::now() < deadline) {
        pollfd wanted{fd, POLLIN, 0};
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (poll(&wanted, 1, static_cast<int>(std::max<long>(1, left.count()))) <= 0) {
            continue;
        }
        char c = 0;
        if (read(fd, &c, 1) != 1) {
            return std::nullopt;
        }
        if (c == '\n') {
            return line;
        }
        line += c;
    }
    return std::nullopt;
}

// --- the display and its content

enum class Content { Changing, Still };

const char* contentName(Content content) {
    return content == Content::Changing ? "changing" : "still";
}

// A fresh Xvfb with a full-screen xterm running the content.
struct Screen {
    pid_t server = 0;
    pid_t terminal = 0;
    std::string display;  // ":N"

    Screen() = default;
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    ~Screen() {
        stopChild(terminal);
        stopChild(server);
    }
};

std::string xdotool(const std::string& display, const std::string& arguments) {
    return output("DISPLAY=" + display + " xdotool " + arguments + " 2>/dev/null");
}

// The editor for the still content: vi, else nano, else cat.
std::vector<std::string> editorCommand(const fs::path& note) {
    if (have("vi")) {
        return {"vi", "-n", "-i", "NONE", note.string()};
    }
    if (have("nano")) {
        return {"nano", note.string()};
    }
    return {"cat"};
}

// About 60 lines a second, two per frame: steady scrolling that the screen can show line by line.
// Each line holds three listing entries side by side, so the text spans the screen's width.
const char* const kScroller =
    "$| = 1; my @l = map { chomp; $_ } `ls -l /usr/lib /usr/share 2>/dev/null`; my $i = 0;"
    "while (1) { for (1 .. 2) { printf \"%08d %-66.66s  %-66.66s  %-66.66s\\n\", $i,"
    " $l[$i % @l], $l[($i + 1) % @l], $l[($i + 2) % @l]; $i++ }"
    " select(undef, undef, undef, 1 / 30) }";

bool startScreen(Screen& screen, Content content, const fs::path& folder) {
    int fds[2];
    if (pipe(fds) != 0) {
        return false;
    }
    // -displayfd picks a free display and writes its number, so no other X server is disturbed.
    screen.server = spawn({"Xvfb", "-displayfd", std::to_string(fds[1]), "-screen", "0",
                           std::string(kScreenSize) + "x24", "-nolisten", "tcp"},
                          "", folder / "xvfb.log");
    close(fds[1]);
    auto number = readLine(fds[0], 10);
    close(fds[0]);
    if (!number || number->empty()) {
        std::fprintf(stderr, "capture_compare: Xvfb did not start (see %s)\n",
                     (folder / "xvfb.log").c_str());
        return false;
    }
    screen.display = ":" + *number;

    std::vector<std::string> command = {"xterm", "-bw",       "0",   "-geometry", kTerminalGeometry,
                                        "-fa",   "Monospace", "-fs", "11",        "-e"};
    std::vector<std::string> program = content == Content::Changing
                                           ? std::vector<std::string>{"perl", "-e", kScroller}
                                           : editorCommand(folder / "note.txt");
    command.insert(command.end(), program.begin(), program.end());
    screen.terminal = spawn(command, screen.display, folder / "xterm.log");

    std::string window;
    for (int i = 0; i < 100 && window.empty(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        std::istringstream found(xdotool(screen.display, "search --onlyvisible --class xterm"));
        found >> window;
    }
    if (window.empty()) {
        std::fprintf(stderr, "capture_compare: the xterm window did not show\n");
        return false;
    }
    std::string geometry = xdotool(screen.display, "getwindowgeometry --shell " + window);
    int width = 0, height = 0;
    if (auto at = geometry.find("WIDTH="); at != std::string::npos) {
        width = std::atoi(geometry.c_str() + at + 6);
    }
    if (auto at = geometry.find("HEIGHT="); at != std::string::npos) {
        height = std::atoi(geometry.c_str() + at + 7);
    }
    if (width < 1920 || height < 1080) {
        std::fprintf(stderr, "capture_compare: the xterm is %dx%d, not covering the screen\n",
                     width, height);
    }
    // Keyboard focus follows the pointer without a window manager; the pointer rests in a corner.
    xdotool(screen.display, "mousemove 1919 1079 windowfocus " + window);
    if (content == Content::Still && program[0] == "vi") {
        xdotool(screen.display, "key i");
    }
    std::this_thread::sleep_for(std::chrono::seconds(1));  // the content settles
    return true;
}

// Types a burst every 5 s, the last one ending about half a second before `seconds`.
pid_t startTypist(const Screen& screen, double seconds, const fs::path& folder) {
    int bursts = std::max(0, static_cast<int>((seconds - 3) / 5));
    std::string script = "for i in $(seq " + std::to_string(bursts) +
                         "); do sleep 5; xdotool type --delay 80 '" + kTypedText +
                         "'; xdotool key Return; done";
    return spawn({"sh", "-c", script}, screen.display, folder / "typist.log");
}

// --- recorders

// What the Quillo child reports on `report`: "started" with the first frame, then "finished D"
// or "failed MESSAGE".
void report(int fd, const std::string& line) {
    std::string text = line + "\n";
    if (write(fd, text.data(), text.size()) < 0) {
        _exit(3);
    }
}

// The child's side: the capture session as the app drives it, sharing the display; it reports
// "started" with the first frame, then "finished D" or "failed MESSAGE".
[[noreturn]] void recordInProcess(const std::string& display, const fs::path& folder,
                                  double seconds, int fd) {
    setenv("DISPLAY", display.c_str(), 1);
    std::string failure = bench::recordWithSession(
        folder, seconds, 10,
        [&](capture::CaptureSession& session) {
            if (auto shown = session.preview({capture::SourceRef::Kind::Display, 0}); !shown) {
                report(fd, "failed " + shown.error().message + " " + shown.error().detail);
                _exit(1);
            }
        },
        [&](const std::string& name, const Json& info) {
            if (name == "started") {
                report(fd, "started");
            } else if (name == "finished") {
                report(fd, "finished " + std::to_string(info.value("duration", 0.0)));
            }
        });
    if (!failure.empty()) {
        report(fd, "failed " + failure);
    }
    _exit(failure.empty() ? 0 : 1);
}

struct Run {
    bench::Usage usage;
    fs::path movie;
    bool ok = false;
};

Run recordQuillo(const Screen& screen, Content content, double seconds, const fs::path& folder) {
    Run run;
    run.movie = folder / project::LocalProject::kRecording;
    int fds[2];
    if (pipe(fds) != 0) {
        return run;
    }
    auto started = Clock::now();
    std::fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        signal(SIGINT, SIG_DFL);
        signal(SIGTERM, SIG_DFL);
        close(fds[0]);
        recordInProcess(screen.display, folder, seconds, fds[1]);
    }
    close(fds[1]);
    remember(pid);
    pid_t typist = 0;
    auto line = readLine(fds[0], 20);
    if (line && *line == "started" && content == Content::Still) {
        typist = startTypist(screen, seconds, folder);
    }
    run.usage = bench::waitChild(pid, started, seconds + 90);
    forget(pid);
    stopChild(typist);
    while (auto next = readLine(fds[0], 1)) {
        line = next;
    }
    close(fds[0]);
    run.ok = run.usage.exited && line && line->rfind("finished", 0) == 0;
    if (!run.ok) {
        std::fprintf(stderr, "capture_compare: Quillo's recording failed: %s\n",
                     line ? line->c_str() : "no report");
    }
    return run;
}

Run recordFfmpeg(const Screen& screen, Content content, double seconds, const fs::path& folder) {
    Run run;
    run.movie = folder / "ffmpeg.mp4";
    auto started = Clock::now();
    pid_t pid = spawn({"ffmpeg",
                       "-nostdin",
                       "-y",
                       "-loglevel",
                       "info",
                       "-f",
                       "x11grab",
                       "-framerate",
                       std::to_string(kFps),
                       "-video_size",
                       kScreenSize,
                       "-i",
                       screen.display,
                       "-c:v",
                       "libx264",
                       "-preset",
                       "ultrafast",
                       "-t",
                       std::to_string(seconds),
                       run.movie.string()},
                      screen.display, folder / "ffmpeg.log");
    pid_t typist = content == Content::Still ? startTypist(screen, seconds, folder) : 0;
    run.usage = bench::waitChild(pid, started, seconds + 90);
    forget(pid);
    stopChild(typist);
    run.ok = run.usage.exited;
    if (!run.ok) {
        std::fprintf(stderr, "capture_compare: ffmpeg failed (see %s)\n",
                     (folder / "ffmpeg.log").c_str());
    }
    return run;
}

// --- measuring the movies

long countFrames(const fs::path& movie) {
    return std::atol(output("ffprobe -v error -count_frames -select_streams v:0 -show_entries "
                            "stream=nb_read_frames -of csv=p=0 '" +
                            movie.string() + "'")
                         .c_str());
}

// The frames ffmpeg repeated because the grab fell behind ("dup=" of its last progress line).
long ffmpegDuplicates(const fs::path& log) {
    std::ifstream in(log);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    auto at = text.rfind("dup=");
    return at == std::string::npos ? 0 : std::atol(text.c_str() + at + 4);
}

double ssim(const fs::path& a, const fs::path& b) {
    std::string text = output("ffmpeg -nostdin -i '" + a.string() + "' -i '" + b.string() +
                              "' -lavfi ssim -f null - 2>&1");
    auto at = text.rfind("All:");
    return at == std::string::npos ? 0 : std::atof(text.c_str() + at + 4);
}

struct Figures {
    double cpuPercent = 0;
    double missingPercent = 0;
    double peakMB = 0;
};

Figures measure(const Run& run, Content content, const char* recorder, double seconds) {
    Figures figures;
    long expected = std::lround(seconds * kFps);
    long frames = countFrames(run.movie);
    figures.cpuPercent = 100 * run.usage.cpuSeconds / std::max(0.001, run.usage.wallSeconds);
    figures.missingPercent = std::max(0.0, 100.0 * (expected - frames) / expected);
    figures.peakMB = run.usage.peakKB / 1024.0;
    std::string prefix = std::string("capture_") + contentName(content) + "_" + recorder + "_";
    std::printf("%scpu_percent: %.1f\n", prefix.c_str(), figures.cpuPercent);
    std::printf("%smissing_percent: %.1f (%ld of %ld frames)\n", prefix.c_str(),
                figures.missingPercent, frames, expected);
    std::printf("%speak_mb: %.0f\n", prefix.c_str(), figures.peakMB);
    if (std::string(recorder) == "ffmpeg") {
        long duplicated = ffmpegDuplicates(run.movie.parent_path() / "ffmpeg.log");
        std::printf("%sduplicated_percent: %.1f\n", prefix.c_str(),
                    100.0 * duplicated / std::max(1L, frames));
    }
    std::fflush(stdout);
    return figures;
}

// The still screen grabbed losslessly (without the pointer, which Quillo records apart from the
// movie) against the last frame of Quillo's movie.
double stillQuality(const Screen& screen, const fs::path& movie, const fs::path& folder) {
    fs::path still = folder / "still.png", last = folder / "last.png";
    std::string grab = "ffmpeg -nostdin -loglevel error -y -f x11grab -draw_mouse 0 -video_size " +
                       std::string(kScreenSize) + " -i " + screen.display + " -frames:v 1 '" +
                       still.string() + "'";
    std::string tail = "ffmpeg -nostdin -loglevel error -y -sseof -1 -i '" + movie.string() +
                       "' -update 1 '" + last.string() + "'";
    if (std::system(grab.c_str()) != 0 || std::system(tail.c_str()) != 0) {
        std::fprintf(stderr, "capture_compare: could not take the still frames\n");
        return 0;
    }
    return ssim(still, last);
}

struct Pair {
    Figures quillo;
    Figures ffmpeg;
    double ssim = 0;
    bool ok = false;
};

Pair compare(Content content, double seconds, const fs::path& media) {
    Pair pair;
    for (const char* recorder : {"quillo", "ffmpeg"}) {
        fs::path folder = media / (std::string(contentName(content)) + "-" + recorder);
        fs::remove_all(folder);
        fs::create_directories(folder);
        Screen screen;
        if (!startScreen(screen, content, folder)) {
            return pair;
        }
        bool quillo = std::string(recorder) == "quillo";
        Run run = quillo ? recordQuillo(screen, content, seconds, folder)
                         : recordFfmpeg(screen, content, seconds, folder);
        if (!run.ok) {
            return pair;
        }
        (quillo ? pair.quillo : pair.ffmpeg) = measure(run, content, recorder, seconds);
        if (quillo && content == Content::Still) {
            pair.ssim = stillQuality(screen, run.movie, folder);
            std::printf("capture_still_ssim: %.4f\n", pair.ssim);
        }
    }
    pair.ok = true;
    return pair;
}

const char* verdict(bool met) { return met ? "met" : "MISSED"; }

}  // namespace

int main(int argc, char** argv) {
    for (const char* program : {"Xvfb", "ffmpeg", "ffprobe", "xdotool", "xterm", "perl"}) {
        if (!have(program)) {
            std::printf("capture_compare: skipped (%s is not installed)\n", program);
            return 0;
        }
    }
    double seconds = 60;
    if (const char* value = std::getenv("FRAMES_SECONDS"); value && std::atof(value) > 0) {
        seconds = std::atof(value);
    }
    fs::path media =
        fs::absolute(fs::path(argc > 0 ? argv[0] : ".").parent_path() / "media" / "capture");
    fs::create_directories(media);
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);
    signal(SIGHUP, onSignal);
    std::atexit(killRemembered);

    Pair changing = compare(Content::Changing, seconds, media);
    Pair still = changing.ok ? compare(Content::Still, seconds, media) : Pair{};
    killRemembered();
    if (!changing.ok || !still.ok) {
        return 1;
    }

    std::printf("capture_target_changing_cpu: %s (quillo %.1f %% at most ffmpeg's %.1f %%)\n",
                verdict(changing.quillo.cpuPercent <= changing.ffmpeg.cpuPercent),
                changing.quillo.cpuPercent, changing.ffmpeg.cpuPercent);
    std::printf("capture_target_still_cpu: %s (quillo %.1f %% at most half ffmpeg's %.1f %%)\n",
                verdict(still.quillo.cpuPercent <= still.ffmpeg.cpuPercent / 2),
                still.quillo.cpuPercent, still.ffmpeg.cpuPercent);
    std::printf(
        "capture_target_missing: %s (quillo %.1f %% changing, %.1f %% still; at most 1 %%)\n",
        verdict(changing.quillo.missingPercent <= 1 && still.quillo.missingPercent <= 1),
        changing.quillo.missingPercent, still.quillo.missingPercent);
    std::printf(
        "capture_target_peak_memory: %s (quillo %.0f MB changing, %.0f MB still; under "
        "250 MB)\n",
        verdict(changing.quillo.peakMB < 250 && still.quillo.peakMB < 250), changing.quillo.peakMB,
        still.quillo.peakMB);
    std::printf("capture_target_still_ssim: %s (%.4f, at least 0.98)\n",
                verdict(still.ssim >= 0.98), still.ssim);
    return 0;
}
