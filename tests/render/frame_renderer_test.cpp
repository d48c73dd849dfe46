#include "render/frame_renderer.h"

#include <cmath>
#include <cstdlib>

#include <gtest/gtest.h>

#include "render/cursor_renderer.h"

namespace quillo::render {
namespace {

using project::Edits;

// A picture whose red rises left to right and green top to bottom, so any pixel tells where in
// the source it came from, and bilinear scaling of it is exact.
Image ramp(int width, int height) {
    Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uint8_t* p = image.view().pixel(x, y);
            p[0] = 40;
            p[1] = static_cast<uint8_t>(std::lround(255.0 * y / (height - 1)));
            p[2] = static_cast<uint8_t>(std::lround(255.0 * x / (width - 1)));
            p[3] = 255;
        }
    }
    return image;
}

// Source x (in pixels) that produced an output pixel, read back from its red.
double sourceX(const Image& image, int x, int y, int sourceWidth) {
    return image.view().pixel(x, y)[2] / 255.0 * (sourceWidth - 1);
}
double sourceY(const Image& image, int x, int y, int sourceHeight) {
    return image.view().pixel(x, y)[1] / 255.0 * (sourceHeight - 1);
}

Image render(const Edits& edits, Image screen, double t, int width, int height,
             std::shared_ptr<const CursorRenderer> cursor = nullptr) {
    FrameRenderer renderer(edits,
                           {static_cast<double>(screen.width), static_cast<double>(screen.height)},
                           {static_cast<double>(width), static_cast<double>(height)}, cursor);
    Image out(width, height);
    renderer.render(screen.view(), t, out.view());
    return out;
}

Edits zoomed(double x, double y) {
    Edits edits = Edits::fresh(10);
    edits.zooms.push_back({2, 6, 2.0, x, y, false});
    return edits;
}

void expectColour(const Image& image, int x, int y, const project::Colour& colour) {
    const uint8_t* p = image.view().pixel(x, y);
    EXPECT_NEAR(p[2], colour.red * 255, 3) << "red at " << x << "," << y;
    EXPECT_NEAR(p[1], colour.green * 255, 3) << "green at " << x << "," << y;
    EXPECT_NEAR(p[0], colour.blue * 255, 3) << "blue at " << x << "," << y;
}

TEST(FrameRenderer, FullZoomShowsTheViewportScaledUp) {
    const int w = 256, h = 144;
    Image out = render(zoomed(0.5, 0.5), ramp(w, h), 4, w, h);
    // At 2× around the centre the output shows source x 64 … 192 and y 36 … 108.
    for (int x : {0, 50, 128, 200, 255}) {
        EXPECT_NEAR(sourceX(out, x, 70, w), w / 4.0 + (x + 0.5) / 2 - 0.5, 1.5) << x;
    }
    for (int y : {0, 70, 143}) {
        EXPECT_NEAR(sourceY(out, 100, y, h), h / 4.0 + (y + 0.5) / 2 - 0.5, 1.5) << y;
    }
    // Before and after the zoom the frame is the source itself.
    Image before = render(zoomed(0.5, 0.5), ramp(w, h), 1, w, h);
    EXPECT_EQ(before.pixels, ramp(w, h).pixels);
}

TEST(FrameRenderer, CornerFocusShowsTheCornerAndNothingBeyond) {
    const int w = 256, h = 144;
    Image out = render(zoomed(0, 0), ramp(w, h), 4, w, h);
    EXPECT_NEAR(sourceX(out, 0, 0, w), 0, 1);
    EXPECT_NEAR(sourceY(out, 0, 0, h), 0, 1);
    EXPECT_NEAR(sourceX(out, w - 1, 0, w), w / 2.0, 1.5);
    EXPECT_NEAR(sourceY(out, 0, h - 1, h), h / 2.0, 1.5);
    // The far corner too: clamped, never past the edge.
    Image far = render(zoomed(1, 1), ramp(w, h), 4, w, h);
    EXPECT_NEAR(sourceX(far, w - 1, h - 1, w), w - 1, 1);
    EXPECT_NEAR(sourceY(far, w - 1, h - 1, h), h - 1, 1);
}

