// The editor's live preview, driven without a window: real-time playback of a 1920×1080, 30 fps
// recording with a following zoom, the backdrop, a themed cursor and captions at a 960×540
// preview (frames shown per second and dropped), scrubbing to random times (time to the frame
// shown), opening a 10-minute recording (time to its first frame) and the process's peak memory.
// Each beside FFmpeg's decoder alone on the same file: the ffmpeg command that only decodes, and
// the same random seeks through our movie reader without rendering. Prints "name: figure" lines.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "base/json.h"
#include "captions/caption_renderer.h"
#include "captions/caption_track.h"
#include "command_output.h"
#include "media/movie_reader.h"
#include "project/cursor_track.h"
#include "project/edits_json.h"
#include "redaction/redaction.h"
#include "screen_movie.h"
#include "views/preview_player.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace quillo;

namespace {

using quillo::bench::secondsSince;

constexpr double kPlaySeconds = 20;
constexpr int kScrubs = 40;

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[static_cast<size_t>(p * (values.size() - 1) + 0.5)];
}

// A project around `movie` (linked) lasting `seconds`, with a cursor track that wanders, clicks
// every few seconds, and a caption every four seconds.
fs::path makeProject(const fs::path& folder, const fs::path& movie, double seconds,
                     const project::Edits& edits) {
    fs::create_directories(folder);
    std::ofstream(folder / "project.json")
        << R"({"version":1,"title":"Bench","created":"2026-01-01T00:00:00Z",)"
        << R"("source":{"kind":"window","id":1,"name":"Bench","detail":""}})";
    fs::remove(folder / "recording.mp4");
    fs::create_symlink(fs::absolute(movie), folder / "recording.mp4");
    project::CursorTrack track;
    for (int i = 0; i <= seconds * 60; ++i) {
        double t = i / 60.0;
        track.samples.push_back({t, 0.5 + 0.3 * std::sin(t / 3), 0.5 + 0.3 * std::cos(t / 5), 1});
    }
    for (double t = 2; t < seconds; t += 3.5) {
        track.clicks.push_back(
            {t, 0.5 + 0.3 * std::sin(t / 3), 0.5 + 0.3 * std::cos(t / 5), std::nullopt});
    }
    track.pixelsPerPoint = 1;
    std::ofstream(folder / "cursor.json") << project::encodeCursorTrack(track);
    std::ofstream(folder / "edits.json") << toPrettyJson(project::toJson(edits));
    captions::CaptionTrack captions;
    captions.locale = "en-US";
    for (double t = 0.5; t + 3 < seconds; t += 4) {
        captions::CaptionSegment segment;
        segment.start = t;
        segment.end = t + 3;
        segment.text = "Open the settings and turn on the sharing option for the team";
        captions.segments.push_back(segment);
    }
    if (auto saved = captions.save(folder); !saved) {
        std::fprintf(stderr, "captions: %s\n", saved.error().message.c_str());
    }
    return folder;
}

project::Edits richEdits(double seconds) {
    project::Edits edits = project::Edits::fresh(seconds);
    project::ZoomSection zoom;
    zoom.start = 0;
    zoom.end = seconds;
    zoom.scale = 1.8;
    zoom.follow = true;
    edits.zooms = {zoom};
    edits.frame = project::FrameStyle{};
    edits.cursor = project::CursorStyle{true, 1.4, 0.35, false, "violet"};
    edits.clickHighlights = true;
    edits.captions = project::CaptionStyle{};
    return edits;
}

// A player with a sink that remembers the last frame's time and wakes a waiter.
struct Watched {
    std::mutex mutex;
    std::condition_variable changed;
    std::optional<double> shown;
    int64_t frames = 0;
    std::unique_ptr<views::PreviewPlayer> player;

    Watched() {
        views::PreviewPlayer::Listener listener;
        listener.frame = [this](std::shared_ptr<const views::PreviewFrame> frame) {
            std::lock_guard lock(mutex);
            shown = frame->time;
            ++frames;
            changed.notify_all();
        };
        listener.planned = [](double) {};
        listener.ended = [](double) {};
        listener.failed = [](const std::string& message) {
            std::fprintf(stderr, "preview: %s\n", message.c_str());
        };
        player = std::make_unique<views::PreviewPlayer>(std::move(listener));
    }
    bool waitForAny(int64_t after) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(20), [&] { return frames > after; });
    }
    int64_t count() {
        std::lock_guard lock(mutex);
        return frames;
    }
    bool waitFor(double t) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(20), [&] { return shown == t; });
    }
};

// ffmpeg's decoder alone: frames per second of wall time, and its peak memory in kB.
std::pair<double, long> ffmpegDecode(const fs::path& movie, double start, double length) {
    auto begin = Clock::now();
    std::string text =
        bench::output("ffmpeg -nostdin -benchmark -ss " + std::to_string(start) + " -t " +
                      std::to_string(length) + " -i '" + movie.string() + "' -an -f null - 2>&1");
    double wall = secondsSince(begin);
    auto at = text.rfind("frame=");
    double frames = at == std::string::npos ? 0 : std::atof(text.c_str() + at + 6);
    auto rss = text.rfind("maxrss=");
    long kb = rss == std::string::npos ? 0 : std::atol(text.c_str() + rss + 7);
    return {wall > 0 ? frames / wall : 0, kb};
}

