#include "agent/demo_markers.h"

#include <gtest/gtest.h>

#include "support/temp_folder.h"

namespace quillo::agent {
namespace {

using testing::TempFolder;

std::vector<Chapter> chaptersOf(std::vector<DemoMarker> list, double duration,
                                const project::Edits* edits = nullptr) {
    return markers::chapters(std::move(list), edits, duration);
}

TEST(Chapters, ShortStepsMergeAndLateStartsGetAnIntro) {
    auto merged = chaptersOf({{"C", 30}, {"A", 0}, {"B", 4}}, 60);
    EXPECT_EQ(merged, (std::vector<Chapter>{{0, "A · B"}, {30, "C"}}));
    EXPECT_FALSE(markers::youTubeReady(merged));
    EXPECT_EQ(markers::text(merged, 60), "0:00 A · B\n0:30 C\n");

    EXPECT_EQ(chaptersOf({{"Late", 25}}, 60), (std::vector<Chapter>{{0, "Intro"}, {25, "Late"}}));
    // A first marker between 1 s and the minimum moves to 0; one on the same second joins.
    EXPECT_EQ(chaptersOf({{"A", 3}, {"B", 20.2}, {"C", 20.9}, {"D", 40}}, 70),
              (std::vector<Chapter>{{0, "A"}, {20, "B · C"}, {40, "D"}}));
    EXPECT_TRUE(markers::youTubeReady(chaptersOf({{"A", 3}, {"B", 20}, {"D", 40}}, 70)));
    // The last chapter, too short before the end, joins the one before.
    EXPECT_EQ(chaptersOf({{"A", 0}, {"B", 20}, {"C", 55}}, 60),
              (std::vector<Chapter>{{0, "A"}, {20, "B · C"}}));
    EXPECT_TRUE(chaptersOf({}, 60).empty());
}

TEST(Chapters, TimesFollowTheFinishedVideo) {
    project::Edits edits = project::Edits::fresh(100);
    edits.trimStart = 10;
    edits.segments = std::vector<project::TimeSegment>{{20, 40, 0}};
    // 15 s → 5 s (moved to 0), 50 s → 20 s after the trim and the 20 s cut, 90 → 60.
    EXPECT_EQ(chaptersOf({{"A", 15}, {"B", 50}, {"C", 90}}, 70, &edits),
              (std::vector<Chapter>{{0, "A"}, {20, "B"}, {60, "C"}}));
    EXPECT_EQ(markers::timestamp(3725, true), "1:02:05");
    EXPECT_EQ(markers::timestamp(65, false), "1:05");
}

TEST(Markers, AddValidatesSortsAndSaves) {
    TempFolder folder;
    EXPECT_EQ(markers::add("  ", 1, folder.path()).error().message, "A marker needs a label.");
    EXPECT_EQ(markers::add("A", -1, folder.path()).error().message,
              "Marker times are seconds from the start of the recording.");
    EXPECT_FALSE(std::filesystem::exists(folder / "markers.json"));
    ASSERT_TRUE(markers::add(" Second ", 9, folder.path()));
    ASSERT_TRUE(markers::add("First", 2, folder.path()));
    EXPECT_EQ(markers::load(folder.path()), (std::vector<DemoMarker>{{"First", 2}, {"Second", 9}}));
    folder.write("markers.json", R"({"version":1,"markers":[{"label":"A","time":"x"}]})");
    EXPECT_TRUE(markers::load(folder.path()).empty());
}

TEST(TypingSpeed, DelaysFromWpmOrMillisecondsCappedAt90Seconds) {
    EXPECT_DOUBLE_EQ(typingDelay(std::nullopt, 0, 10), 2.4);   // read as 5 wpm
    EXPECT_DOUBLE_EQ(typingDelay(std::nullopt, 0, 100), 0.9);  // 90 s for the whole text
    EXPECT_DOUBLE_EQ(typingDelay(std::nullopt, 60, 10), 0.2);
    EXPECT_DOUBLE_EQ(typingDelay(std::nullopt, 300, 10), 0.04);
    EXPECT_DOUBLE_EQ(typingDelay(1500, 60, 10), 1.0);  // milliseconds win over wpm
    EXPECT_DOUBLE_EQ(typingDelay(-5, std::nullopt, 10), 0);
    EXPECT_DOUBLE_EQ(typingDelay(std::nullopt, std::nullopt, 10), 0.012);
    EXPECT_DOUBLE_EQ(typingDelay(std::nullopt, 5, 100000), 0.012);  // never below the default
}

}  // namespace
}  // namespace quillo::agent