TEST(FrameRenderer, BackdropGradientPaddingAndRoundedCorners) {
    const int w = 400, h = 300;
    Edits edits = Edits::fresh(10);
    edits.frame = project::FrameStyle{2, 0.1, 0.05, false};
    Image out = render(edits, ramp(w, h), 1, w, h);
    const auto& colours = project::kBackgrounds[2];
    // Corner to corner: the top colour at the top left, the bottom colour at the bottom right.
    expectColour(out, 0, 0, colours.top);
    expectColour(out, w - 1, h - 1, colours.bottom);

    // Inset by round(300 × 0.1) = 30; a 400×300 picture fits in 340×240 as 320×240 at x 40.
    const int left = 40, top = 30, right = 360, bottom = 270;
    EXPECT_NEAR(sourceX(out, left + 20, top + 120, w), 0 + 20 * 400.0 / 320, 2.5);
    EXPECT_NEAR(sourceX(out, right - 1, top + 120, w), w - 1, 2.5);
    // Just outside the picture's edges is backdrop (blue 0.40 · 255 of "Sunset", not 40).
    EXPECT_GT(out.view().pixel(left - 1, top + 120)[0], 80);
    EXPECT_GT(out.view().pixel(left + 100, bottom)[0], 80);
    // Radius 300 × 0.05 = 15: the very corner of the picture is backdrop, 15 px in is picture.
    EXPECT_GT(out.view().pixel(left, top)[0], 60);
    EXPECT_NEAR(out.view().pixel(left + 15, top + 15)[0], 40, 2);
    EXPECT_NEAR(out.view().pixel(right - 16, bottom - 16)[0], 40, 2);
}

TEST(FrameRenderer, ShadowDarkensBelowThePicture) {
    const int w = 400, h = 300;
    Edits edits = Edits::fresh(10);
    edits.frame = project::FrameStyle{5, 0.1, 0.02, true};
    Image shadowed = render(edits, ramp(w, h), 1, w, h);
    edits.frame->shadow = false;
    Image plain = render(edits, ramp(w, h), 1, w, h);
    // Under the bottom edge (y 270 on) the shadow, shifted down, is darker than to the side.
    EXPECT_LT(shadowed.view().pixel(200, 272)[1] + 20, plain.view().pixel(200, 272)[1]);
    EXPECT_EQ(shadowed.view().pixel(2, 2)[1], plain.view().pixel(2, 2)[1]);
}

TEST(FrameRenderer, TallCanvasKeepsTheWholePicture) {
    Edits edits = Edits::fresh(10);
    edits.aspect = project::AspectRatio::Portrait9x16;
    // 192×108 in a 192×342 canvas: the picture at full width, centred, black around it.
    Image out = render(edits, ramp(192, 108), 1, 192, 342);
    EXPECT_EQ(out.view().pixel(96, 10)[3], 255);
    EXPECT_EQ(out.view().pixel(96, 10)[0], 0);
    EXPECT_NEAR(sourceX(out, 191, 171, 192), 191, 1.5);
    EXPECT_NEAR(sourceY(out, 0, 117, 108), 0, 1.5);
}

// A 6×10 cursor picture: red, with its hot spot at (1, 2) (an arrow's shape).
std::shared_ptr<const CursorRenderer> redCursor(std::optional<bool> textBeam = std::nullopt) {
    project::CursorTrack track;
    track.samples = {{0, 0.25, 0.5, 1}, {10, 0.25, 0.5, 1}};
    double width = textBeam ? 12 : 6;  // wider than tall: not an arrow but role "other"
    track.shapes = std::vector<project::CursorShape>{{1, width, 10, 1, 2}};
    Image picture(static_cast<int>(width), 10);
    for (size_t i = 0; i < picture.pixels.size(); i += 4) {
        picture.pixels[i + 2] = picture.pixels[i + 3] = 255;
    }
    std::map<int64_t, Image> shapes;
    shapes.emplace(1, std::move(picture));
    return std::make_shared<const CursorRenderer>(track, std::move(shapes));
}

