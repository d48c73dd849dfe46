// The library and tabs as the studio window uses them: listing, tabs kept in the settings and
// restored, closing a tab shows its neighbour, renaming, and the Trash.

#include <gtest/gtest.h>

#include "app/studio_model.h"
#include "base/main_queue.h"
#include "base/preference_store.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::app {
namespace {

namespace fs = std::filesystem;

class StudioLibrary : public ::testing::Test {
protected:
    void SetUp() override {
        testing::isolateHome(environment, home.path());
        store = std::make_unique<PreferenceStore>(home / "preferences.json");
        preferences = std::make_unique<Preferences>(*store);
        studio = std::make_unique<StudioModel>(project::ProjectLibrary(home / "Library"), mainQueue,
                                               *preferences);
        for (const char* title : {"First", "Second", "Third"}) {
            ids.push_back(make(title));
        }
        studio->reload();
    }

    std::string make(const std::string& title) {
        static int age = 100;
        auto project =
            studio->library().create({"window", 1, "Notes", title},
                                     std::chrono::system_clock::now() - std::chrono::hours(age--));
        EXPECT_TRUE(project);
        testing::ffmpeg("-f lavfi -i testsrc2=size=160x90:rate=10:duration=1 -pix_fmt yuv420p",
                        project->recordingFile());
        project->metadata.title = title;
        EXPECT_TRUE(project->save());
        return project->id();
    }

    testing::TempFolder home;
    testing::ScopedEnvironment environment;
    LoopMainQueue mainQueue;
    std::unique_ptr<PreferenceStore> store;
    std::unique_ptr<Preferences> preferences;
    std::unique_ptr<StudioModel> studio;
    std::vector<std::string> ids;  // oldest first
};

TEST_F(StudioLibrary, TabsAreStoredRestoredAndClosingOneShowsItsNeighbour) {
    ASSERT_EQ(studio->projects().size(), 3u);
    EXPECT_EQ(studio->projects().front().id(), ids[2]);  // newest first
    int signals = 0;
    studio->tabsChanged.connect([&] { ++signals; });
    for (const auto& id : ids) {
        ASSERT_TRUE(studio->open(id));
    }
    EXPECT_EQ(signals, 3);
    EXPECT_EQ(preferences->get(prefs::openTabs), ids);

    ASSERT_TRUE(studio->open(ids[1]));
    studio->closeTab(ids[1]);
    EXPECT_EQ(studio->openRecording(), ids[2]);  // the next tab
    studio->closeTab(ids[2]);
    EXPECT_EQ(studio->openRecording(), ids[0]);  // the last one left is the one before
    EXPECT_EQ(preferences->get(prefs::openTabs), std::vector<std::string>{ids[0]});

    // A new studio over the same settings opens the tabs again, showing the library; a tab of
    // a recording that went away is dropped.
    ASSERT_TRUE(studio->open(ids[2]));
    fs::remove_all(ids[0]);
    StudioModel next(project::ProjectLibrary(home / "Library"), mainQueue, *preferences);
    next.reload();
    next.restoreTabs();
    EXPECT_EQ(next.openTabs(), std::vector<std::string>{ids[2]});
    EXPECT_FALSE(next.openRecording());
}

TEST_F(StudioLibrary, RenameAndTrashUpdateTheListingAndTheTabs) {
    ASSERT_TRUE(studio->open(ids[0]));
    ASSERT_TRUE(studio->rename(ids[0], "  Launch demo  "));
    EXPECT_EQ(studio->projects().back().metadata.title, "Launch demo");
    // An empty title changes nothing.
    ASSERT_TRUE(studio->rename(ids[0], "   "));
    EXPECT_EQ(studio->projects().back().metadata.title, "Launch demo");

    ASSERT_TRUE(studio->trash(ids[0]));
    EXPECT_EQ(studio->projects().size(), 2u);
    EXPECT_TRUE(studio->openTabs().empty());
    EXPECT_FALSE(fs::exists(ids[0]));
    EXPECT_NE(studio->message().find("Trash"), std::string::npos);
    // The Trash holds the folder with its restore information.
    fs::path trash = home.path() / ".local" / "share" / "Trash";
    EXPECT_TRUE(fs::exists(trash / "files" / fs::path(ids[0]).filename()));
    EXPECT_FALSE(studio->trash(ids[0]));  // no longer a recording
}

}  // namespace
}  // namespace quillo::app
