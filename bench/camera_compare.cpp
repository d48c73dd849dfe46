// Export of the 60-second 1920×1080, 30 fps benchmark recording with a webcam bubble in the
// bottom-right corner (1920×1080 camera footage, circle, mirrored, with its shadow) against the
// same export without camera footage. Both use the backdrop frame and a zoom. Two kinds of
// footage: webcam-like (a presenter moving in front of a still, softly lit wall, with sensor
// noise) and the worst case, where every pixel of the camera moves in every frame. Prints
// "name: figure" lines.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/resource.h>

#include "base/json.h"
#include "project/camera_sync.h"
#include "project/edits_json.h"
#include "render/exporter.h"
#include "screen_movie.h"

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

}  // namespace

int main(int, char** argv) {
    fs::path media;
    const fs::path movie = bench::screenMinute(argv[0], &media);
    if (movie.empty()) {
        return 1;
    }
    // A minute of 1080p camera picture of each kind, encoded as the camera recorder writes it.
    const std::string presenter =
        "gradients=s=1920x1080:c0=0x3a4a5a:c1=0x8a7a6a:speed=0.002:rate=30:duration=61,"
        "format=yuv420p[wall];testsrc2=s=560x760:rate=30:duration=61,format=yuv420p,boxblur=2"
        "[person];[wall][person]overlay=x='680+30*sin(t*1.3)':y='320+12*sin(t*2.1)',"
        "noise=alls=3:allf=t";
    const std::string everyPixel = "testsrc2=size=1920x1080:rate=30:duration=61";
    fs::path webcam = media / "camera-presenter-1min-1080p30.mov";
    fs::path moving = media / "camera-1min-1080p30.mov";
    for (const auto& [file, graph] :
         {std::pair{webcam, presenter}, std::pair{moving, everyPixel}}) {
        if (fs::exists(file)) {
            continue;
        }
        std::fprintf(stderr, "making %s (once)...\n", file.c_str());
        std::string command =
            "ffmpeg -nostdin -loglevel error -y -f lavfi -i \"" + graph +
            "\" -c:v libx264 -preset ultrafast -crf 23 -pix_fmt yuv420p -f mov '" + file.string() +
            "'";
        if (std::system(command.c_str()) != 0) {
            std::fprintf(stderr, "could not make the camera movie\n");
            return 1;
        }
    }

    project::Edits edits = project::Edits::fresh(60);
    edits.zooms = {{30, 38, 1.8, 0.4, 0.6, false}};
    edits.frame = project::FrameStyle{0, 0.08, 0.02, true};
    edits.camera = project::CameraStyle{};  // bottom-right circle, mirrored, with shadow

    fs::path plain = makeProject(media, "camera-bench-plain", movie, nullptr);
    fs::path withWebcam = makeProject(media, "camera-bench-webcam", movie, &webcam);
    fs::path withMoving = makeProject(media, "camera-bench-moving", movie, &moving);
    // Each export twice, in turns, the faster of each pair counting: other work on the machine
    // then weighs less on the ratio.
    Cost without, webcamCost, movingCost;
    auto keepBest = [](Cost& best, const Cost& cost) {
        best.wall = std::min(best.wall, cost.wall);
        best.processor = std::min(best.processor, cost.processor);
    };
    for (int round = 0; round < 2; ++round) {
        keepBest(without, exportCost(plain, edits, media / "bench-no-camera.mp4"));
        keepBest(webcamCost, exportCost(withWebcam, edits, media / "bench-webcam.mp4"));
        keepBest(movingCost, exportCost(withMoving, edits, media / "bench-moving.mp4"));
    }
    std::printf("export_60s_1080p30_without_camera: %.2f s (%.2f s of processor time)\n",
                without.wall, without.processor);
    std::printf("export_60s_1080p30_webcam_bubble: %.2f s (%.2f s of processor time)\n",
                webcamCost.wall, webcamCost.processor);
    std::printf(
        "webcam_bubble_vs_without: %.2fx of processor time (target at most 1.1x); wall "
        "%.2fx\n",
        webcamCost.processor / without.processor, webcamCost.wall / without.wall);
    std::printf(
        "export_60s_1080p30_every_pixel_moving_bubble: %.2f s (%.2f s of processor "
        "time)\n",
        movingCost.wall, movingCost.processor);
    std::printf("every_pixel_moving_bubble_vs_without: %.2fx of processor time; wall %.2fx\n",
                movingCost.processor / without.processor, movingCost.wall / without.wall);
    return 0;
}
