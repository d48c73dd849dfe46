#include "media/gif_writer.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::media {
namespace {

using testing::TempFolder;

constexpr int kWidth = 96;
constexpr int kHeight = 64;

// A smooth colour field with a small square that moves with `n`.
std::vector<uint8_t> picture(int n) {
    std::vector<uint8_t> bgra(kWidth * kHeight * 4);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            uint8_t* p = &bgra[(y * kWidth + x) * 4];
            bool square = x >= 10 + n && x < 20 + n && y >= 20 && y < 30;
            p[0] = square ? 20 : static_cast<uint8_t>(x * 255 / kWidth);
            p[1] = square ? 200 : static_cast<uint8_t>(y * 255 / kHeight);
            p[2] = square ? 240 : 120;
            p[3] = 255;
        }
    }
    return bgra;
}

TEST(GifWriter, EveryFrameCountsAndTheTimingAddsUp) {
    TempFolder folder;
    auto writer = GifWriter::create(folder / "a.gif", kWidth, kHeight, 12);
    ASSERT_TRUE(writer);
    // 13 frames: moving, then still (repeated frames still count), then moving again.
    for (int n : {0, 1, 2, 3, 3, 3, 3, 3, 4, 5, 6, 7, 8}) {
        ASSERT_TRUE((*writer)->add(picture(n).data(), kWidth * 4));
    }
    ASSERT_TRUE((*writer)->finish());
    auto info = nlohmann::json::parse(testing::probe(folder / "a.gif", "-count_frames"));
    EXPECT_EQ(info["streams"][0]["nb_read_frames"], "13");
    EXPECT_EQ(info["streams"][0]["width"], kWidth);
    // 13 frames at 12 fps: 108 centiseconds in all (8 or 9 each).
    EXPECT_NEAR(std::stod(info["format"]["duration"].get<std::string>()), 1.08, 0.011);
    // Loops for ever: the application extension with a loop count of 0.
    std::string bytes = testing::commandOutput("cat '" + (folder / "a.gif").string() + "'");
    auto loop = bytes.find("NETSCAPE2.0");
    ASSERT_NE(loop, std::string::npos);
    EXPECT_EQ(bytes.substr(loop + 11, 4), std::string("\x03\x01\x00\x00", 4));
}

TEST(GifWriter, DecodedFramesMatchTheInput) {
    TempFolder folder;
    auto writer = GifWriter::create(folder / "a.gif", kWidth, kHeight, 10);
    ASSERT_TRUE(writer);
    for (int n = 0; n < 6; ++n) {
        ASSERT_TRUE((*writer)->add(picture(n * 3).data(), kWidth * 4));
    }
    ASSERT_TRUE((*writer)->finish());
    // Every frame, composed over the ones before, is close to what was added.
    std::string rgb = testing::commandOutput("ffmpeg -v error -i '" + (folder / "a.gif").string() +
                                             "' -f rawvideo -pix_fmt rgb24 -");
    ASSERT_EQ(rgb.size(), static_cast<size_t>(6 * kWidth * kHeight * 3));
    for (int n = 0; n < 6; ++n) {
        std::vector<uint8_t> expected = picture(n * 3);
        double error = 0;
        for (int i = 0; i < kWidth * kHeight; ++i) {
            const auto* got =
                reinterpret_cast<const uint8_t*>(rgb.data()) + (n * kWidth * kHeight + i) * 3;
            error += std::abs(got[0] - expected[i * 4 + 2]) +
                     std::abs(got[1] - expected[i * 4 + 1]) + std::abs(got[2] - expected[i * 4]);
        }
        EXPECT_LT(error / (kWidth * kHeight * 3), 3.0) << "frame " << n;
    }
}

TEST(GifWriter, FailuresLeaveNoFile) {
    TempFolder folder;
    auto missing = GifWriter::create(folder / "no" / "a.gif", kWidth, kHeight, 12);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().message, "Could not create the GIF.");
    {
        auto abandoned = GifWriter::create(folder / "b.gif", kWidth, kHeight, 12);
        ASSERT_TRUE(abandoned);
        ASSERT_TRUE((*abandoned)->add(picture(0).data(), kWidth * 4));
    }
    EXPECT_FALSE(std::filesystem::exists(folder / "b.gif"));
}

}  // namespace
}  // namespace quillo::media
