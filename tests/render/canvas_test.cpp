#include "render/canvas.h"

#include <gtest/gtest.h>

namespace quillo::render {
namespace {

using project::Edits;

Edits reframed(double width, double height, bool follow) {
    Edits edits = Edits::fresh(10);
    edits.reframe = project::Reframe{width, height, follow};
    return edits;
}

// --- canvas and render size

TEST(Canvas, AspectGrowsAroundTheWholePicture) {
    Edits edits = Edits::fresh(10);
    edits.aspect = project::AspectRatio::Portrait9x16;
    EXPECT_EQ(canvasSize(edits, {1920, 1080}), (Size{1920, 3414}));
    edits.aspect.reset();
    EXPECT_EQ(canvasSize(edits, {1921, 1081}), (Size{1921, 1081}));
}

TEST(Canvas, ReframeCropsWhenFollowingAndGrowsWhenFitting) {
    EXPECT_EQ(canvasSize(reframed(1080, 1920, true), {1920, 1080}), (Size{608, 1080}));
    EXPECT_EQ(canvasSize(reframed(1080, 1920, false), {1920, 1080}), (Size{1920, 3414}));
    // A wider target than the picture: following keeps the width, fitting keeps the height.
    EXPECT_EQ(canvasSize(reframed(16, 9, true), {1080, 1080}), (Size{1080, 608}));
    EXPECT_EQ(canvasSize(reframed(16, 9, false), {1080, 1080}), (Size{1920, 1080}));
    // A reframe without a usable shape falls back to the aspect.
    EXPECT_EQ(canvasSize(reframed(0, 1920, true), {1920, 1080}), (Size{1920, 1080}));
}

TEST(Canvas, RenderSizeHoldsTheLargerSideToTheLimit) {
    Edits edits = Edits::fresh(10);
    EXPECT_EQ(renderSize(edits, {3840, 2160}, 1920), (Size{1920, 1080}));
    EXPECT_EQ(renderSize(edits, {1280, 720}, 1920), (Size{1280, 720}));  // never scaled up
    EXPECT_EQ(renderSize(edits, {1001, 3}, 100), (Size{100, 2}));        // at least 2, even
    EXPECT_EQ(renderSize(edits, {3840, 2160}, 1920, Size{1080, 1920}), (Size{1080, 1920}));
}

// --- reframe helpers

TEST(Reframe, WindowAndCropStayInsideTheArea) {
    Rect area{0, 0, 1920, 1080};
    EXPECT_EQ(reframeWindow(9.0 / 16.0, area), (Rect{0, 0, 607.5, 1080}));
    EXPECT_EQ(reframeCrop(9.0 / 16.0, {960, 540}, area), (Rect{656.25, 0, 607.5, 1080}));
    EXPECT_EQ(reframeCrop(9.0 / 16.0, {10, 540}, area).x, 0);
    EXPECT_EQ(reframeCrop(9.0 / 16.0, {1910, 540}, area).x, 1920 - 607.5);
    EXPECT_EQ(reframeCanvas(1, {1920, 1080}), (Size{1920, 1920}));
}

TEST(Reframe, CameraGlidesAfterTheFocus) {
    auto fixed = [](double) { return std::optional<Point>(Point{0.2, 0.7}); };
    Point still = reframeCamera(5, fixed);
    EXPECT_NEAR(still.x, 0.2, 1e-12);
    EXPECT_NEAR(still.y, 0.7, 1e-12);
    EXPECT_EQ(reframeCamera(5, [](double) { return std::optional<Point>(); }), (Point{0.5, 0.5}));

    // The focus jumps from the left to the right at time 10.
    auto jump = [](double t) { return std::optional<Point>(Point{t < 10 ? 0.1 : 0.9, 0.5}); };
    EXPECT_LT(reframeCamera(10.1, jump).x, 0.25);         // just after: still near the left
    EXPECT_NEAR(reframeCamera(12.9, jump).x, 0.9, 0.01);  // long after: there
    double previous = 0;
    for (double t = 10; t < 11; t += 0.1) {  // no overshoot, always moving towards it
        double x = reframeCamera(t, jump).x;
        EXPECT_GE(x, previous);
        EXPECT_LE(x, 0.9);
        previous = x;
    }
    // Focus outside the frame is held to it.
    EXPECT_NEAR(reframeCamera(5,
                              [](double) {
                                  return std::optional<Point>(Point{2, -1});
                              })
                    .x,
                1, 1e-12);
}

}  // namespace
}  // namespace quillo::render
