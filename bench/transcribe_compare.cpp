// On-device transcription of a minute of recorded speech: 62.6 s of the LibriVox reading in
// pocketsphinx-testdata (its five clips twice, then two of them again) as the AAC sound of a
// 1280×720, 30 fps H.264 movie. The whole job is timed, from decoding the movie's sound to the
// caption track, and the words are scored against the reading's transcription. Prints
// "name: figure" lines.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "captions/caption_transcriber.h"
#include "screen_movie.h"
#include "support/librivox.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

const std::vector<std::string> kClips = {"0870", "0880", "0890", "0920", "0930", "0870",
                                         "0880", "0890", "0920", "0930", "0870", "0920"};

fs::path clipFile(const std::string& number) { return quillo::testing::librivox::clip(number); }

using quillo::testing::librivox::spoken;
using quillo::testing::librivox::wordErrorRate;

bool makeMovie(const fs::path& out) {
    const std::string list = out.string() + ".list";
    {
        std::ofstream names(list);
        for (const std::string& number : kClips) {
            names << "file '" << clipFile(number).string() << "'\n";
        }
    }
    const std::string command =
        "ffmpeg -nostdin -loglevel error -y -f lavfi -i testsrc=size=1280x720:rate=30 -f concat "
        "-safe 0 -i '" +
        list +
        "' -map 0:v -map 1:a -shortest -c:v libx264 -preset veryfast -pix_fmt yuv420p -c:a aac "
        "-b:a 128k -f mp4 '" +
        out.string() + ".part' && mv '" + out.string() + ".part' '" + out.string() + "'";
    const bool made = std::system(command.c_str()) == 0;
    fs::remove(list);
    return made;
}

}  // namespace

int main(int argc, char** argv) {
    fs::path folder = fs::path(argv[0]).parent_path() / "media";
    fs::create_directories(folder);
    fs::path movie = folder / "speech-1min-720p30.mp4";
    if (!fs::exists(movie)) {
        std::fprintf(stderr, "making %s (once)...\n", movie.c_str());
        if (!makeMovie(movie)) {
            std::fprintf(stderr, "could not make the benchmark movie\n");
            return 1;
        }
    }
    double spokenSeconds = 0;
    std::vector<std::string> reference;
    for (const std::string& number : kClips) {
        spokenSeconds += static_cast<double>(fs::file_size(clipFile(number)) - 44) / 32000.0;
        auto words = spoken(number);
        reference.insert(reference.end(), words.begin(), words.end());
    }
    int rounds = argc > 1 ? std::atoi(argv[1]) : 2;

    quillo::captions::CaptionTranscriber transcriber;
    double best = 1e9;
    std::vector<std::string> heard;
    for (int round = 0; round < rounds; ++round) {
        auto start = Clock::now();
        auto track = transcriber.transcribe(movie, "en_US", nullptr, {});
        best = std::min(best, std::chrono::duration<double>(Clock::now() - start).count());
        if (!track) {
            std::fprintf(stderr, "%s (%s)\n", track.error().message.c_str(),
                         track.error().detail.c_str());
            return 1;
        }
        heard.clear();
        for (const auto& segment : track->segments) {
            for (const auto& word : segment.timedWords()) {
                heard.push_back(word.text);
            }
        }
    }
    std::printf("transcribe_1min_speech: %.2f s (%.1f s of sound)\n", best, spokenSeconds);
    std::printf("transcribe_rtf: %.3f (target at most 0.3)\n", best / spokenSeconds);
    std::printf("transcribe_wer: %.1f %% (%zu words)\n", 100 * wordErrorRate(reference, heard),
                reference.size());
    std::printf("transcribe_peak_memory: %.0f MB\n", quillo::bench::peakResidentKB() / 1024.0);
    return 0;
}
