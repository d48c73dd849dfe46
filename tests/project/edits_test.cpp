#include "project/edits.h"

#include <cmath>
#include <functional>
#include <limits>

#include <gtest/gtest.h>

namespace quillo::project {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

const char* const kTrim = "The trim range is invalid.";
const char* const kZooms = "Zoom sections must be within the recording and must not overlap.";
const char* const kSegments =
    "Cuts and speed-ups must be within the recording and must not overlap.";
const char* const kNothing = "Nothing would be left of the clip.";
const char* const kFrame = "The background style is invalid.";
const char* const kCamera = "The camera size must be 0.1–0.5 and its corner radius 0–0.5.";
const char* const kRedactions = "Redactions must be within the recording and the frame.";

// One row: a change to a fresh 10-second recipe, and the message expected (none = valid).
struct Row {
    const char* name;
    std::function<void(Edits&)> change;
    const char* message;
    double duration = 10;
};

Redaction box(double start, double end, double x, double width) {
    Redaction r;
    r.start = start;
    r.end = end;
    r.x = x;
    r.y = 0.1;
    r.width = width;
    r.height = 0.2;
    return r;
}

class Validation : public ::testing::TestWithParam<Row> {};

TEST_P(Validation, GivesTheFirstFailingRulesMessage) {
    const Row& row = GetParam();
    Edits edits = Edits::fresh(10);
    row.change(edits);
    auto result = edits.validate(row.duration);
    if (row.message == nullptr) {
        EXPECT_TRUE(result) << result.error().message;
    } else {
        ASSERT_FALSE(result);
        EXPECT_EQ(result.error().message, row.message);
    }
}

std::vector<Row> rows() {
    return {
        // --- trim and version
        {"fresh", [](Edits&) {}, nullptr},
        {"version2", [](Edits& e) { e.version = 2; }, kTrim},
        {"endAtTolerance", [](Edits& e) { e.trimEnd = 10.05; }, nullptr},
        {"endPastTolerance", [](Edits& e) { e.trimEnd = 10.06; }, kTrim},
        {"negativeStart", [](Edits& e) { e.trimStart = -0.001; }, kTrim},
        {"emptyRange", [](Edits& e) { e.trimStart = 10; }, kTrim},
        {"nanEnd", [](Edits& e) { e.trimEnd = kNaN; }, kTrim},
        {"negativeDuration", [](Edits& e) { e.trimEnd = 1; }, kTrim, -1},
        {"infiniteDuration", [](Edits&) {}, kTrim, kInf},
        // --- zooms
        {"touchingZoomsInAnyOrder",
         [](Edits& e) {
             e.zooms = {{4, 6, 2, 0.5, 0.5, {}}, {2, 4, 2, 0.5, 0.5, {}}};
         },
         nullptr},
        {"overlappingZooms",
         [](Edits& e) {
             e.zooms = {{2, 4.001, 2, 0.5, 0.5, {}}, {4, 6, 2, 0.5, 0.5, {}}};
         },
         kZooms},
        {"zoomScaleBounds",
         [](Edits& e) {
             e.zooms = {{0, 1, 1, 0, 0, {}}, {1, 2, 4, 1, 1, {}}};
         },
         nullptr},
        {"zoomScaleAbove4",
         [](Edits& e) {
             e.zooms = {{0, 1, 4.01, 0.5, 0.5, {}}};
         },
         kZooms},
        {"zoomScaleBelow1",
         [](Edits& e) {
             e.zooms = {{0, 1, 0.99, 0.5, 0.5, {}}};
         },
         kZooms},
        {"zoomFocusOutside",
         [](Edits& e) {
             e.zooms = {{0, 1, 2, 1.01, 0.5, {}}};
         },
         kZooms},
        {"zoomNanFocus",
         [](Edits& e) {
             e.zooms = {{0, 1, 2, 0.5, kNaN, {}}};
         },
         kZooms},
        {"zoomPastEnd",
         [](Edits& e) {
             e.zooms = {{9, 10.06, 2, 0.5, 0.5, {}}};
         },
         kZooms},
        {"zoomEmpty",
         [](Edits& e) {
             e.zooms = {{3, 3, 2, 0.5, 0.5, {}}};
         },
         kZooms},
        // --- segments
        {"speed1",
         [](Edits& e) {
             e.segments = {{{2, 4, 1}}};
         },
         nullptr},
        {"speed16",
         [](Edits& e) {
             e.segments = {{{2, 4, 16}}};
         },
         nullptr},
        {"speedHalf",
         [](Edits& e) {
             e.segments = {{{2, 4, 0.5}}};
         },
         kSegments},
        {"speed17",
         [](Edits& e) {
             e.segments = {{{2, 4, 17}}};
         },
         kSegments},
        {"touchingSegments",
         [](Edits& e) {
             e.segments = {{{4, 6, 2}, {2, 4, 0}}};
         },
         nullptr},
        {"overlappingSegments",
         [](Edits& e) {
             e.segments = {{{2, 4, 0}, {3.9, 6, 2}}};
         },
         kSegments},
        {"segmentPastEnd",
         [](Edits& e) {
             e.segments = {{{9, 10.06, 0}}};
         },
         kSegments},
        // --- something must be left
        {"cutEverything",
         [](Edits& e) {
             e.segments = {{{0, 10, 0}}};
         },
         kNothing},
        {"sixteenTimesShortClip",
         [](Edits& e) {
             e.trimEnd = 0.8;
             e.segments = {{{0, 0.8, 16}}};
         },
         kNothing},
        {"justEnoughLeft",
         [](Edits& e) {
             e.segments = {{{0, 9.94, 0}}};
         },
         nullptr},
        {"badZoomBeforeNothingLeft",  // order of checks: zooms come before the kept time
         [](Edits& e) {
             e.zooms = {{0, 1, 5, 0.5, 0.5, {}}};
             e.segments = {{{0, 10, 0}}};
         },
         kZooms},
        // --- frame
        {"frameBounds",
         [](Edits& e) {
             e.frame = FrameStyle{5, 0.25, 0.1, false};
         },
         nullptr},
        {"frameIndex6",
         [](Edits& e) {
             e.frame = FrameStyle{6, 0.08, 0.02, true};
         },
         kFrame},
        {"frameNegativeIndex",
         [](Edits& e) {
             e.frame = FrameStyle{-1, 0.08, 0.02, true};
         },
         kFrame},
        {"framePadding",
         [](Edits& e) {
             e.frame = FrameStyle{0, 0.26, 0.02, true};
         },
         kFrame},
        {"frameCorner",
         [](Edits& e) {
             e.frame = FrameStyle{0, 0.08, 0.11, true};
         },
         kFrame},
        // --- camera
        {"cameraBounds",
         [](Edits& e) {
             e.camera = CameraStyle{};
             e.camera->size = 0.1;
             e.camera->cornerRadius = 0.5;
         },
         nullptr},
        {"cameraTooBig",
         [](Edits& e) {
             e.camera = CameraStyle{};
             e.camera->size = 0.51;
         },
         kCamera},
        {"cameraNanCorner",
         [](Edits& e) {
             e.camera = CameraStyle{};
             e.camera->cornerRadius = kNaN;
         },
         kCamera},
        // --- redactions
        {"redactionAtEdgeTolerance", [](Edits& e) { e.redactions = {{box(1, 2, 0.9, 0.1001)}}; },
         nullptr},
        {"redactionOutsideFrame", [](Edits& e) { e.redactions = {{box(1, 2, 0.9, 0.2)}}; },
         kRedactions},
        {"redactionPastEnd", [](Edits& e) { e.redactions = {{box(9, 10.06, 0, 0.5)}}; },
         kRedactions},
        {"redactionTwoComponentColour",
         [](Edits& e) {
             Redaction r = box(1, 2, 0, 0.5);
             r.color = std::vector<double>{0.5, 0.5};
             e.redactions = {{r}};
         },
         kRedactions},
        {"redactionStrength",
         [](Edits& e) {
             Redaction r = box(1, 2, 0, 0.5);
             r.strength = 1.01;
             e.redactions = {{r}};
         },
         kRedactions},
        {"frameBeforeCamera",  // order of checks: frame before camera before redactions
         [](Edits& e) {
             e.frame = FrameStyle{9, 0.08, 0.02, true};
             e.camera = CameraStyle{};
             e.camera->size = 2;
             e.redactions = {{box(1, 2, 0.9, 0.5)}};
         },
         kFrame},
    };
}

INSTANTIATE_TEST_SUITE_P(Edits, Validation, ::testing::ValuesIn(rows()),
                         [](const auto& info) { return std::string(info.param.name); });

// --- zoom amount and viewport

TEST(ZoomSection, ShortZoomReachesFullScaleOnlyAtItsMiddle) {
    ZoomSection zoom{2, 2.6, 3, 0.5, 0.5, {}};
    EXPECT_DOUBLE_EQ(zoom.amount(2.3), 3);
    EXPECT_LT(zoom.amount(2.29), 3);
    EXPECT_NEAR(zoom.amount(2.15), 2, 1e-9);  // halfway up a 0.3 s ramp: smoothstep(0.5) = 0.5
    EXPECT_DOUBLE_EQ(zoom.amount(2), 1);
    EXPECT_DOUBLE_EQ(zoom.amount(1.99), 1);
    EXPECT_DOUBLE_EQ(zoom.amount(2.61), 1);
}

TEST(ZoomSection, LongZoomHoldsBetweenHalfSecondRamps) {
    ZoomSection zoom{0, 10, 2, 0.5, 0.5, {}};
    EXPECT_DOUBLE_EQ(zoom.amount(0.5), 2);
    EXPECT_DOUBLE_EQ(zoom.amount(5), 2);
    EXPECT_DOUBLE_EQ(zoom.amount(9.75), 1.5);
    EXPECT_DOUBLE_EQ(ZoomSection({4, 4, 2, 0.5, 0.5, {}}).amount(4), 1);  // no length, no zoom
}

TEST(ZoomSection, ViewportSlidesToStayInsideThePicture) {
    Rect v = ZoomSection{0, 1, 2, 0.95, 0.5, {}}.viewport();
    EXPECT_DOUBLE_EQ(v.x, 0.5);
    EXPECT_DOUBLE_EQ(v.y, 0.25);
    EXPECT_DOUBLE_EQ(v.width, 0.5);
    Rect full = ZoomSection{0, 1, 2, 0.1, 0.1, {}}.viewport(0.5);  // below 1 reads as 1
    EXPECT_EQ(full, (Rect{0, 0, 1, 1}));
}

// --- aspect and composition

TEST(AspectRatio, OutputSizeGrowsAroundTheRecording) {
    EXPECT_EQ(outputSize(AspectRatio::Portrait9x16, {1440, 900}), (Size{1440, 2560}));
    EXPECT_EQ(outputSize(AspectRatio::Wide16x9, {1440, 900}), (Size{1600, 900}));
    EXPECT_EQ(outputSize(AspectRatio::Square1x1, {1441, 901}), (Size{1442, 1442}));
    EXPECT_EQ(outputSize(AspectRatio::Original, {1441, 901}), (Size{1441, 901}));
    EXPECT_EQ(outputSize(AspectRatio::Classic4x3, {0, 900}), (Size{0, 900}));
    EXPECT_EQ(aspectLabel(AspectRatio::Original), "Auto");
    EXPECT_EQ(aspectLabel(AspectRatio::Portrait9x16), "9:16");
}

TEST(Edits, NeedsCompositionForVisibleChangesOnly) {
    Edits edits = Edits::fresh(10);
    EXPECT_FALSE(edits.needsComposition());
    edits.cursor = CursorStyle{};
    edits.aspect = AspectRatio::Original;
    edits.clickHighlights = false;
    edits.captions = CaptionStyle{};
    edits.captions->visible = false;
    edits.redactions = std::vector<Redaction>{};
    edits.segments = {{{1, 2, 0}}};
    EXPECT_FALSE(edits.needsComposition());

    for (auto change : std::vector<std::function<void(Edits&)>>{
             [](Edits& e) { e.aspect = AspectRatio::Square1x1; },
             [](Edits& e) { e.clickHighlights = true; },
             [](Edits& e) { e.captions->visible = true; }, [](Edits& e) { e.frame = FrameStyle{}; },
             [](Edits& e) {
                 e.reframe = Reframe{1080, 1920, true};
             },
             [](Edits& e) {
                 e.zooms = {{0, 1, 2, 0.5, 0.5, {}}};
             },
             [](Edits& e) { e.redactions = {{box(1, 2, 0, 0.5)}}; }}) {
        Edits changed = edits;
        change(changed);
        EXPECT_TRUE(changed.needsComposition());
    }
}

}  // namespace
}  // namespace quillo::project
