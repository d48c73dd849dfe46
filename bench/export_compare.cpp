// Export of a 60-second 1920×1080, 30 fps screen recording with two zooms (one following the
// cursor), the backdrop with its shadow, a themed cursor and click rings, side by side with the
// ffmpeg command that only decodes and re-encodes the same file with the same encoder settings.
// Also a 4K HEVC export's peak memory, and a "docs_gif" export against ffmpeg's
// palettegen/paletteuse at the same size and rate (time, size and SSIM). Prints "name: figure"
// lines.

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>

#include "base/json.h"
#include "command_output.h"
#include "project/cursor_track.h"
#include "project/edits_json.h"
#include "render/exporter.h"
#include "render/frame_geometry.h"
#include "screen_movie.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace quillo;

namespace {

using quillo::bench::secondsSince;

using quillo::bench::output;

// A project folder around the benchmark movie with a cursor track that matches it: the pointer
// rests, clicks where the typing starts, glides from 30 to 36 s (where the movie's own pointer
// moves) with two clicks on the way, and rests again.
fs::path makeProject(const fs::path& media, const fs::path& movie, const project::Edits& edits) {
    fs::path folder = media / "export-project";
    fs::create_directories(folder);
    std::ofstream(folder / "project.json")
        << R"({"version":1,"title":"Bench","created":"2026-01-01T00:00:00Z",)"
        << R"("source":{"kind":"window","id":1,"name":"Bench","detail":""}})";
    fs::remove(folder / "recording.mp4");
    fs::create_symlink(fs::absolute(movie), folder / "recording.mp4");
    project::CursorTrack track;
    auto pointer = [](double t) -> Point {
        if (t < 30) {
            return {0.16, 0.3};
        }
        double s = std::min(t, 36.0) - 30;
        return {(300 + 180 * s) / 1920, (700 - 60 * s) / 1080};
    };
    for (int i = 0; i <= 60 * 60; ++i) {
        double t = i / 60.0;
        Point p = pointer(t);
        track.samples.push_back({t, p.x, p.y, 1});
    }
    for (double t : {9.8, 31.0, 35.0}) {
        track.clicks.push_back({t, pointer(t).x, pointer(t).y, std::nullopt});
    }
    track.pixelsPerPoint = 1;
    std::ofstream(folder / "cursor.json") << project::encodeCursorTrack(track);
    std::ofstream(folder / "edits.json") << toPrettyJson(project::toJson(edits));
    return folder;
}

project::Edits richEdits() {
    project::Edits edits = project::Edits::fresh(60);
    edits.zooms = {{9, 19, 2.0, 0.3, 0.3, true}, {30, 38, 1.8, 0.4, 0.6, false}};
    edits.frame = project::FrameStyle{0, 0.08, 0.02, true};
    edits.cursor = project::CursorStyle{true, 1.4, 0.35, false, "violet"};
    edits.clickHighlights = true;
    return edits;
}

int hevc4k(const fs::path& folder) {
    project::Edits edits = richEdits();
    edits.trimEnd = 5;
    render::ExportSpec spec =
        render::exportSpec(render::ExportPreset::YouTube4K, edits, {1920, 1080}, false);
    auto start = Clock::now();
    auto done =
        render::exportRecording(folder, spec, folder.parent_path() / "bench-4k.mp4", nullptr, {});
    if (!done) {
        std::fprintf(stderr, "%s %s\n", done.error().message.c_str(), done.error().detail.c_str());
        return 1;
    }
    std::printf("export_4k_hevc_5s: %.1f s\n", secondsSince(start));
    std::printf("export_4k_hevc_peak_memory: %.0f MB (target at most 900 MB)\n",
                bench::peakResidentKB() / 1024.0);
    return 0;
}

double ssim(const fs::path& gif, const fs::path& movie, double start, double length) {
    std::string text =
        output("ffmpeg -nostdin -i '" + gif.string() + "' -ss " + std::to_string(start) + " -t " +
               std::to_string(length) + " -i '" + movie.string() +
               "' -lavfi '[1:v]fps=12,scale=960:540:flags=area[r];[0:v][r]ssim' "
               "-f null - 2>&1");
    auto at = text.rfind("All:");
    return at == std::string::npos ? 0 : std::atof(text.c_str() + at + 4);
}

// Docs GIF: 20 s from 5 s on, plain recipe, 960 px at 12 fps, against palettegen/paletteuse.
int docsGif(const fs::path& media, const fs::path& movie) {
    project::Edits plain = project::Edits::fresh(60);
    plain.trimStart = 5;
    plain.trimEnd = 25;
    fs::path gifFolder = makeProject(media, movie, plain);
    fs::remove(gifFolder / "cursor.json");
    render::ExportSpec gifSpec =
        render::exportSpec(render::ExportPreset::DocsGif, plain, {1920, 1080}, false);
    fs::path ours = media / "bench-docs.gif";
    auto start = Clock::now();
    auto done = render::exportRecording(gifFolder, gifSpec, ours, nullptr, {});
    if (!done) {
        std::fprintf(stderr, "%s\n", done.error().message.c_str());
        return 1;
    }
    double gifTime = secondsSince(start);
    fs::path theirs = media / "bench-palette.gif";
    start = Clock::now();
    std::string command = "ffmpeg -nostdin -loglevel error -y -ss 5 -t 20 -i '" + movie.string() +
                          "' -vf 'fps=12,scale=960:540:flags=lanczos,split[a][b];[a]palettegen[p];"
                          "[b][p]paletteuse' '" +
                          theirs.string() + "'";
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "ffmpeg failed\n");
        return 1;
    }
    double paletteTime = secondsSince(start);
    std::printf("docs_gif_20s: %.2f s, %.0f kB, SSIM %.4f\n", gifTime, fs::file_size(ours) / 1e3,
                ssim(ours, movie, 5, 20));
    std::printf("ffmpeg_palettegen_paletteuse_20s: %.2f s, %.0f kB, SSIM %.4f\n", paletteTime,
                fs::file_size(theirs) / 1e3, ssim(theirs, movie, 5, 20));

    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    fs::path media;
    const fs::path movie = bench::screenMinute(argv[0], &media);
    if (movie.empty()) {
        return 1;
    }
    if (argc > 1 && std::string(argv[1]) == "--hevc4k") {
        return hevc4k(makeProject(media, movie, richEdits()));
    }
    if (argc > 1 && std::string(argv[1]) == "--gif") {
        return docsGif(media, movie);
    }

    // The plain re-encode: the same decoder, encoder and settings, no filters.
    fs::path reference = media / "bench-reference.mp4";
    std::string command =
        "ffmpeg -nostdin -loglevel error -y -i '" + movie.string() +
        "' -c:v libx264 -preset medium -crf 18 -profile:v high "
        "-x264-params deblock=-1,-1:rc-lookahead=15:threads=" +
        std::to_string(std::max(1u, std::thread::hardware_concurrency())) +
        " "
        "-g 60 -pix_fmt yuv420p -color_primaries bt709 -color_trc bt709 -colorspace bt709 "
        "-c:a aac -b:a 192k -ar 48000 -ac 2 -movflags +faststart '" +
        reference.string() + "'";
    auto start = Clock::now();
    if (std::system(command.c_str()) != 0) {
        std::fprintf(stderr, "ffmpeg failed\n");
        return 1;
    }
    double referenceTime = secondsSince(start);

    // For context: the same re-encode with the picture scaled into the backdrop's place and the
    // rest filled flat, which is what makes the encoder's own work larger for a framed export.
    render::FrameLayout layout =
        render::frameLayout(*richEdits().frame, {0, 0, 1920, 1080}, {1920, 1080});
    auto even = [](double v) { return std::to_string(2 * static_cast<int>(std::lround(v / 2))); };
    std::string framed = "ffmpeg -nostdin -loglevel error -y -i '" + movie.string() +
                         "' -vf scale=" + even(layout.picture.width) + ":" +
                         even(layout.picture.height) + ",pad=1920:1080:" + even(layout.picture.x) +
                         ":" + even(layout.picture.y) + ":color=0x7c5cfa" +
                         command.substr(command.find("' -c:v") + 1);
    start = Clock::now();
    if (std::system(framed.c_str()) != 0) {
        std::fprintf(stderr, "ffmpeg failed: %s\n", framed.c_str());
        return 1;
    }
    double framedTime = secondsSince(start);

    fs::path folder = makeProject(media, movie, richEdits());
    render::ExportSpec spec =
        render::exportSpec(render::ExportPreset::Custom, richEdits(), {1920, 1080}, false);
    start = Clock::now();
    auto done = render::exportRecording(folder, spec, media / "bench-export.mp4", nullptr, {});
    if (!done) {
        std::fprintf(stderr, "%s %s\n", done.error().message.c_str(), done.error().detail.c_str());
        return 1;
    }
    double exportTime = secondsSince(start);
    std::printf("export_60s_1080p30_zooms_backdrop_cursor: %.2f s\n", exportTime);
    std::printf("ffmpeg_reencode_reference: %.2f s\n", referenceTime);
    std::printf("export_vs_ffmpeg: %.2fx (target at most 1.15x)\n", exportTime / referenceTime);
    std::printf("ffmpeg_reencode_scaled_into_frame_reference: %.2f s (export is %.2fx of it)\n",
                framedTime, exportTime / framedTime);
    std::printf("export_1080p_peak_memory: %.0f MB (target at most 400 MB)\n",
                bench::peakResidentKB() / 1024.0);

    if (docsGif(media, movie) != 0) {
        return 1;
    }

    // The 4K HEVC export in a process of its own, so its memory peak is its own.
    return std::system((std::string(argv[0]) + " --hevc4k").c_str()) == 0 ? 0 : 1;
}
