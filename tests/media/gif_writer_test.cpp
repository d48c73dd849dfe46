#include "media/gif_writer.h"

#include <cmath>
#include <csignal>
#include <sstream>
#include <sys/resource.h>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::media {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;
using Picture = std::vector<uint8_t>;

constexpr int kWidth = 96;
constexpr int kHeight = 64;

// A field of thousands of colours with two squares in opposite corners that move apart with
// `n`, so the changed box spans the picture with still pixels inside it. `grey` >= 0 gives a
// flat picture of that level instead.
Picture picture(int n, int grey = -1) {
    Picture bgra(kWidth * kHeight * 4);
    for (int y = 0, i = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x, i += 4) {
            bool square = (x >= 4 + n && x < 12 + n && y >= 4 && y < 12) ||
                          (x >= 80 - n && x < 88 - n && y >= 50 && y < 58);
            bgra[i] = grey >= 0 ? grey : square ? 20 : x * 255 / kWidth;
            bgra[i + 1] = grey >= 0 ? grey : square ? 200 : y * 255 / kHeight;
            bgra[i + 2] = grey >= 0 ? grey : square ? 240 : (x + y) * 255 / (kWidth + kHeight);
            bgra[i + 3] = 255;
        }
    }
    return bgra;
}

void write(const fs::path& file, double fps, const std::vector<Picture>& pictures) {
    auto writer = GifWriter::create(file, kWidth, kHeight, fps);
    ASSERT_TRUE(writer) << writer.error().detail;
    for (const Picture& p : pictures) {
        ASSERT_TRUE((*writer)->add(p.data(), kWidth * 4));
    }
    ASSERT_TRUE((*writer)->finish());
}

// Frames as players show them, each composed over the ones before, in RGB.
std::string decoded(const fs::path& file) {
    return testing::commandOutput("ffmpeg -nostdin -v error -i '" + file.string() +
                                  "' -f rawvideo -pix_fmt rgb24 -");
}

// The mean difference per channel of a decoded frame from its picture, after averaging both
// over `block`×`block` squares, which shows whether dithering kept gradients in tone.
double meanError(const std::string& rgb, int frame, const Picture& expected, int block = 1) {
    const auto* got = reinterpret_cast<const uint8_t*>(rgb.data()) + frame * kWidth * kHeight * 3;
    double error = 0;
    for (int by = 0; by < kHeight; by += block) {
        for (int bx = 0; bx < kWidth; bx += block) {
            for (int c = 0; c < 3; ++c) {
                int difference = 0;
                for (int i = by * kWidth + bx, y = 0; y < block; ++y, i += kWidth - block) {
                    for (int x = 0; x < block; ++x, ++i) {
                        difference += got[i * 3 + c] - expected[i * 4 + 2 - c];
                    }
                }
                error += std::abs(difference);
            }
        }
    }
    return error / (kWidth * kHeight * 3);
}

// --- frames and timing

TEST(GifWriter, EveryAddedFrameIsAFrameAndItLoopsForEver) {
    TempFolder folder;
    std::vector<Picture> pictures;  // moving, four repeats of a still picture, moving again
    for (int n : {0, 1, 2, 3, 3, 3, 3, 3, 4, 5, 6, 7, 8}) {
        pictures.push_back(picture(n));
    }
    write(folder / "a.gif", 12, pictures);
    auto info = nlohmann::json::parse(testing::probe(folder / "a.gif", "-count_frames"));
    EXPECT_EQ(info["streams"][0]["nb_read_frames"], "13");
    std::string bytes = testing::commandOutput("cat '" + (folder / "a.gif").string() + "'");
    EXPECT_EQ(bytes.substr(0, 6), "GIF89a");
    auto loop = bytes.find("NETSCAPE2.0");
    ASSERT_NE(loop, std::string::npos);
    EXPECT_EQ(bytes.substr(loop + 11, 5), std::string("\x03\x01\x00\x00\x00", 5));  // count 0
}

TEST(GifWriter, DelaysCarryTheRoundingSoTheTotalKeepsTime) {
    struct Row {
        double fps;
        int frames;
        int total;  // centiseconds
    };
    // 60 fps is held to the 2 cs players honour.
    for (Row row :
         {Row{12, 13, 108}, Row{30000.0 / 1001, 31, 103}, Row{40, 7, 18}, Row{60, 5, 10}}) {
        SCOPED_TRACE(row.fps);
        TempFolder folder;
        write(folder / "a.gif", row.fps, std::vector<Picture>(row.frames, picture(0)));
        std::istringstream delays(
            testing::commandOutput("ffprobe -v error -show_entries packet=duration -of csv=p=0 '" +
                                   (folder / "a.gif").string() + "'"));
        int count = 0, total = 0;
        for (int delay = 0; delays >> delay; ++count, total += delay) {
            EXPECT_GE(delay, 2);
            EXPECT_LT(std::abs(delay - 100 / row.fps), row.fps > 50 ? 2 : 1);
        }
        EXPECT_EQ(count, row.frames);
        EXPECT_EQ(total, row.total);
    }
}

