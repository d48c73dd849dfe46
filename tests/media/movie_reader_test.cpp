#include "media/movie_reader.h"

#include <cmath>

#include <gtest/gtest.h>

#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::media {
namespace {

using testing::TempFolder;

// Movies made once for the suite: frame n of "counter.mp4" (10 fps, 3 s, lossless) is a flat
// grey of luma 16 + 6n, so a frame's value tells which frame it is; its sound is a 440 Hz tone
// at half scale for 1.5 s, then silence.
class MovieReaderTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = new TempFolder();
        testing::ffmpeg(
            "-f lavfi -i color=black:s=64x48:r=10:d=3,geq=lum='16+6*N':cb=128:cr=128 "
            "-f lavfi -i aevalsrc='0.5*sin(2*PI*440*t)':s=48000:d=1.5 "
            "-af apad=whole_dur=3 -c:v libx264 -qp 0 -g 10 -bf 2 -pix_fmt yuv420p -c:a aac "
            "-t 3",
            counter());
        testing::ffmpeg("-f lavfi -i sine=duration=1 -c:a aac", *s_folder / "sound.m4a");
    }
    static void TearDownTestSuite() { delete s_folder; }
    static std::filesystem::path counter() { return *s_folder / "counter.mp4"; }

    // Which frame a decoded picture is, from its grey level (video luma 16–235 is stretched
    // to 0–255 in Gray8).
    static int frameNumber(const VideoFrame& frame) {
        double level = frame.pixels[frame.pixels.size() / 2];
        return static_cast<int>(std::lround(level / (6 * 255.0 / 219.0)));
    }

    static TempFolder* s_folder;
};

TempFolder* MovieReaderTest::s_folder = nullptr;

TEST_F(MovieReaderTest, ReportsTheMoviesFacts) {
    auto reader = MovieReader::open(counter());
    ASSERT_TRUE(reader) << reader.error().message;
    const MovieInfo& info = (*reader)->info();
    EXPECT_NEAR(info.duration, 3.0, 0.001);
    EXPECT_EQ(info.videoSize, (Size{64, 48}));
    EXPECT_NEAR(info.frameRate, 10, 0.001);
    EXPECT_TRUE(info.hasSound);
}

TEST_F(MovieReaderTest, FrameAtTimeIsTheFrameShownThen) {
    auto reader = MovieReader::open(counter());
    ASSERT_TRUE(reader);
    const FrameFormat gray{0, 0, PixelFormat::Gray8};
    struct Case {
        double t;
        int frame;
    };
    // Forward, on boundaries, backwards (seeking), before the start and past the end.
    for (Case c : {Case{0, 0},
                   {0.05, 0},
                   {0.1, 1},
                   {0.3, 3},
                   {0.2999, 2},
                   {1.0, 10},
                   {2.95, 29},
                   {0.45, 4},
                   {-1, 0},
                   {2.5, 25},
                   {99, 29},
                   {1.7, 17},
                   {1.75, 17}}) {
        auto frame = (*reader)->frame(c.t, gray);
        ASSERT_TRUE(frame) << frame.error().message;
        EXPECT_EQ(frameNumber(*frame), c.frame) << "t = " << c.t;
        EXPECT_NEAR(frame->time, c.frame / 10.0, 1e-6) << "t = " << c.t;
    }
}

TEST_F(MovieReaderTest, ScalesToTheRequestedSizeAndFormat) {
    auto reader = MovieReader::open(counter());
    ASSERT_TRUE(reader);
    auto bgra = (*reader)->frame(1.0, {32, 0, PixelFormat::BGRA});
    ASSERT_TRUE(bgra);
    EXPECT_EQ(bgra->width, 32);
    EXPECT_EQ(bgra->height, 24);
    EXPECT_EQ(bgra->stride, 128);
    ASSERT_EQ(bgra->pixels.size(), 32u * 24u * 4u);
    // A grey picture has equal colour channels and an opaque alpha.
    EXPECT_NEAR(bgra->pixels[0], bgra->pixels[2], 2);
    EXPECT_EQ(bgra->pixels[3], 255);
    auto own = (*reader)->frame(1.0, {});
    ASSERT_TRUE(own);
    EXPECT_EQ(own->width, 64);
    EXPECT_EQ(own->height, 48);
}

TEST_F(MovieReaderTest, FastModeSweepsForwardInOrder) {
    auto reader = MovieReader::open(counter(), DecodeMode::Fast);
    ASSERT_TRUE(reader);
    double last = -1;
    for (double t = 0; t < 3; t += 0.2) {
        auto frame = (*reader)->frame(t, {16, 0, PixelFormat::Gray8});
        ASSERT_TRUE(frame);
        EXPECT_LE(frame->time, t + 1e-6);
        EXPECT_GE(frame->time, last);
        EXPECT_GT(frame->time, t - 0.35) << "a frame near t, at most a few frames early";
        last = frame->time;
    }
}

TEST_F(MovieReaderTest, SoundComesAsPCMAtTheRequestedRate) {
    auto tone = MovieReader::sound(counter(), {8000, 1}, 0.25, 1.25);
    ASSERT_TRUE(tone) << tone.error().message;
    EXPECT_NEAR(static_cast<double>(tone->size()), 8000, 2);
    double sum = 0;
    for (float s : *tone) {
        sum += s * s;
    }
    EXPECT_NEAR(std::sqrt(sum / tone->size()), 0.5 / std::sqrt(2.0), 0.03);

    auto quiet = MovieReader::sound(counter(), {8000, 2}, 2.0, 2.5);
    ASSERT_TRUE(quiet);
    EXPECT_NEAR(static_cast<double>(quiet->size()), 8000, 4);  // 0.5 s, two channels
    for (float s : *quiet) {
        EXPECT_LT(std::fabs(s), 0.01);
    }
}

TEST_F(MovieReaderTest, ASinkMayStopEarly) {
    size_t calls = 0;
    auto read = MovieReader::readSound(counter(), {48000, 2}, 0, 3, [&](const float*, size_t) {
        ++calls;
        return false;
    });
    EXPECT_TRUE(read);
    EXPECT_EQ(calls, 1u);
}

TEST_F(MovieReaderTest, BadFilesGivePlainMessages) {
    TempFolder folder;
    folder.write("broken.mp4", "this is not a movie");
    auto broken = MovieReader::open(folder / "broken.mp4");
    ASSERT_FALSE(broken);
    EXPECT_EQ(broken.error().message, "The movie “broken.mp4” could not be read.");
    auto missing = MovieReader::open(folder / "missing.mp4");
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().message, "The movie “missing.mp4” could not be read.");
    auto soundOnly = MovieReader::open(*s_folder / "sound.m4a");
    ASSERT_FALSE(soundOnly);
    EXPECT_EQ(soundOnly.error().message, "The movie “sound.m4a” has no video track.");
}

}  // namespace
}  // namespace quillo::media
