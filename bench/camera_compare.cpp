// Export of the 60-second 1920×1080, 30 fps benchmark recording with a webcam bubble in the
// bottom-right corner (1920×1080 camera footage, circle, mirrored, with its shadow) against the
// same export without camera footage. Both use the backdrop frame and a zoom. Three kinds of
// footage: a person talking in a still room (what a webcam sees), a busy test pattern moving in
// front of a softly lit wall, and the worst case, where every pixel of the camera moves in every
// frame; all with sensor noise where a camera has it. Prints "name: figure" lines.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <vector>

#include "base/json.h"
#include "capture/camera_stream.h"
#include "project/camera_sync.h"
#include "project/edits_json.h"
#include "render/exporter.h"
#include "screen_movie.h"
#include "talking_head.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace quillo;

namespace {

using quillo::bench::secondsSince;

// A project folder around the benchmark movie, with the camera footage when given.
fs::path makeProject(const fs::path& media, const std::string& name, const fs::path& movie,
                     const fs::path* camera) {
    fs::path folder = media / name;
    fs::remove_all(folder);
    fs::create_directories(folder);
    std::ofstream(folder / "project.json")
        << R"({"version":1,"title":"Bench","created":"2026-01-01T00:00:00Z",)"
        << R"("source":{"kind":"window","id":1,"name":"Bench","detail":""}})";
    fs::create_symlink(fs::absolute(movie), folder / "recording.mp4");
    if (camera) {
        fs::create_symlink(fs::absolute(*camera), folder / "camera.mov");
        // The camera started a third of a second before the screen.
        (void)project::CameraSync{1000, 1000.3}.save(folder);
    }
    return folder;
}

// Processor seconds of this process so far (all threads), which other work on the machine
// disturbs far less than wall time.
double processorSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return t.tv_sec + t.tv_usec / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Cost {
    double wall = 1e9;
    double processor = 1e9;
};

Cost exportCost(const fs::path& folder, const project::Edits& edits, const fs::path& to) {
    render::ExportSpec spec =
        render::exportSpec(render::ExportPreset::Custom, edits, {1920, 1080}, false);
    auto start = Clock::now();
    const double processor = processorSeconds();
    auto done = render::exportRecording(folder, spec, to, nullptr, {});
    if (!done) {
        std::fprintf(stderr, "%s %s\n", done.error().message.c_str(), done.error().detail.c_str());
        std::exit(1);
    }
    return {secondsSince(start), processorSeconds() - processor};
}

// Camera footage of one kind and what its export cost.
struct Footage {
    std::string name;
    std::string about;
    fs::path movie;
    std::function<bool(const fs::path&)> make;
    Cost cost;
};

bool encodeGraph(const std::string& graph, const fs::path& file) {
    std::string command = "ffmpeg -nostdin -loglevel error -y -f lavfi -i \"" + graph +
                          "\" -c:v libx264 -preset ultrafast -crf 16 -pix_fmt yuv420p -f mov '" +
                          file.string() + "'";
    return std::system(command.c_str()) == 0;
}

// Writes camera footage the way the camera recorder does, from `source` standing in for the
// camera (as fast as it decodes).
bool recordCamera(const fs::path& source, const fs::path& file) {
    capture::CameraDevice device{
        "movie=filename='" + source.string() + "'", "Bench camera", "lavfi", {}};
    auto stream = capture::CameraStream::open(device);
    if (!stream) {
        std::fprintf(stderr, "%s\n", stream.error().message.c_str());
        return false;
    }
    if (!(*stream)->next() || !(*stream)->startFile(file)) {
        return false;
    }
    do {
        if (!(*stream)->writeFrame()) {
            return false;
        }
    } while ((*stream)->next());
    return static_cast<bool>((*stream)->finishFile());
}

}  // namespace

