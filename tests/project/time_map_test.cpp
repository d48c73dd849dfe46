#include "project/time_map.h"

#include <gtest/gtest.h>

namespace quillo::project {
namespace {

Edits recipe(std::vector<TimeSegment> segments, double trimStart = 0, double trimEnd = 10) {
    Edits edits = Edits::fresh(trimEnd);
    edits.trimStart = trimStart;
    edits.segments = std::move(segments);
    return edits;
}

// --- kept pieces

TEST(Pieces, NoSegmentsKeepsTheTrimmedRange) {
    Edits edits = Edits::fresh(10);
    edits.trimStart = 1;
    EXPECT_EQ(edits.pieces(), (std::vector<TimeSegment>{{1, 10, 1}}));
    edits.trimEnd = 1.001;  // 0.001 s or less is dropped
    EXPECT_TRUE(edits.pieces().empty());
    edits.trimEnd = 1.0011;
    EXPECT_EQ(edits.pieces().size(), 1u);
}

TEST(Pieces, CutAndSpeedUpSplitTheRange) {
    EXPECT_EQ(recipe({{2, 4, 0}}).pieces(), (std::vector<TimeSegment>{{0, 2, 1}, {4, 10, 1}}));
    EXPECT_EQ(recipe({{2, 6, 4}}).pieces(),
              (std::vector<TimeSegment>{{0, 2, 1}, {2, 6, 4}, {6, 10, 1}}));
}

TEST(Pieces, TouchingSegmentsLeaveNothingBetweenThem) {
    // Given out of order on purpose: pieces sort by start.
    EXPECT_EQ(recipe({{4, 6, 2}, {2, 4, 0}}).pieces(),
              (std::vector<TimeSegment>{{0, 2, 1}, {4, 6, 2}, {6, 10, 1}}));
}

TEST(Pieces, SegmentsOutsideTheTrimAreIgnoredOrClipped) {
    EXPECT_EQ(recipe({{0, 1, 0}}, 3).pieces(), (std::vector<TimeSegment>{{3, 10, 1}}));
    EXPECT_EQ(recipe({{2, 5, 2}}, 3).pieces(), (std::vector<TimeSegment>{{3, 5, 2}, {5, 10, 1}}));
    EXPECT_EQ(recipe({{8, 12, 0}}, 0, 9).pieces(), (std::vector<TimeSegment>{{0, 8, 1}}));
}

TEST(Pieces, TinyGapBetweenSegmentsIsDropped) {
    EXPECT_EQ(recipe({{2, 4, 0}, {4.0005, 6, 0}}).pieces(),
              (std::vector<TimeSegment>{{0, 2, 1}, {6, 10, 1}}));
}

// --- recording time to output time

TEST(OutputTime, AcrossACut) {
    Edits edits = recipe({{2, 4, 0}});
    EXPECT_DOUBLE_EQ(edits.outputTime(3), 2);  // inside the cut: where it is jumped over
    EXPECT_DOUBLE_EQ(edits.outputTime(5), 3);
    EXPECT_DOUBLE_EQ(edits.outputDuration(), 8);
}

TEST(OutputTime, AcrossASpeedUp) {
    Edits edits = recipe({{2, 6, 4}});
    EXPECT_DOUBLE_EQ(edits.outputDuration(), 7);
    EXPECT_DOUBLE_EQ(edits.outputTime(4), 2.5);
    EXPECT_DOUBLE_EQ(edits.outputTime(8), 5);
}

TEST(OutputTime, OutsideTheTrimClampsToTheEnds) {
    Edits edits = recipe({{5, 6, 0}}, 2, 9);
    EXPECT_DOUBLE_EQ(edits.outputTime(0), 0);
    EXPECT_DOUBLE_EQ(edits.outputTime(100), edits.outputDuration());
    EXPECT_DOUBLE_EQ(edits.outputDuration(), 6);
    EXPECT_DOUBLE_EQ(Edits::fresh(0).outputDuration(), 0);
}

// --- output time to recording time

TEST(TimeMap, SourceAcrossCutAndSpeedUp) {
    EXPECT_DOUBLE_EQ(TimeMap(recipe({{2, 4, 0}})).source(2), 4);
    TimeMap map(recipe({{2, 6, 4}}));
    EXPECT_DOUBLE_EQ(map.source(2.5), 4);
    EXPECT_DOUBLE_EQ(map.source(3), 6);
    EXPECT_DOUBLE_EQ(map.source(4), 7);
}

TEST(TimeMap, SourceClipsAtTheLastPieceAndStartsAtTheFirst) {
    TimeMap map(recipe({{2, 4, 0}}, 1, 9));
    EXPECT_DOUBLE_EQ(map.source(100), 9);
    EXPECT_DOUBLE_EQ(map.source(-1), 0);  // before the first piece: measured from its start
    EXPECT_DOUBLE_EQ(TimeMap(std::vector<TimeSegment>{}).source(3.5), 3.5);
}

TEST(TimeMap, FrameTimeSummedFromEarlierPiecesLandsInTheNextPiece) {
    // 0.1 + 0.2 is a hair above 0.3 in floating point, and sums of piece lengths drift the
    // same way; the microsecond of slack puts such a time at the start of the next piece.
    TimeMap map(std::vector<TimeSegment>{{0, 0.1, 1}, {1, 1.2, 1}, {5, 6, 1}});
    EXPECT_NEAR(map.source(0.3 - 1e-7), 5, 1e-6);
    EXPECT_DOUBLE_EQ(map.source(0.1), 1);
}

TEST(TimeMap, RoundTripsWithOutputTimeInsideKeptPieces) {
    Edits edits = recipe({{1, 2, 0}, {3, 5, 2.5}, {7, 8, 16}}, 0.5, 9.5);
    TimeMap map(edits);
    for (double t : {0.5, 0.9, 2.0, 2.5, 3.0, 4.2, 6.0, 7.5, 9.0, 9.5}) {
        EXPECT_NEAR(map.source(edits.outputTime(t)), t, 1e-9) << t;
    }
}

}  // namespace
}  // namespace quillo::project
