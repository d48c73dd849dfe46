// The webcam in finished frames: layouts on landscape, portrait and square canvases, masks,
// mirroring, the shadow, and the footage's timing against the recording.

#include <cmath>

#include <gtest/gtest.h>

#include "media/movie_reader.h"
#include "project/camera_sync.h"
#include "project/project_library.h"
#include "render/exporter.h"
#include "render/frame_renderer.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::render {
namespace {

namespace fs = std::filesystem;
using project::CameraLayout;
using project::CameraShape;
using project::CameraStyle;
using project::Edits;

Image solid(int width, int height, uint8_t blue, uint8_t green, uint8_t red) {
    Image image(width, height);
    for (size_t i = 0; i < image.pixels.size(); i += 4) {
        image.pixels[i] = blue;
        image.pixels[i + 1] = green;
        image.pixels[i + 2] = red;
        image.pixels[i + 3] = 255;
    }
    return image;
}

bool isRed(const Image& image, int x, int y) {
    const uint8_t* p = image.view().pixel(x, y);
    return p[2] > 200 && p[1] < 40 && p[0] < 40;
}
bool isBlue(const Image& image, int x, int y) {
    const uint8_t* p = image.view().pixel(x, y);
    return p[0] > 200 && p[1] < 40 && p[2] < 40;
}

// A square-cornered camera without shadow, so its edges can be probed exactly.
CameraStyle plainStyle(CameraLayout layout) {
    CameraStyle style;
    style.layout = layout;
    style.shape = CameraShape::Rounded;
    style.cornerRadius = 0;
    style.shadow = false;
    style.mirror = false;
    return style;
}

Image renderWith(const Edits& edits, int width, int height, std::optional<Size> camera,
                 const Image& cameraPicture) {
    Image screen = solid(1280, 720, 0, 0, 255);
    FrameRenderer renderer(edits, {1280, 720},
                           {static_cast<double>(width), static_cast<double>(height)}, nullptr,
                           camera);
    Image out(width, height);
    renderer.render(screen.view(), cameraPicture.view(), renderer.moment(0), out.view());
    return out;
}

// Probes a rectangle's edges from 3 pixels inside and outside, at the middle of each side.
template <class Inside>
void expectArea(const Image& out, const Rect& r, Inside inside, const std::string& what) {
    const int x0 = static_cast<int>(std::ceil(r.x)), y0 = static_cast<int>(std::ceil(r.y));
    const int x1 = static_cast<int>(std::floor(r.x + r.width)) - 1;
    const int y1 = static_cast<int>(std::floor(r.y + r.height)) - 1;
    const int mx = (x0 + x1) / 2, my = (y0 + y1) / 2;
    for (auto [x, y] : {std::pair{x0 + 3, my}, {x1 - 3, my}, {mx, y0 + 3}, {mx, y1 - 3}}) {
        EXPECT_TRUE(inside(out, x, y)) << what << " inside at " << x << "," << y;
    }
    for (auto [x, y] : {std::pair{x0 - 3, my}, {x1 + 3, my}, {mx, y0 - 3}, {mx, y1 + 3}}) {
        if (x >= 0 && y >= 0 && x < out.width && y < out.height) {
            EXPECT_FALSE(inside(out, x, y)) << what << " outside at " << x << "," << y;
        }
    }
}

void expectRect(const std::optional<Rect>& actual, const std::optional<Rect>& expected,
                const std::string& what) {
    ASSERT_EQ(actual.has_value(), expected.has_value()) << what;
    if (actual) {
        EXPECT_NEAR(actual->x, expected->x, 1e-6) << what;
        EXPECT_NEAR(actual->y, expected->y, 1e-6) << what;
        EXPECT_NEAR(actual->width, expected->width, 1e-6) << what;
        EXPECT_NEAR(actual->height, expected->height, 1e-6) << what;
    }
}

TEST(CameraComposition, EveryLayoutOnEveryCanvasShapeDrawsWhereItsFramesSay) {
    // A 1280×720 screen, size 0.28, no padding; rectangles worked out by hand from the layout
    // rules (corner side round(0.28·s), margin round(0.03·s), side gap round(0.03·s)).
    struct Case {
        int width, height;
        CameraLayout layout;
        std::optional<Rect> screen, camera;
    };
    const Rect wide{0, 0, 1280, 720}, tall{0, 656.25, 1080, 607.5}, square{0, 236.25, 1080, 607.5};
    const std::vector<Case> cases = {
        {1280, 720, CameraLayout::TopLeft, wide, Rect{22, 22, 202, 202}},
        {1280, 720, CameraLayout::TopRight, wide, Rect{1056, 22, 202, 202}},
        {1280, 720, CameraLayout::BottomLeft, wide, Rect{22, 496, 202, 202}},
        {1280, 720, CameraLayout::BottomRight, wide, Rect{1056, 496, 202, 202}},
        {1280, 720, CameraLayout::SideLeft, Rect{380, 106.875, 900, 506.25},
         Rect{0, 106.875, 358, 506.25}},
        {1280, 720, CameraLayout::SideRight, Rect{0, 106.875, 900, 506.25},
         Rect{922, 106.875, 358, 506.25}},
        {1280, 720, CameraLayout::CameraOnly, std::nullopt, wide},
        {1280, 720, CameraLayout::ScreenOnly, wide, std::nullopt},
        {1080, 1920, CameraLayout::TopLeft, tall, Rect{32, 32, 302, 302}},
        {1080, 1920, CameraLayout::TopRight, tall, Rect{746, 32, 302, 302}},
        {1080, 1920, CameraLayout::BottomLeft, tall, Rect{32, 1586, 302, 302}},
        {1080, 1920, CameraLayout::BottomRight, tall, Rect{746, 1586, 302, 302}},
        // Portrait: stacked, the camera 0.28 of the height above or below the screen.
        {1080, 1920, CameraLayout::SideLeft, Rect{0, 941, 1080, 607.5}, Rect{0, 371, 1080, 538}},
        {1080, 1920, CameraLayout::SideRight, Rect{0, 371, 1080, 607.5},
         Rect{0, 1010.5, 1080, 538}},
        {1080, 1920, CameraLayout::CameraOnly, std::nullopt, tall},
        {1080, 1920, CameraLayout::ScreenOnly, tall, std::nullopt},
        {1080, 1080, CameraLayout::TopLeft, square, Rect{32, 32, 302, 302}},
        {1080, 1080, CameraLayout::TopRight, square, Rect{746, 32, 302, 302}},
        {1080, 1080, CameraLayout::BottomLeft, square, Rect{32, 746, 302, 302}},
        {1080, 1080, CameraLayout::BottomRight, square, Rect{746, 746, 302, 302}},
        {1080, 1080, CameraLayout::SideLeft, Rect{334, 330.1875, 746, 419.625},
         Rect{0, 330.1875, 302, 419.625}},
        {1080, 1080, CameraLayout::SideRight, Rect{0, 330.1875, 746, 419.625},
         Rect{778, 330.1875, 302, 419.625}},
        {1080, 1080, CameraLayout::CameraOnly, std::nullopt, square},
        {1080, 1080, CameraLayout::ScreenOnly, square, std::nullopt},
    };
    const Image camera = solid(640, 480, 255, 0, 0);
    for (const Case& c : cases) {
        const std::string what = std::to_string(c.width) + "x" + std::to_string(c.height) + " " +
                                 std::string(rawValue(c.layout));
        Edits edits = Edits::fresh(10);
        edits.camera = plainStyle(c.layout);
        const Rect canvas{0, 0, static_cast<double>(c.width), static_cast<double>(c.height)};
        auto frames = edits.camera->frames(canvas, {1280, 720}, 0);
        expectRect(frames.screen, c.screen, what + " screen");
        expectRect(frames.camera, c.camera, what + " camera");

        Image out = renderWith(edits, c.width, c.height, Size{640, 480}, camera);
        if (c.camera) {
            expectArea(out, *c.camera, isBlue, what + " camera");
        } else {
            for (int y = 0; y < c.height; y += 37) {
                for (int x = 0; x < c.width; x += 37) {
                    ASSERT_FALSE(isBlue(out, x, y))
                        << what << " shows a camera at " << x << "," << y;
                }
            }
        }
        if (c.screen && (!c.camera || !c.camera->width || c.layout == CameraLayout::SideLeft ||
                         c.layout == CameraLayout::SideRight)) {
            expectArea(out, *c.screen, isRed, what + " screen");
        }
        if (!c.screen) {
            EXPECT_FALSE(isRed(out, c.width / 2, 3)) << what;
        }
    }
}

TEST(CameraComposition, PaddingSizeLimitsAndTheCircle) {
    CameraStyle style = plainStyle(CameraLayout::BottomRight);
    const Rect canvas{0, 0, 1280, 720};
    // Padding 0.1: content inset by 72; the corner margin is half the padding, from the content.
    auto padded = style.frames(canvas, {1280, 720}, 0.1);
    expectRect(padded.screen, Rect{128, 72, 1024, 576}, "padded screen");
    expectRect(padded.camera, Rect{970, 410, 202, 202}, "padded camera");
    // Sizes beyond 0.1–0.5 draw as the nearest limit.
    style.size = 0.05;
    EXPECT_EQ(style.frames(canvas, {1280, 720}, 0).camera->width, 72);
    style.size = 0.9;
    EXPECT_EQ(style.frames(canvas, {1280, 720}, 0).camera->width, 360);
    // A circle takes the square of a side tile's shorter side, centred in it.
    style.size = 0.28;
    style.layout = CameraLayout::SideLeft;
    style.shape = CameraShape::Circle;
    auto circle = style.frames(canvas, {1280, 720}, 0);
    expectRect(circle.camera, Rect{0, 181, 358, 358}, "circle");
    EXPECT_DOUBLE_EQ(style.radius(*circle.camera), 179);
    style.shape = CameraShape::Rounded;
    style.cornerRadius = 0.25;
    EXPECT_DOUBLE_EQ(style.radius({0, 0, 400, 200}), 50);
}

TEST(CameraComposition, MasksMirrorAndShadow) {
    // Left half green, right half blue.
    Image camera = solid(400, 400, 255, 0, 0);
    for (int y = 0; y < 400; ++y) {
        for (int x = 0; x < 200; ++x) {
            uint8_t* p = camera.view().pixel(x, y);
            p[0] = 0;
            p[1] = 255;
        }
    }
    auto isGreen = [](const Image& image, int x, int y) {
        const uint8_t* p = image.view().pixel(x, y);
        return p[1] > 200 && p[0] < 40 && p[2] < 40;
    };
    Edits edits = Edits::fresh(10);
    edits.camera = plainStyle(CameraLayout::TopLeft);  // at (22, 22), side 202
    edits.camera->shape = CameraShape::Circle;
    Image circle = renderWith(edits, 1280, 720, Size{400, 400}, camera);
    EXPECT_TRUE(isRed(circle, 24, 24));     // the square's corner lies outside the circle
    EXPECT_TRUE(isGreen(circle, 60, 123));  // left half of the circle, not mirrored
    EXPECT_TRUE(isBlue(circle, 186, 123));  // right half
    EXPECT_TRUE(isGreen(circle, 123 - 70, 123 - 70));  // inside the circle on its diagonal
    EXPECT_TRUE(isRed(circle, 123 - 75, 123 - 75));    // outside it

    edits.camera->shape = CameraShape::Rounded;
    edits.camera->cornerRadius = 0.25;  // radius 50.5
    edits.camera->mirror = true;
    Image rounded = renderWith(edits, 1280, 720, Size{400, 400}, camera);
    EXPECT_TRUE(isRed(rounded, 24, 24));
    EXPECT_TRUE(isBlue(rounded, 24, 123));  // mirrored: blue on the left
    EXPECT_TRUE(isGreen(rounded, 221, 123));
    EXPECT_TRUE(isBlue(rounded, 22 + 20, 22 + 20));  // inside the rounded corner
    EXPECT_TRUE(isBlue(rounded, 22 + 60, 23));       // the straight top edge

    // The shadow darkens the screen just below the camera; without it that pixel stays red.
    const int below = 22 + 202 + 3;
    EXPECT_EQ(rounded.view().pixel(123, below)[2], 255);
    edits.camera->shadow = true;
    Image shadowed = renderWith(edits, 1280, 720, Size{400, 400}, camera);
    EXPECT_LT(shadowed.view().pixel(123, below)[2], 235);
    EXPECT_EQ(shadowed.view().pixel(600, 400)[2], 255);  // far away, untouched
}

TEST(CameraComposition, ScreenOnlyOrNoFootageDrawsTheScreenAlone) {
    Edits plain = Edits::fresh(10);
    const Image camera = solid(64, 48, 255, 0, 0);
    Image alone = renderWith(plain, 640, 360, std::nullopt, camera);
    Edits screenOnly = plain;
    screenOnly.camera = plainStyle(CameraLayout::ScreenOnly);
    EXPECT_EQ(renderWith(screenOnly, 640, 360, Size{64, 48}, camera).pixels, alone.pixels);
    // A side layout without footage neither draws a camera nor moves the screen.
    Edits side = plain;
    side.camera = plainStyle(CameraLayout::SideLeft);
    EXPECT_EQ(renderWith(side, 640, 360, std::nullopt, camera).pixels, alone.pixels);
}

// The footage's clock against the recording's: 2 s of camera, blue for a second then green,
// started 0.5 s before the screen. Recording time t shows camera time t + 0.5; before and after
// the footage the nearest frame stands; cuts move the camera with the picture.
TEST(CameraComposition, FootageFollowsItsTimingAndTheTimeMap) {
    testing::TempFolder library;
    auto project = project::ProjectLibrary(library.path()).create({"window", 1, "Demo", ""});
    ASSERT_TRUE(project);
    const fs::path folder = project->directory;
    testing::ffmpeg(
        "-f lavfi -i color=c=gray:size=320x180:rate=30:duration=4 -pix_fmt yuv420p "
        "-c:v libx264 -preset ultrafast",
        folder / "recording.mp4");
    testing::ffmpeg(
        "-f lavfi -i color=c=blue:size=160x120:rate=30:duration=2 -vf "
        "\"drawbox=enable='gte(t,1)':c=lime:t=fill\" -pix_fmt yuv420p -c:v libx264 "
        "-preset ultrafast -f mov",
        folder / "camera.mov");
    ASSERT_TRUE((project::CameraSync{100, 100.5}.save(folder)));

    Edits edits = Edits::fresh(4);
    edits.camera = plainStyle(CameraLayout::CameraOnly);
    auto blueAt = [&](const Edits& recipe, double t) {
        auto plan = renderPlan(folder, recipe);
        EXPECT_TRUE(plan) << plan.error().message;
        auto frame = renderFrame(*plan, t);
        EXPECT_TRUE(frame);
        const uint8_t* p = frame->view().pixel(frame->width / 2, frame->height / 2);
        EXPECT_TRUE(p[0] > 200 || p[1] > 200) << "neither blue nor green at " << t;
        return p[0] > 200;
    };
    EXPECT_TRUE(blueAt(edits, 0.2));   // camera 0.7
    EXPECT_FALSE(blueAt(edits, 0.7));  // camera 1.2
    EXPECT_FALSE(blueAt(edits, 3.5));  // past the footage: its last frame
    ASSERT_TRUE((project::CameraSync{101, 100}.save(folder)));
    EXPECT_TRUE(blueAt(edits, 0.5));  // before the footage: its first frame

    // A cut of the first 1.5 s: the export's first frame is recording time 1.5, camera 1.5.
    ASSERT_TRUE((project::CameraSync{100, 100}.save(folder)));
    edits.segments = std::vector<project::TimeSegment>{{0, 1.5, 0}};
    auto plan = renderPlan(folder, edits);
    ASSERT_TRUE(plan);
    const fs::path movie = library.path() / "cut.mp4";
    ASSERT_TRUE(exportMovie(*plan, movie, false, nullptr, {}));
    auto reader = media::MovieReader::open(movie);
    ASSERT_TRUE(reader);
    auto first = (*reader)->frame(0, {});
    ASSERT_TRUE(first);
    const uint8_t* p =
        first->pixels.data() + first->stride * (first->height / 2) + (first->width / 2) * 4;
    EXPECT_GT(p[1], 200) << "the first frame should show the camera's green second";

    // While only the camera moves over a still screen, each new camera frame reaches the movie.
    edits.segments.reset();
    edits.camera = plainStyle(CameraLayout::BottomRight);
    plan = renderPlan(folder, edits);
    ASSERT_TRUE(plan);
    ASSERT_TRUE(exportMovie(*plan, movie, false, nullptr, {}));
    reader = media::MovieReader::open(movie);
    ASSERT_TRUE(reader);
    // A 320×180 canvas: the bubble of side 50 sits at (265, 125).
    for (auto [t, blue] : {std::pair{0.5, true}, {1.5, false}, {3.5, false}}) {
        auto frame = (*reader)->frame(t, {});
        ASSERT_TRUE(frame);
        const uint8_t* bubble = frame->pixels.data() + frame->stride * 150 + 290 * 4;
        EXPECT_EQ(bubble[0] > 200, blue) << t;
        EXPECT_EQ(bubble[1] > 200, !blue) << t;
        const uint8_t* screen = frame->pixels.data() + frame->stride * 60 + 100 * 4;
        EXPECT_NEAR(screen[1], 128, 12) << t;
    }
}

}  // namespace
}  // namespace quillo::render
