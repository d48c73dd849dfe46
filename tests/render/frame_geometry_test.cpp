#include "render/frame_geometry.h"

#include <gtest/gtest.h>

namespace quillo::render {
namespace {

void expectRect(const Rect& actual, const Rect& expected) {
    EXPECT_NEAR(actual.x, expected.x, 1e-9);
    EXPECT_NEAR(actual.y, expected.y, 1e-9);
    EXPECT_NEAR(actual.width, expected.width, 1e-9);
    EXPECT_NEAR(actual.height, expected.height, 1e-9);
}

TEST(FrameGeometry, BackdropInsetsFitsAndRounds) {
    // A 1920×1080 recording on a square 1080 canvas with the default style.
    FrameLayout layout = frameLayout(project::FrameStyle{}, {0, 0, 1080, 1080}, {1920, 1080});
    expectRect(layout.content, {86, 86, 908, 908});  // round(1080 × 0.08) = 86
    expectRect(layout.picture, {86, 86 + (908 - 510.75) / 2, 908, 510.75});
    EXPECT_NEAR(layout.radius, 21.6, 1e-9);
    EXPECT_NEAR(layout.shadowSigma, 27, 1e-9);
    EXPECT_NEAR(layout.shadowOffset, 16.2, 1e-9);
    project::FrameStyle flat{0, 0, 0, false};
    FrameLayout plain = frameLayout(flat, {0, 0, 1920, 1080}, {1920, 1080});
    expectRect(plain.picture, {0, 0, 1920, 1080});
    EXPECT_EQ(plain.shadowSigma, 0);
}

TEST(FrameGeometry, BackgroundIndexIsHeldToTheTable) {
    EXPECT_EQ(backdropFor(9).name, "Paper");
    EXPECT_EQ(backdropFor(-1).name, "Violet");
    EXPECT_EQ(backdropFor(1).name, "Ocean");
}

TEST(ZoomView, CentredFocusShowsTheMiddle) {
    ZoomView view = zoomView(2, {0.5, 0.5}, {0, 0, 1920, 1080});
    expectRect(view.visible, {480, 270, 960, 540});
}

TEST(ZoomView, CornerFocusShowsTheCornerAndNothingOutside) {
    expectRect(zoomView(2, {0, 0}, {0, 0, 1920, 1080}).visible, {0, 0, 960, 540});
    expectRect(zoomView(3, {1, 1}, {0, 0, 1920, 1080}).visible, {1280, 720, 640, 360});
    // Focus near an edge sits off-centre instead of showing beyond the edge.
    ZoomView nearRight = zoomView(2, {0.95, 0.5}, {0, 0, 1000, 1000});
    EXPECT_NEAR(nearRight.visible.x + nearRight.visible.width, 1000, 1e-9);
}

TEST(ZoomView, NoMagnificationLeavesTheFrame) {
    expectRect(zoomView(1, {0.9, 0.1}, {10, 20, 100, 50}).visible, {10, 20, 100, 50});
    expectRect(zoomView(0.5, {0.9, 0.1}, {10, 20, 100, 50}).visible, {10, 20, 100, 50});
}

TEST(FrameGeometry, FitCentresEitherWay) {
    expectRect(fit({100, 50}, {0, 0, 200, 200}), {0, 50, 200, 100});
    expectRect(fit({50, 100}, {0, 0, 200, 200}), {50, 0, 100, 200});
}

}  // namespace
}  // namespace quillo::render
