// Costs of the project model's hot paths, each beside the plain reference it builds on: decoding
// a recipe or a cursor track against parsing the same text into a JSON tree alone, and an atomic
// save against a plain unsynced write of the same bytes.

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "base/files.h"
#include "project/cursor_track.h"
#include "project/edits_json.h"
#include "project/time_map.h"

namespace {

using namespace quillo;
using namespace quillo::project;

// A heavily edited hour-long recording: 300 zooms, 300 cuts and speed-ups, 50 redactions.
Edits bigRecipe() {
    Edits edits = Edits::fresh(3600);
    edits.segments.emplace();
    edits.redactions.emplace();
    for (int i = 0; i < 300; ++i) {
        double t = i * 12.0;
        edits.zooms.push_back({t, t + 4, 1.8, 0.3, 0.6, i % 2 == 0});
        edits.segments->push_back({t + 5, t + 7, i % 3 == 0 ? 0.0 : 4.0});
    }
    for (int i = 0; i < 50; ++i) {
        Redaction r;
        r.start = i * 60.0;
        r.end = r.start + 10;
        r.x = 0.1;
        r.y = 0.1;
        r.width = 0.3;
        r.height = 0.05;
        edits.redactions->push_back(r);
    }
    edits.frame = FrameStyle{};
    edits.cursor = CursorStyle{};
    return edits;
}

// An hour of pointer samples at 60 per second, with clicks and typing.
CursorTrack hourTrack() {
    CursorTrack track;
    std::mt19937 random(1);
    std::uniform_real_distribution<double> unit(0, 1);
    for (int i = 0; i < 3600 * 60; ++i) {
        track.samples.push_back({i / 60.0, unit(random), unit(random), i % 7});
        if (i % 300 == 0) {
            track.clicks.push_back({i / 60.0, unit(random), unit(random), {}});
        }
    }
    track.typing = std::vector<CursorSample>{{10, 0.2, 0.3, {}}};
    return track;
}

const std::string& recipeText() {
    static const std::string text = encodeEdits(bigRecipe());
    return text;
}

const std::string& trackText() {
    static const std::string text = encodeCursorTrack(hourTrack());
    return text;
}

void DecodeRecipe(benchmark::State& state) {
    for (auto _ : state) {
        auto edits = decodeEdits(recipeText());
        benchmark::DoNotOptimize(edits);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(recipeText().size()));
}
BENCHMARK(DecodeRecipe)->Unit(benchmark::kMicrosecond);

void DecodeRecipeReferenceJsonParse(benchmark::State& state) {
    for (auto _ : state) {
        auto json = Json::parse(recipeText());
        benchmark::DoNotOptimize(json);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(recipeText().size()));
}
BENCHMARK(DecodeRecipeReferenceJsonParse)->Unit(benchmark::kMicrosecond);

void EncodeRecipe(benchmark::State& state) {
    Edits edits = bigRecipe();
    for (auto _ : state) {
        std::string text = encodeEdits(edits);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(EncodeRecipe)->Unit(benchmark::kMicrosecond);

void ValidateRecipe(benchmark::State& state) {
    Edits edits = bigRecipe();
    for (auto _ : state) {
        auto valid = edits.validate(3600);
        benchmark::DoNotOptimize(valid);
    }
}
BENCHMARK(ValidateRecipe)->Unit(benchmark::kMicrosecond);

void DecodeHourOfCursor(benchmark::State& state) {
    for (auto _ : state) {
        auto track = decodeCursorTrack(trackText());
        benchmark::DoNotOptimize(track);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(trackText().size()));
}
BENCHMARK(DecodeHourOfCursor)->Unit(benchmark::kMillisecond);

void DecodeHourOfCursorReferenceJsonParse(benchmark::State& state) {
    for (auto _ : state) {
        auto json = Json::parse(trackText());
        benchmark::DoNotOptimize(json);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(trackText().size()));
}
BENCHMARK(DecodeHourOfCursorReferenceJsonParse)->Unit(benchmark::kMillisecond);

// One frame's worth of look-ups: position and shape at an output frame time.
void CursorLookupPerFrame(benchmark::State& state) {
    static const CursorTrack track = hourTrack();
    double t = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(track.position(t));
        benchmark::DoNotOptimize(track.shape(t));
        t = t > 3599 ? 0 : t + 1.0 / 30;
    }
}
BENCHMARK(CursorLookupPerFrame);

void TimeMapSourcePerFrame(benchmark::State& state) {
    static const TimeMap map(bigRecipe());
    double t = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(map.source(t));
        t = t > 3000 ? 0 : t + 1.0 / 30;
    }
}
BENCHMARK(TimeMapSourcePerFrame);

void SaveRecipeAtomically(benchmark::State& state) {
    std::filesystem::path file = std::filesystem::temp_directory_path() / "quillo-bench-edits.json";
    for (auto _ : state) {
        auto written = writeFileAtomically(file, recipeText());
        benchmark::DoNotOptimize(written);
    }
    std::filesystem::remove(file);
}
BENCHMARK(SaveRecipeAtomically)->Unit(benchmark::kMicrosecond);

void SaveRecipeReferencePlainWrite(benchmark::State& state) {
    std::filesystem::path file = std::filesystem::temp_directory_path() / "quillo-bench-plain.json";
    for (auto _ : state) {
        int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        benchmark::DoNotOptimize(::write(fd, recipeText().data(), recipeText().size()));
        ::close(fd);
    }
    std::filesystem::remove(file);
}
BENCHMARK(SaveRecipeReferencePlainWrite)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