void playback(const fs::path& folder, const fs::path& movie) {
    Watched watched;
    watched.player->setRecipe({folder, richEdits(60), {960, 540}});
    watched.player->showFrame(5);
    watched.waitFor(5);
    watched.player->resetCounters();
    watched.player->play(5, 1);
    std::this_thread::sleep_for(std::chrono::duration<double>(kPlaySeconds));
    watched.player->stop();
    auto counters = watched.player->counters();
    double total = static_cast<double>(counters.shown + counters.dropped);
    std::printf(
        "preview_play_1080p30_at_960x540: %.1f fps shown, %.2f %% dropped over %.0f s "
        "(target 30 fps, < 1 %% dropped)\n",
        counters.shown / kPlaySeconds, total > 0 ? 100.0 * counters.dropped / total : 0,
        kPlaySeconds);
    auto [fps, kb] = ffmpegDecode(movie, 5, kPlaySeconds);
    std::printf("ffmpeg_decode_only_1080p30: %.1f fps (decoding as fast as it can, %.0f MB)\n", fps,
                kb / 1024.0);
}

void scrubbing(const fs::path& folder, const fs::path& movie, double seconds) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> anywhere(0, seconds - 0.1);
    std::vector<double> times;
    for (int i = 0; i < kScrubs; ++i) {
        times.push_back(std::round(anywhere(random) * 1000) / 1000);
    }
    Watched watched;
    watched.player->setRecipe({folder, richEdits(seconds), {960, 540}});
    watched.player->showFrame(0);
    watched.waitFor(0);
    std::vector<double> first;
    std::vector<double> exact;
    for (double t : times) {
        const int64_t before = watched.count();
        auto start = Clock::now();
        watched.player->showFrame(t);
        watched.waitForAny(before);
        first.push_back(secondsSince(start) * 1000);
        watched.waitFor(t);
        exact.push_back(secondsSince(start) * 1000);
    }
    std::printf(
        "preview_scrub_random_first_picture: p50 %.0f ms, p95 %.0f ms (target p95 <= 100 "
        "ms; the keyframe before the time when it lies far)\n",
        percentile(first, 0.5), percentile(first, 0.95));
    std::printf("preview_scrub_random_exact_frame: p50 %.0f ms, p95 %.0f ms\n",
                percentile(exact, 0.5), percentile(exact, 0.95));

    auto reader = media::MovieReader::open(movie);
    if (!reader) {
        return;
    }
    media::VideoFrame frame;
    std::vector<double> theirs;
    for (double t : times) {
        auto start = Clock::now();
        (void)(*reader)->frame(t, {}, frame);
        theirs.push_back(secondsSince(start) * 1000);
    }
    std::printf("libavcodec_seek_decode_only: p50 %.0f ms, p95 %.0f ms\n", percentile(theirs, 0.5),
                percentile(theirs, 0.95));
}

void opening(const fs::path& media, const fs::path& minute) {
    fs::path movie = media / "screen-10min-1080p30-recorded.mp4";
    if (!fs::exists(movie)) {
        fs::path list = media / "ten.txt";
        std::ofstream out(list);
        for (int i = 0; i < 10; ++i) {
            out << "file '" << fs::absolute(minute).string() << "'\n";
        }
        out.close();
        std::string command = "ffmpeg -nostdin -loglevel error -y -f concat -safe 0 -i '" +
                              list.string() + "' -c copy '" + movie.string() + "'";
        if (std::system(command.c_str()) != 0) {
            std::fprintf(stderr, "could not make the 10-minute movie\n");
            return;
        }
    }
    fs::path folder = makeProject(media / "preview-10min", movie, 600, richEdits(600));
    auto start = Clock::now();
    Watched watched;
    watched.player->setRecipe({folder, richEdits(600), {960, 540}});
    watched.player->showFrame(0);
    watched.waitFor(0);
    double ours = secondsSince(start);
    std::printf("preview_open_10min_first_frame: %.0f ms (target <= 1000 ms)\n", ours * 1000);
    start = Clock::now();
    auto reader = media::MovieReader::open(movie);
    if (reader) {
        (void)(*reader)->frame(0, {});
    }
    std::printf("libavcodec_open_10min_first_frame: %.0f ms\n", secondsSince(start) * 1000);
    // Played for a while, the 10-minute recording's memory is the process's peak.
    watched.player->play(300, 1);
    std::this_thread::sleep_for(std::chrono::seconds(3));
    watched.player->stop();
    std::printf("preview_peak_memory: %.0f MB (target < 400 MB)\n",
                bench::peakResidentKB() / 1024.0);
    auto [fps, kb] = ffmpegDecode(movie, 300, 3);
    std::printf("ffmpeg_decode_only_peak_memory: %.0f MB\n", kb / 1024.0);
}

}  // namespace

int main(int argc, char** argv) {
    redaction::registerDrawing();
    captions::registerBurnIn();
    fs::path media;
    fs::path movie = bench::screenMinute(argv[0], &media);
    if (movie.empty()) {
        return 1;
    }
    // The preview plays what Quillo records: a key frame every second and no B-frames, as the
    // screen recorder writes its movies.
    fs::path recorded = media / "screen-1min-1080p30-recorded.mp4";
    if (!fs::exists(recorded)) {
        std::fprintf(stderr, "making %s (once)...\n", recorded.c_str());
        std::string command = "ffmpeg -nostdin -loglevel error -y -i '" + movie.string() +
                              "' -c:v libx264 -preset ultrafast -profile:v high -g 30 -bf 0 "
                              "-crf 20 -pix_fmt yuv420p -c:a copy '" + recorded.string() + "'";
        if (std::system(command.c_str()) != 0) {
            std::fprintf(stderr, "could not make the recorded benchmark movie\n");
            return 1;
        }
    }
    movie = recorded;
    fs::path folder = makeProject(media / "preview-project", movie, 60, richEdits(60));
    std::string only = argc > 1 ? argv[1] : "";
    if (only.empty() || only == "--play") {
        playback(folder, movie);
    }
    if (only.empty() || only == "--scrub") {
        scrubbing(folder, movie, 60);
    }
    if (only.empty() || only == "--open") {
        opening(media, movie);
    }
    return 0;
}
