#include "editor/dead_time.h"

#include <gtest/gtest.h>

namespace quillo::editor {
namespace {

using dead_time::Segment;
using Stretches = std::vector<std::pair<double, double>>;

// Steps of 0.1 s from 0: idle where the pattern has '.', busy where it has '#'.
std::vector<bool> pattern(const std::string& text) {
    std::vector<bool> idle;
    for (char c : text) {
        idle.push_back(c == '.');
    }
    return idle;
}

std::string repeat(char c, int n) { return std::string(static_cast<size_t>(n), c); }

void expectStretches(const Stretches& actual, const Stretches& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i) {
        EXPECT_NEAR(actual[i].first, expected[i].first, 1e-9) << i;
        EXPECT_NEAR(actual[i].second, expected[i].second, 1e-9) << i;
    }
}

// --- stretches

TEST(DeadTimeStretches, MinimumLengthCountsExactly) {
    auto fifteen = pattern(repeat('#', 10) + repeat('.', 15) + repeat('#', 10));
    expectStretches(dead_time::stretches(fifteen, 0, 0.1, {0, 3.5}, 1.5, 0.3, {}), {{1.3, 2.2}});
    auto fourteen = pattern(repeat('#', 10) + repeat('.', 14) + repeat('#', 10));
    EXPECT_TRUE(dead_time::stretches(fourteen, 0, 0.1, {0, 3.4}, 1.5, 0.3, {}).empty());
}

TEST(DeadTimeStretches, PaddedInwardsExceptAtTheClipsEnds) {
    auto middle = pattern(repeat('#', 10) + repeat('.', 20) + repeat('#', 10));
    expectStretches(dead_time::stretches(middle, 0, 0.1, {0, 4}, 1.5, 0.3, {}), {{1.3, 2.7}});
    auto atStart = pattern(repeat('.', 20) + repeat('#', 10));
    expectStretches(dead_time::stretches(atStart, 0, 0.1, {0, 3}, 1.5, 0.3, {}), {{0, 1.7}});
    auto atEnd = pattern(repeat('#', 10) + repeat('.', 20));
    expectStretches(dead_time::stretches(atEnd, 0, 0.1, {0, 3}, 1.5, 0.3, {}), {{1.3, 3.0}});
}

TEST(DeadTimeStretches, ExistingSegmentsSplitStretches) {
    auto idle = pattern(repeat('#', 10) + repeat('.', 60) + repeat('#', 10));
    // Idle 1–7, padded 1.3–6.7; a cut 3–4 splits it; a cut 6.5–8 leaves 6.5 as the end.
    std::vector<project::TimeSegment> cuts = {{3, 4, 0}, {6.5, 8, 0}};
    expectStretches(dead_time::stretches(idle, 0, 0.1, {0, 8}, 1.5, 0.3, cuts),
                    {{1.3, 3}, {4, 6.5}});
    // Pieces under 0.3 s are dropped.
    std::vector<project::TimeSegment> tight = {{1.5, 6.5, 4}};
    EXPECT_TRUE(dead_time::stretches(idle, 0, 0.1, {0, 8}, 1.5, 0.3, tight).empty());
}

TEST(DeadTimeStretches, TheKeptRangeClipsRuns) {
    auto idle = pattern(repeat('.', 50));
    // Idle 0–5 but only 1–4 is kept: a stretch at both ends of the kept range, unpadded.
    expectStretches(dead_time::stretches(idle, 0, 0.1, {1, 4}, 1.5, 0.3, {}), {{1, 4}});
    expectStretches(dead_time::stretches(idle, 0, 0.1, {1.2, 2.5}, 1.5, 0.3, {}), {});
}

// --- proposals

ActivityTimeline timelineWithIdle(double from, double to, double length) {
    ActivityTimeline timeline;
    size_t count = dead_time::stepCount(0, length);
    for (size_t i = 0; i < count; ++i) {
        double t = i * 0.1;
        bool quiet = t >= from - 1e-9 && t < to - 1e-9;
        timeline.input.push_back(!quiet);
        timeline.screen.push_back(quiet ? 0 : 0.5);
        timeline.loudness.push_back(0);
    }
    return timeline;
}

TEST(DeadTimeProposals, AutoCutsLongStretchesAndSpeedsUpShortOnes) {
    project::Edits edits = project::Edits::fresh(30);
    DeadTimeOptions options;  // auto, speed 4
    auto longOne = dead_time::segments(timelineWithIdle(2, 12.6, 30), edits, options);
    ASSERT_EQ(longOne.size(), 1u);
    EXPECT_EQ(longOne[0].speed, 0);  // 2.3–12.3 is 10 s: cut
    auto shortOne = dead_time::segments(timelineWithIdle(2, 7.6, 30), edits, options);
    ASSERT_EQ(shortOne.size(), 1u);
    EXPECT_EQ(shortOne[0].speed, 4);  // 5 s: sped up
}

TEST(DeadTimeProposals, SpeedIsHeldWithinTwoAndEight) {
    project::Edits edits = project::Edits::fresh(30);
    DeadTimeOptions options;
    options.action = DeadTimeAction::SpeedUp;
    options.speed = 12;
    EXPECT_EQ(dead_time::segments(timelineWithIdle(2, 20, 30), edits, options)[0].speed, 8);
    options.speed = 1.5;
    EXPECT_EQ(dead_time::segments(timelineWithIdle(2, 20, 30), edits, options)[0].speed, 2);
    options.action = DeadTimeAction::Cut;
    EXPECT_EQ(dead_time::segments(timelineWithIdle(2, 4, 30), edits, options)[0].speed, 0);
}

TEST(DeadTimeProposals, AnyActivityKeepsAStepBusy) {
    project::Edits edits = project::Edits::fresh(10);
    ActivityTimeline timeline = timelineWithIdle(1, 9, 10);
    timeline.loudness[50] = 0.01;  // at the threshold counts as sound
    timeline.screen[30] = 0.002;
    auto proposals = dead_time::segments(timeline, edits, DeadTimeOptions{});
    ASSERT_EQ(proposals.size(), 3u);
    EXPECT_NEAR(proposals[0].end, 3.0 - 0.3, 1e-9);
    EXPECT_NEAR(proposals[1].start, 3.1 + 0.3, 1e-9);
    EXPECT_NEAR(proposals[1].end, 5.0 - 0.3, 1e-9);
    EXPECT_NEAR(proposals[2].start, 5.1 + 0.3, 1e-9);
}

TEST(DeadTimeProposals, MergeAppendsAndSorts) {
    project::Edits edits = project::Edits::fresh(10);
    edits.segments = {{{5, 6, 0}}};
    auto merged = dead_time::merge({{7, 8, 4}, {1, 2, 0}}, edits);
    EXPECT_EQ(merged.timing(),
              (std::vector<project::TimeSegment>{{1, 2, 0}, {5, 6, 0}, {7, 8, 4}}));
}

// --- activity

TEST(DeadTimeActivity, PointerClicksAndTypingMarkTheirSteps) {
    project::CursorTrack track;
    track.samples = {{0, 0.5, 0.5, {}}, {1, 0.5, 0.5, {}}, {1.2, 0.6, 0.5, {}}};
    track.clicks = {{0.55, 0.5, 0.5, {}}, {0.75, 1.5, 0.5, {}}};  // the second is off the frame
    track.typing = std::vector<project::CursorSample>{{0.35, 2, 2, {}}};
    auto input = dead_time::inputActivity(&track, 0, 0.1, 15);
    std::string marks;
    for (bool b : input) {
        marks += b ? '#' : '.';
    }
    // Typing at step 3, the click at step 5, movement between 1.0 and 1.2 (steps 10 and 11).
    EXPECT_EQ(marks, "...#.#....##...");
    EXPECT_EQ(dead_time::inputActivity(nullptr, 0, 0.1, 3), std::vector<bool>(3, false));
}

TEST(DeadTimeActivity, ChangedFractionCountsBytesOverTheThreshold) {
    std::vector<uint8_t> a(100, 100);
    std::vector<uint8_t> b = a;
    b[0] = 124;  // a difference of exactly 24 is not a change
    b[1] = 125;
    b[2] = 0;
    EXPECT_DOUBLE_EQ(dead_time::changedFraction(a, b), 0.02);
    EXPECT_EQ(dead_time::changedFraction(a, std::vector<uint8_t>(99, 100)), 1.0);
    EXPECT_EQ(dead_time::changedFraction({}, {}), 1.0);
}

TEST(DeadTimeResult, SummaryCountsPlaces) {
    EXPECT_EQ(DeadTimeResult{}.summary(), "No dead time found");
    EXPECT_EQ((DeadTimeResult{{{1, 2, 0}}, 1.0}.summary()), "Removed 1.0 s in 1 place");
    EXPECT_EQ((DeadTimeResult{{{1, 2, 0}, {3, 9, 4}}, 5.54}.summary()),
              "Removed 5.5 s in 2 places");
    EXPECT_EQ(dead_time::stepCount(0, 1.5), 15u);
    EXPECT_EQ(dead_time::stepCount(0.3, 0.35), 1u);
}

}  // namespace
}  // namespace quillo::editor
