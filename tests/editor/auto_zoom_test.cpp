#include "editor/auto_zoom.h"

#include <gtest/gtest.h>

namespace quillo::editor {
namespace {

using project::CursorSample;
using project::CursorTrack;
using project::ZoomSection;

CursorTrack clicksAt(std::vector<double> times, bool withPointer = true) {
    CursorTrack track;
    for (double t : times) {
        track.clicks.push_back({t, 0.4, 0.6, {}});
    }
    if (withPointer) {
        track.samples.push_back({0, 0.5, 0.5, {}});
    }
    return track;
}

void expectZoom(const ZoomSection& zoom, double start, double end) {
    EXPECT_NEAR(zoom.start, start, 1e-9);
    EXPECT_NEAR(zoom.end, end, 1e-9);
}

TEST(AutoZooms, SingleClickIsFramedBeforeAndHeldAfter) {
    auto zooms = autoZooms(clicksAt({5.0}), 0, 60, {});
    ASSERT_EQ(zooms.size(), 1u);
    expectZoom(zooms[0], 4.3, 6.5);
    EXPECT_EQ(zooms[0].scale, kAutoZoomScale);
    EXPECT_EQ(zooms[0].x, 0.4);
    EXPECT_EQ(zooms[0].y, 0.6);
    EXPECT_EQ(zooms[0].follow, true);
    EXPECT_EQ(autoZooms(clicksAt({5.0}, false), 0, 60, {})[0].follow, false);
}

TEST(AutoZooms, StartIsClampedToTheRangeAndTheSpanIsAtLeastTwoSeconds) {
    auto zooms = autoZooms(clicksAt({0.3}), 0, 60, {});
    ASSERT_EQ(zooms.size(), 1u);
    expectZoom(zooms[0], 0, 2.0);
}

TEST(AutoZooms, BurstsSplitAtTwoAndAHalfSecondsAndCloseOnesMerge) {
    auto one = autoZooms(clicksAt({5.0, 7.4}), 0, 60, {});
    ASSERT_EQ(one.size(), 1u);
    expectZoom(one[0], 4.3, 8.9);
    auto merged = autoZooms(clicksAt({5.0, 7.5}), 0, 60, {});
    ASSERT_EQ(merged.size(), 1u);
    expectZoom(merged[0], 4.3, 9.0);
    auto apart = autoZooms(clicksAt({5.0, 20.0}), 0, 60, {});
    ASSERT_EQ(apart.size(), 2u);
    expectZoom(apart[1], 19.3, 21.5);
}

TEST(AutoZooms, FocusIsTheMeanOfTheBurst) {
    CursorTrack track;
    track.clicks = {{1, 0.2, 0.2, {}}, {2, 0.4, 0.8, {}}};
    track.typing = std::vector<CursorSample>{{1.5, 0.6, 0.5, {}}};
    auto zooms = autoZooms(track, 0, 10, {});
    ASSERT_EQ(zooms.size(), 1u);
    EXPECT_NEAR(zooms[0].x, 0.4, 1e-12);
    EXPECT_NEAR(zooms[0].y, 0.5, 1e-12);
}

TEST(AutoZooms, EventsInCutsOrOffTheFrameAreIgnored) {
    std::vector<project::TimeSegment> cuts = {{4, 6, 0}, {10, 12, 4}};
    EXPECT_TRUE(autoZooms(clicksAt({5.0}), 0, 60, cuts).empty());
    EXPECT_EQ(autoZooms(clicksAt({6.0}), 0, 60, cuts).size(), 1u);   // at a cut's end: kept
    EXPECT_EQ(autoZooms(clicksAt({11.0}), 0, 60, cuts).size(), 1u);  // a speed-up is no cut
    CursorTrack offFrame;
    offFrame.typing = std::vector<CursorSample>{{3, 1.2, 0.5, {}}, {4, 0.5, -0.1, {}}};
    EXPECT_TRUE(autoZooms(offFrame, 0, 60, {}).empty());
    EXPECT_TRUE(autoZooms(clicksAt({70}), 0, 60, {}).empty());
}

TEST(AutoZooms, NearTheRangeEndOnlyLongEnoughZoomsStay) {
    auto shortEnd = autoZooms(clicksAt({9.7}), 0, 10, {});
    ASSERT_EQ(shortEnd.size(), 1u);
    expectZoom(shortEnd[0], 9.0, 10.0);
    // 0.1 s before the end with a 0.2 s lead-in left: 0.3 s, too short.
    EXPECT_TRUE(autoZooms(clicksAt({9.9}), 9.8, 10, {}).empty());
}

TEST(AutoZooms, ABurstSoonAfterAZoomLengthensIt) {
    // The second burst starts at 8.85, before 8.5 + 0.4, so it lengthens the first zoom to the
    // range end instead of making its own.
    auto zooms = autoZooms(clicksAt({7.0, 9.55}), 0, 10, {});
    ASSERT_EQ(zooms.size(), 1u);
    expectZoom(zooms[0], 6.3, 10.0);
}

}  // namespace
}  // namespace quillo::editor
