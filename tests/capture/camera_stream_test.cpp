// The camera's file as the recorder writes it, from a libavdevice test source standing in for the
// device: the full picture, and beside it a small copy that readers of small pictures decode.

#include "capture/camera_stream.h"

#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "media/movie_info.h"
#include "media/movie_reader.h"
#include "support/temp_folder.h"

namespace quillo::capture {
namespace {

namespace fs = std::filesystem;

// Records `frames` frames of a lavfi test pattern of `size` ("WxH") into `file`, as fast as the
// source delivers them.
void recordPattern(const std::string& size, int frames, const fs::path& file) {
    CameraDevice device{"testsrc2=size=" + size + ":rate=30", "Test camera", "lavfi", {}};
    auto stream = CameraStream::open(device);
    ASSERT_TRUE(stream) << stream.error().message;
    ASSERT_TRUE((*stream)->next());
    ASSERT_TRUE((*stream)->startFile(file));
    for (int n = 0; n < frames; ++n) {
        ASSERT_TRUE((*stream)->writeFrame());
        ASSERT_TRUE((*stream)->next());
    }
    ASSERT_TRUE((*stream)->finishFile());
}

// Mean absolute difference of two BGRA frames of the same size.
double difference(const media::VideoFrame& a, const media::VideoFrame& b) {
    double sum = 0;
    for (int y = 0; y < a.height; ++y) {
        for (int x = 0; x < a.width * 4; ++x) {
            sum += std::abs(a.pixels[static_cast<size_t>(y) * a.stride + x] -
                            b.pixels[static_cast<size_t>(y) * b.stride + x]);
        }
    }
    return sum / (a.width * a.height * 4.0);
}

TEST(CameraFile, ALargePictureGetsASmallCopyThatReadersOfSmallPicturesDecode) {
    testing::TempFolder dir;
    const fs::path file = dir.path() / "camera.mov";
    recordPattern("1280x720", 20, file);

    auto info = media::readMovieInfo(file);
    ASSERT_TRUE(info) << info.error().message;
    EXPECT_EQ(info->videoSize, (Size{1280, 720})) << "the full picture is the movie's own";

    auto full = media::MovieReader::open(file);
    auto small = media::MovieReader::open(file, media::DecodeMode::Exact, {500, 280});
    auto tooBig = media::MovieReader::open(file, media::DecodeMode::Exact, {700, 400});
    ASSERT_TRUE(full && small && tooBig);
    for (double t : {0.0, 10 / 30.0, 19 / 30.0}) {
        auto picture = (*full)->frame(t, {});
        auto copy = (*small)->frame(t, {});
        auto fromFull = (*tooBig)->frame(t, {});
        ASSERT_TRUE(picture && copy && fromFull);
        EXPECT_EQ(copy->width, 640);
        EXPECT_EQ(copy->height, 360);
        EXPECT_EQ(fromFull->width, 1280) << "a copy smaller than asked for is never used";
        EXPECT_DOUBLE_EQ(copy->time, picture->time) << "both pictures keep the camera's timing";
        // The copy shows the same picture: the full one at the copy's size differs only by
        // coding and scaling.
        auto scaled = (*full)->frame(t, {640, 360});
        ASSERT_TRUE(scaled);
        EXPECT_LT(difference(*copy, *scaled), 6.0) << "at " << t;
    }
}

TEST(CameraFile, ASmallCameraIsWrittenOnce) {
    testing::TempFolder dir;
    const fs::path file = dir.path() / "camera.mov";
    recordPattern("640x480", 5, file);
    auto reader = media::MovieReader::open(file, media::DecodeMode::Exact, {100, 100});
    ASSERT_TRUE(reader);
    auto frame = (*reader)->frame(0, {});
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->width, 640);
    EXPECT_EQ(frame->height, 480);
}

}  // namespace
}  // namespace quillo::capture