// With a footage name as the argument ("talking", "presenter", "moving", "plain") only that export
// runs, once, for profiling.
int main(int argc, char** argv) {
    fs::path media;
    const fs::path movie = bench::screenMinute(argv[0], &media);
    if (movie.empty()) {
        return 1;
    }
    // A minute of 1080p camera picture of each kind, written by the camera recorder's own code.
    const std::string presenter =
        "gradients=s=1920x1080:c0=0x3a4a5a:c1=0x8a7a6a:speed=0.002:rate=30:duration=61,"
        "format=yuv420p[wall];testsrc2=s=560x760:rate=30:duration=61,format=yuv420p,boxblur=2"
        "[person];[wall][person]overlay=x='680+30*sin(t*1.3)':y='320+12*sin(t*2.1)',"
        "noise=alls=3:allf=t";
    std::vector<Footage> footages{
        {"talking",
         "a person talking in a still room",
         media / "camera-talking-1min-1080p30.mov",
         bench::makeTalkingHead,
         {}},
        {"presenter",
         "a test pattern as busy as a presenter can be, moving before a wall",
         media / "camera-presenter-1min-1080p30.mov",
         [&](const fs::path& file) { return encodeGraph(presenter, file); },
         {}},
        {"moving",
         "every pixel moving in every frame",
         media / "camera-1min-1080p30.mov",
         [](const fs::path& file) {
             return encodeGraph("testsrc2=size=1920x1080:rate=30:duration=61", file);
         },
         {}},
    };
    const std::string only = argc > 1 ? argv[1] : "";
    for (const Footage& footage : footages) {
        if (fs::exists(footage.movie) || (!only.empty() && only != footage.name)) {
            continue;
        }
        std::fprintf(stderr, "making %s (once)...\n", footage.movie.c_str());
        // The camera's own picture is only a step: recorded, it goes (it is large).
        const fs::path source = media / ("source-" + footage.movie.filename().string());
        const fs::path partial = media / ("partial-" + footage.movie.filename().string());
        const bool made = footage.make(source) && recordCamera(source, partial);
        fs::remove(source);
        if (!made) {
            std::fprintf(stderr, "could not make the camera movie\n");
            return 1;
        }
        fs::rename(partial, footage.movie);
    }

    project::Edits edits = project::Edits::fresh(60);
    edits.zooms = {{30, 38, 1.8, 0.4, 0.6, false}};
    edits.frame = project::FrameStyle{0, 0.08, 0.02, true};
    edits.camera = project::CameraStyle{};  // bottom-right circle, mirrored, with shadow

    const fs::path plain = makeProject(media, "camera-bench-plain", movie, nullptr);
    auto once = [](const Cost& cost) {
        std::printf("%.2f s (%.2f s of processor time)\n", cost.wall, cost.processor);
        return 0;
    };
    if (only == "plain") {
        return once(exportCost(plain, edits, media / "bench-no-camera.mp4"));
    }
    for (const Footage& footage : footages) {
        if (only == footage.name) {
            return once(exportCost(
                makeProject(media, "camera-bench-" + footage.name, movie, &footage.movie), edits,
                media / ("bench-" + footage.name + ".mp4")));
        }
    }
    // Each export three times, in turns, the fastest counting: other work on the machine
    // then weighs less on the ratio.
    Cost without;
    auto keepBest = [](Cost& best, const Cost& cost) {
        best.wall = std::min(best.wall, cost.wall);
        best.processor = std::min(best.processor, cost.processor);
    };
    for (int round = 0; round < 3; ++round) {
        keepBest(without, exportCost(plain, edits, media / "bench-no-camera.mp4"));
        for (Footage& footage : footages) {
            const fs::path folder =
                makeProject(media, "camera-bench-" + footage.name, movie, &footage.movie);
            keepBest(footage.cost,
                     exportCost(folder, edits, media / ("bench-" + footage.name + ".mp4")));
        }
    }
    std::printf("export_60s_1080p30_without_camera: %.2f s (%.2f s of processor time)\n",
                without.wall, without.processor);
    for (const Footage& footage : footages) {
        std::printf("export_60s_1080p30_%s_bubble: %.2f s (%.2f s of processor time; %s)\n",
                    footage.name.c_str(), footage.cost.wall, footage.cost.processor,
                    footage.about.c_str());
        std::printf(
            "%s_bubble_vs_without: %.2fx of processor time (target at most 1.1x); wall "
            "%.2fx\n",
            footage.name.c_str(), footage.cost.processor / without.processor,
            footage.cost.wall / without.wall);
    }
    return 0;
}
