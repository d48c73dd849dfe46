#include "project/cursor_track.h"

#include <gtest/gtest.h>

#include "support/temp_folder.h"

namespace quillo::project {
namespace {

CursorTrack track(std::vector<CursorSample> samples) {
    CursorTrack t;
    t.samples = std::move(samples);
    return t;
}

// --- queries by time

TEST(CursorTrack, PositionHoldsAtTheEndsAndInterpolatesBetween) {
    CursorTrack t = track({{1, 0.2, 0.4, {}}, {2, 0.4, 0.8, {}}});
    EXPECT_EQ(t.position(0), (Point{0.2, 0.4}));
    EXPECT_EQ(t.position(5), (Point{0.4, 0.8}));
    auto middle = t.position(1.5);
    ASSERT_TRUE(middle);
    EXPECT_DOUBLE_EQ(middle->x, 0.3);
    EXPECT_DOUBLE_EQ(middle->y, 0.6);
    EXPECT_FALSE(CursorTrack().position(1));
}

TEST(CursorTrack, SameTimeSamplesGiveTheFirstAndNeverDivideByZero) {
    CursorTrack t = track({{0, 0, 0, {}}, {1, 0.1, 0.1, {}}, {1, 0.9, 0.9, {}}, {2, 1, 1, {}}});
    EXPECT_EQ(t.position(1), (Point{0.1, 0.1}));
    auto after = t.position(1.5);  // between the second sample at 1 and the one at 2
    ASSERT_TRUE(after);
    EXPECT_DOUBLE_EQ(after->x, 0.95);
    CursorTrack twins = track({{1, 0.3, 0.3, {}}, {1, 0.7, 0.7, {}}});
    EXPECT_EQ(twins.position(1), (Point{0.3, 0.3}));
}

TEST(CursorTrack, ShapeComesFromTheSampleAtOrAfter) {
    CursorTrack t = track({{1, 0, 0, 1}, {2, 0, 0, 2}, {3, 0, 0, {}}});
    EXPECT_EQ(t.shape(1.5), 2);
    EXPECT_EQ(t.shape(1), 1);
    EXPECT_EQ(t.shape(0), 1);
    EXPECT_EQ(t.shape(2.5), std::nullopt);  // the next sample's shape is unknown
    EXPECT_EQ(t.shape(9), std::nullopt);
    EXPECT_EQ(CursorTrack().shape(0), std::nullopt);
}

// --- file form

TEST(CursorTrackJson, RoundTripsEveryField) {
    CursorTrack t = track({{0, 0.5, 0.5, 3}, {0.016, 0.51, 0.5, {}}});
    t.clicks = {{0.5, 0.5, 0.5, {}}};
    t.layered = true;
    t.pixelsPerPoint = 2;
    t.shapes = std::vector<CursorShape>{{3, 32, 32, 4.5, 2}};
    t.typing = std::vector<CursorSample>{{1, 0.2, 0.3, {}}};
    auto back = decodeCursorTrack(encodeCursorTrack(t));
    ASSERT_TRUE(back) << back.error().message;
    EXPECT_EQ(*back, t);
    EXPECT_EQ(CursorTrack::shapeImageName(3), "cursor-3.png");
}

TEST(CursorTrackJson, OptionalKeysMayBeMissingButClicksMayNot) {
    auto minimal = decodeCursorTrack(R"({"version":1,"samples":[{"t":0,"x":0.1,"y":0.2}],
                                         "clicks":[]})");
    ASSERT_TRUE(minimal) << minimal.error().message;
    EXPECT_FALSE(minimal->typing);
    EXPECT_FALSE(minimal->shapes);
    EXPECT_FALSE(minimal->layered);
    EXPECT_FALSE(minimal->pixelsPerPoint);

    auto noClicks = decodeCursorTrack(R"({"version":1,"samples":[]})");
    ASSERT_FALSE(noClicks);
    EXPECT_EQ(noClicks.error().message,
              "The cursor track could not be read: \"clicks\" is missing.");
    auto badShape = decodeCursorTrack(R"({"version":1,"samples":[],"clicks":[],
                                          "shapes":[{"id":1,"width":32,"height":32,"hotX":0}]})");
    ASSERT_FALSE(badShape);
    EXPECT_EQ(badShape.error().message,
              "The cursor track could not be read: \"shapes[0].hotY\" is missing.");
}

TEST(CursorTrackJson, LoadsFromAFolderWhenPresent) {
    testing::TempFolder folder;
    auto none = loadCursorTrack(folder.path());
    ASSERT_TRUE(none);
    EXPECT_FALSE(none->has_value());
    folder.write("cursor.json", encodeCursorTrack(track({{0, 0.5, 0.5, {}}})));
    auto some = loadCursorTrack(folder.path());
    ASSERT_TRUE(some && some->has_value());
    EXPECT_EQ((*some)->samples.size(), 1u);
    folder.write("cursor.json", "{");
    EXPECT_FALSE(loadCursorTrack(folder.path()));
}

}  // namespace
}  // namespace quillo::project
