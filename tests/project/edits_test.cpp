#include "project/edits.h"

#include <cmath>
#include <functional>
#include <limits>

#include <gtest/gtest.h>

#include "project/edits_json.h"

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

// One row: JSON merged into a fresh 10-second recipe, and the message expected (none = valid).
struct Row {
    const char* name;
    const char* patch;
    const char* message;
    double duration = 10;
};

class Validation : public ::testing::TestWithParam<Row> {};

TEST_P(Validation, GivesTheFirstFailingRulesMessage) {
    const Row& row = GetParam();
    Json json = toJson(Edits::fresh(10));
    json.update(Json::parse(row.patch));
    auto edits = editsFromJson(json);
    ASSERT_TRUE(edits) << edits.error().message;
    auto result = edits->validate(row.duration);
    if (row.message == nullptr) {
        EXPECT_TRUE(result) << result.error().message;
    } else {
        ASSERT_FALSE(result);
        EXPECT_EQ(result.error().message, row.message);
    }
}

// Zoom, segment and redaction records in short.
#define ZOOM(s, e, k, x, y) \
    "{\"start\":" #s ",\"end\":" #e ",\"scale\":" #k ",\"x\":" #x ",\"y\":" #y "}"
#define SEG(s, e, v) "{\"start\":" #s ",\"end\":" #e ",\"speed\":" #v "}"
#define BOX(s, e, x, w, extra)                                              \
    "{\"start\":" #s ",\"end\":" #e ",\"x\":" #x ",\"y\":0.1,\"width\":" #w \
    ",\"height\":0.2" extra "}"
#define FRAME(b, p, c)                                                          \
    "{\"frame\":{\"background\":" #b ",\"padding\":" #p ",\"cornerRadius\":" #c \
    ",\"shadow\":"                                                              \
    "true}}"
#define CAMERA(size, corner)                                                    \
    "{\"camera\":{\"layout\":\"top-left\",\"shape\":\"circle\",\"size\":" #size \
    ",\"cornerRadius\":" #corner ",\"mirror\":true,\"shadow\":true}}"

