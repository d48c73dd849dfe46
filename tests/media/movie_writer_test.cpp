#include "media/movie_writer.h"

#include <cmath>
#include <numbers>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "media/time_stretch.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::media {
namespace {

using testing::TempFolder;

TEST(MovieWriter, HevcMovieIsTaggedForPlayers) {
    TempFolder folder;
    auto writer = MovieWriter::create(folder / "a.mp4", {64, 48, 24, VideoCodec::HEVC, 0.92, true});
    ASSERT_TRUE(writer) << writer.error().detail;
    std::vector<uint8_t> frame(64 * 48 * 4, 128);
    std::vector<float> sound(2000 * 2, 0.1f);
    for (int i = 0; i < 12; ++i) {
        ASSERT_TRUE((*writer)->addFrame(frame.data(), 64 * 4));
        ASSERT_TRUE((*writer)->addSound(sound.data(), 2000));
    }
    ASSERT_TRUE((*writer)->finish());
    auto info = nlohmann::json::parse(testing::probe(folder / "a.mp4"));
    EXPECT_EQ(info["streams"][0]["codec_name"], "hevc");
    EXPECT_EQ(info["streams"][0]["codec_tag_string"], "hvc1");
    EXPECT_EQ(info["streams"][0]["profile"], "Main");
    EXPECT_EQ(info["streams"][0]["nb_frames"], "12");
    EXPECT_EQ(info["streams"][1]["codec_name"], "aac");
}

TEST(MovieWriter, OddSizesAndMissingFoldersAreRefused) {
    TempFolder folder;
    EXPECT_FALSE(MovieWriter::create(folder / "a.mp4", {63, 48}));
    auto missing = MovieWriter::create(folder / "no" / "a.mp4", {64, 48});
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().message, "The movie could not be written.");
}

// Zero crossings per second of a mono signal: twice its frequency.
double frequency(const std::vector<float>& samples, int rate) {
    int crossings = 0;
    for (size_t i = 1; i < samples.size(); ++i) {
        crossings += (samples[i - 1] < 0) != (samples[i] < 0);
    }
    return crossings / 2.0 / (static_cast<double>(samples.size()) / rate);
}

TEST(TimeStretch, FasterSoundKeepsItsPitch) {
    constexpr int kRate = 48000;
    for (double speed : {2.0, 3.0, 0.5}) {
        auto stretch = TimeStretch::create(speed, kRate, 1);
        ASSERT_TRUE(stretch);
        std::vector<float> tone(kRate * 2);
        for (size_t i = 0; i < tone.size(); ++i) {
            tone[i] = static_cast<float>(std::sin(2 * std::numbers::pi * 440 * i / kRate));
        }
        std::vector<float> out;
        auto sink = [&](const float* samples, size_t frames) -> Result<void> {
            out.insert(out.end(), samples, samples + frames);
            return {};
        };
        for (size_t i = 0; i < tone.size(); i += 4800) {
            ASSERT_TRUE((*stretch)->push(tone.data() + i, 4800, sink));
        }
        ASSERT_TRUE((*stretch)->finish(sink));
        EXPECT_NEAR(out.size(), tone.size() / speed, kRate * 0.05) << speed;
        std::vector<float> middle(out.begin() + out.size() / 4, out.end() - out.size() / 4);
        EXPECT_NEAR(frequency(middle, kRate), 440, 15) << speed;
    }
}

}  // namespace
}  // namespace quillo::media