// --- pictures

TEST(GifWriter, DecodedFramesMatchTheInput) {
    TempFolder folder;
    std::vector<Picture> pictures;
    for (int n = 0; n < 6; ++n) {
        pictures.push_back(picture(n * 3));
    }
    write(folder / "a.gif", 10, pictures);
    std::string rgb = decoded(folder / "a.gif");
    ASSERT_EQ(rgb.size(), 6u * kWidth * kHeight * 3);
    // 256 colours for thousands leave about 4 levels of error a pixel (FFmpeg's palettegen and
    // paletteuse: 3.4 to 3.9); a wrong channel order or transparent index costs tens. Dithered,
    // 4×4 squares average out to within 0.7 levels; without dithering they are 1.05 off.
    for (int n = 0; n < 6; ++n) {
        EXPECT_LT(meanError(rgb, n, pictures[n]), 5.0) << "frame " << n;
        EXPECT_LT(meanError(rgb, n, pictures[n], 4), 0.9) << "frame " << n;
    }
}

TEST(GifWriter, SlowDriftIsWrittenOnceItAddsUp) {
    TempFolder folder;
    std::vector<Picture> pictures;  // one level a frame is within the tolerance of the last
    for (int level = 100; level <= 112; ++level) {
        pictures.push_back(picture(0, level));
    }
    write(folder / "a.gif", 12, pictures);
    std::string rgb = decoded(folder / "a.gif");
    ASSERT_EQ(rgb.size(), pictures.size() * kWidth * kHeight * 3);
    EXPECT_LE(meanError(rgb, 12, pictures.back()), 2.0);
}

TEST(GifWriter, RepeatsNoiseAndSmallChangesCostLittle) {
    TempFolder folder;
    std::vector<Picture> still(11, picture(0));  // ten repeats, then ten frames of slight noise
    std::vector<Picture> moving;
    for (int n = 0; n < 10; ++n) {
        still.push_back(picture(0));
        for (size_t i = 0; i < still.back().size(); i += 4) {
            still.back()[i + (i / 4 + n) % 3] ^= 1;
        }
        moving.push_back(picture(n));
    }
    write(folder / "one.gif", 12, {picture(0)});
    write(folder / "still.gif", 12, still);
    write(folder / "moving.gif", 12, moving);
    const auto first = static_cast<double>(fs::file_size(folder / "one.gif"));
    EXPECT_LT((fs::file_size(folder / "still.gif") - first) / 20, 40);  // bytes a frame
    EXPECT_LT((fs::file_size(folder / "moving.gif") - first) / 9, first / 10);
}

// --- failures

TEST(GifWriter, FailuresSayWhatFailedAndLeaveNoFile) {
    TempFolder folder;
    auto missing = GifWriter::create(folder / "no" / "a.gif", kWidth, kHeight, 12);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().message, "Could not create the GIF.");
    EXPECT_FALSE(missing.error().detail.empty());
    EXPECT_FALSE(GifWriter::create(folder / "a.gif", 0, kHeight, 12));
    EXPECT_FALSE(GifWriter::create(folder / "a.gif", kWidth, kHeight, NAN));
    {
        auto abandoned = GifWriter::create(folder / "a.gif", kWidth, kHeight, 12);
        ASSERT_TRUE(abandoned && (*abandoned)->add(picture(0).data(), kWidth * 4));
        auto empty = GifWriter::create(folder / "b.gif", kWidth, kHeight, 12);
        ASSERT_TRUE(empty);
        auto finished = (*empty)->finish();  // with no frames
        ASSERT_FALSE(finished);
        EXPECT_EQ(finished.error().message, "Could not finish the GIF.");
    }
    // A full disk: files may not grow past 1 kB, and the first frame needs more.
    rlimit saved{};
    getrlimit(RLIMIT_FSIZE, &saved);
    rlimit small{1024, saved.rlim_max};
    auto handler = std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    auto full = GifWriter::create(folder / "c.gif", kWidth, kHeight, 12);
    Result<void> written = full ? (*full)->add(picture(0).data(), kWidth * 4) : Result<void>();
    written = written && full ? (*full)->finish() : written;
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, handler);
    ASSERT_TRUE(full && !written);
    EXPECT_EQ(written.error().message, "Could not finish the GIF.");
    EXPECT_FALSE((*full)->add(picture(1).data(), kWidth * 4));
    full->reset();
    EXPECT_TRUE(fs::is_empty(folder.path()));
}

}  // namespace
}  // namespace quillo::media