const Row kRows[] = {
    // --- trim and version
    {"fresh", "{}", nullptr},
    {"version2", R"({"version":2})", kTrim},
    {"endAtTolerance", R"({"trimEnd":10.05})", nullptr},
    {"endPastTolerance", R"({"trimEnd":10.06})", kTrim},
    {"negativeStart", R"({"trimStart":-0.001})", kTrim},
    {"emptyRange", R"({"trimStart":10})", kTrim},
    {"negativeDuration", R"({"trimEnd":1})", kTrim, -1},
    {"infiniteDuration", "{}", kTrim, kInf},
    // --- zooms
    {"touchingZoomsInAnyOrder",
     "{\"zooms\":[" ZOOM(4, 6, 2, 0.5, 0.5) "," ZOOM(2, 4, 2, 0.5, 0.5) "]}", nullptr},
    {"overlappingZooms",
     "{\"zooms\":[" ZOOM(2, 4.001, 2, 0.5, 0.5) "," ZOOM(4, 6, 2, 0.5, 0.5) "]}", kZooms},
    {"zoomScaleBounds", "{\"zooms\":[" ZOOM(0, 1, 1, 0, 0) "," ZOOM(1, 2, 4, 1, 1) "]}", nullptr},
    {"zoomScaleAbove4", "{\"zooms\":[" ZOOM(0, 1, 4.01, 0.5, 0.5) "]}", kZooms},
    {"zoomScaleBelow1", "{\"zooms\":[" ZOOM(0, 1, 0.99, 0.5, 0.5) "]}", kZooms},
    {"zoomFocusOutside", "{\"zooms\":[" ZOOM(0, 1, 2, 1.01, 0.5) "]}", kZooms},
    {"zoomPastEnd", "{\"zooms\":[" ZOOM(9, 10.06, 2, 0.5, 0.5) "]}", kZooms},
    {"zoomEmpty", "{\"zooms\":[" ZOOM(3, 3, 2, 0.5, 0.5) "]}", kZooms},
    // --- segments
    {"speed1", "{\"segments\":[" SEG(2, 4, 1) "]}", nullptr},
    {"speed16", "{\"segments\":[" SEG(2, 4, 16) "]}", nullptr},
    {"speedHalf", "{\"segments\":[" SEG(2, 4, 0.5) "]}", kSegments},
    {"speed17", "{\"segments\":[" SEG(2, 4, 17) "]}", kSegments},
    {"touchingSegments", "{\"segments\":[" SEG(4, 6, 2) "," SEG(2, 4, 0) "]}", nullptr},
    {"overlappingSegments", "{\"segments\":[" SEG(2, 4, 0) "," SEG(3.9, 6, 2) "]}", kSegments},
    {"segmentPastEnd", "{\"segments\":[" SEG(9, 10.06, 0) "]}", kSegments},
    // --- something must be left
    {"cutEverything", "{\"segments\":[" SEG(0, 10, 0) "]}", kNothing},
    {"sixteenTimesShortClip", "{\"trimEnd\":0.8,\"segments\":[" SEG(0, 0.8, 16) "]}", kNothing},
    {"justEnoughLeft", "{\"segments\":[" SEG(0, 9.94, 0) "]}", nullptr},
    // Order of checks: zooms before the kept time.
    {"badZoomBeforeNothingLeft",
     "{\"zooms\":[" ZOOM(0, 1, 5, 0.5, 0.5) "],\"segments\":[" SEG(0, 10, 0) "]}", kZooms},
    // --- frame and camera
    {"frameBounds", FRAME(5, 0.25, 0.1), nullptr},
    {"frameIndex6", FRAME(6, 0.08, 0.02), kFrame},
    {"frameNegativeIndex", FRAME(-1, 0.08, 0.02), kFrame},
    {"framePadding", FRAME(0, 0.26, 0.02), kFrame},
    {"frameCorner", FRAME(0, 0.08, 0.11), kFrame},
    {"cameraBounds", CAMERA(0.1, 0.5), nullptr},
    {"cameraTooBig", CAMERA(0.51, 0.2), kCamera},
    {"cameraNegativeCorner", CAMERA(0.3, -0.01), kCamera},
    // --- redactions
    {"redactionAtEdgeTolerance", "{\"redactions\":[" BOX(1, 2, 0.9, 0.1001, "") "]}", nullptr},
    {"redactionOutsideFrame", "{\"redactions\":[" BOX(1, 2, 0.9, 0.2, "") "]}", kRedactions},
    {"redactionPastEnd", "{\"redactions\":[" BOX(9, 10.06, 0, 0.5, "") "]}", kRedactions},
    {"redactionTwoComponentColour",
     "{\"redactions\":[" BOX(1, 2, 0, 0.5, ",\"color\":[0.5,0.5]") "]}", kRedactions},
    {"redactionStrength", "{\"redactions\":[" BOX(1, 2, 0, 0.5, ",\"strength\":1.01") "]}",
     kRedactions},
    // Order of checks: frame before camera before redactions.
    {"frameBeforeCamera",
     "{\"frame\":{\"background\":9,\"padding\":0.08,\"cornerRadius\":0.02,\"shadow\":true},"
     "\"camera\":{\"layout\":\"top-left\",\"shape\":\"circle\",\"size\":2,"
     "\"cornerRadius\":0.2,\"mirror\":true,\"shadow\":true},"
     "\"redactions\":[" BOX(1, 2, 0.9, 0.5, "") "]}",
     kFrame},
};

INSTANTIATE_TEST_SUITE_P(Edits, Validation, ::testing::ValuesIn(kRows),
                         [](const auto& info) { return std::string(info.param.name); });

// Values JSON cannot hold, from agents' or the editor's arithmetic.
TEST(Validation, NonFiniteNumbersFail) {
    Edits edits = Edits::fresh(10);
    edits.trimEnd = kNaN;
    EXPECT_EQ(edits.validate(10).error().message, kTrim);
    edits = Edits::fresh(10);
    edits.zooms = {{0, 1, 2, 0.5, kNaN, {}}};
    EXPECT_EQ(edits.validate(10).error().message, kZooms);
    edits = Edits::fresh(10);
    edits.camera = CameraStyle{};
    edits.camera->cornerRadius = kNaN;
    EXPECT_EQ(edits.validate(10).error().message, kCamera);
    edits = Edits::fresh(10);
    Redaction r;
    r.end = 1;
    r.width = r.height = 0.5;
    r.strength = kInf;
    edits.redactions = {{r}};
    EXPECT_EQ(edits.validate(10).error().message, kRedactions);
}

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
             [](Edits& e) {
                 Redaction r;
                 r.end = 1;
                 r.width = r.height = 0.5;
                 e.redactions = {{r}};
             }}) {
        Edits changed = edits;
        change(changed);
        EXPECT_TRUE(changed.needsComposition());
    }
}

}  // namespace
}  // namespace quillo::project