TEST(CursorRenderer, ShapesLandWithTheirHotSpotOnTheTrack) {
    Edits edits = Edits::fresh(10);
    edits.cursor = project::CursorStyle{true, 1, 0, false, std::nullopt};
    Image screen(100, 80);
    Image out = render(edits, screen, 5, 100, 80, redCursor());
    // The pointer is at (25, 40); the picture's (1, 2) lies there, so it spans x 24–29, y 38–47.
    auto red = [&](int x, int y) { return out.view().pixel(x, y)[2] > 200; };
    EXPECT_TRUE(red(24, 38));
    EXPECT_TRUE(red(29, 47));
    EXPECT_FALSE(red(23, 40));
    EXPECT_FALSE(red(30, 40));
    EXPECT_FALSE(red(25, 37));
    EXPECT_FALSE(red(25, 48));

    // Size 2 doubles it about the hot spot: x 23–34, y 36–55 (edges smoothed by the scaling).
    edits.cursor->size = 2;
    Image big = render(edits, Image(100, 80), 5, 100, 80, redCursor());
    EXPECT_GT(big.view().pixel(24, 37)[2], 200);
    EXPECT_GT(big.view().pixel(33, 54)[2], 200);
    EXPECT_EQ(big.view().pixel(36, 45)[2], 0);
    EXPECT_EQ(big.view().pixel(28, 57)[2], 0);

    // Hidden: nothing.
    edits.cursor->visible = false;
    Image hidden = render(edits, Image(100, 80), 5, 100, 80, redCursor());
    EXPECT_EQ(hidden.pixels, Image(100, 80).pixels);
}

TEST(CursorRenderer, ThemesReplaceArrowsButNotOtherShapes) {
    ASSERT_GE(CursorTheme::all().size(), 7u) << resourceFolder();
    for (const char* id : {"violet", "midnight", "paper", "sketch", "neon", "prism", "gold"}) {
        const CursorTheme* theme = CursorTheme::named(id);
        ASSERT_NE(theme, nullptr) << id;
        EXPECT_FALSE(theme->arrow.image.empty()) << id;
        EXPECT_NE(theme->art(ShapeRole::Hand), nullptr) << id;
        EXPECT_EQ(theme->art(ShapeRole::Other), nullptr) << id;
    }
    Edits edits = Edits::fresh(10);
    edits.cursor = project::CursorStyle{true, 1, 0, false, "midnight"};
    Image themed = render(edits, Image(100, 80), 5, 100, 80, redCursor());
    // The theme's arrow is drawn instead of the red picture, with its tip on the pointer: its
    // dark body below and right of (25, 40), nothing above and left where the red would be.
    EXPECT_LT(themed.view().pixel(24, 38)[2], 50);
    EXPECT_EQ(themed.view().pixel(28, 49)[3], 255);
    EXPECT_LT(themed.view().pixel(28, 49)[2], 60);

    // An unknown theme draws the recorded shape; so does a text beam under any theme.
    edits.cursor->theme = "no-such-theme";
    Image unknown = render(edits, Image(100, 80), 5, 100, 80, redCursor());
    EXPECT_GT(unknown.view().pixel(25, 40)[2], 200);
    edits.cursor->theme = "gold";
    Image beam = render(edits, Image(100, 80), 5, 100, 80, redCursor(true));
    EXPECT_GT(beam.view().pixel(30, 40)[2], 200);
}

TEST(CursorRenderer, ClickRingsOnlyWithHighlightsAndATrack) {
    project::CursorTrack track;
    track.samples = {{0, 0.5, 0.5, std::nullopt}, {10, 0.5, 0.5, std::nullopt}};
    track.clicks = {{5, 0.5, 0.5, std::nullopt}};
    auto cursor = std::make_shared<const CursorRenderer>(track, std::map<int64_t, Image>{});
    Edits edits = Edits::fresh(10);
    edits.cursor = project::CursorStyle{false, 1.4, 0, false, std::nullopt};
    edits.clickHighlights = true;
    Image screen(100, 100);
    // Hidden cursor: drawsCursor is false, so no rings either.
    EXPECT_EQ(render(edits, screen, 5.1, 100, 100, cursor).pixels, screen.pixels);
    edits.cursor->visible = true;
    Image ringed = render(edits, screen, 5.1, 100, 100, cursor);
    EXPECT_GT(ringed.view().pixel(35, 50)[3], 0);  // inside the ring, left of the arrow
    edits.clickHighlights = false;
    Image plain = render(edits, screen, 5.1, 100, 100, cursor);
    EXPECT_EQ(plain.view().pixel(35, 50)[3], 0);
    // No track: nothing at all.
    EXPECT_EQ(render(edits, screen, 5.1, 100, 100, nullptr).pixels, screen.pixels);
}

}  // namespace
}  // namespace quillo::render
