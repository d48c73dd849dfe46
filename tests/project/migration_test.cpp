#include "project/migration.h"

#include <gtest/gtest.h>

#include "base/files.h"
#include "support/temp_folder.h"

namespace quillo::project {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

struct MigrationFixture : ::testing::Test {
    TempFolder home;
    PalloMigration::Places places{home / ".config/Pallo/preferences.json",
                                  home / ".local/share/Pallo", home / "Videos/Pallo",
                                  home / ".local/share/Quillo", home / "Videos/Quillo"};
    PreferenceStore preferences{home / ".config/Quillo/preferences.json"};
};

TEST_F(MigrationFixture, MovesSettingsSupportLibraryAndTabs) {
    const std::string former = (home / "Videos/Pallo").string();
    home.write(".config/Pallo/preferences.json", R"({"captureFPS": 60, "openTabs": [")" + former +
                                                     R"(/Demo-1-AAAAAAAA", "/elsewhere/x"]})");
    home.write(".local/share/Pallo/cache.bin", "c");
    home.write("Videos/Pallo/Demo-1-AAAAAAAA/recording.mp4", "m");

    PalloMigration::run(preferences, places, false);

    EXPECT_EQ(preferences.value("captureFPS"), Json(60));
    EXPECT_TRUE(fs::exists(home / ".local/share/Quillo/cache.bin"));
    EXPECT_FALSE(fs::exists(home / ".local/share/Pallo"));
    EXPECT_TRUE(fs::exists(home / "Videos/Quillo/Demo-1-AAAAAAAA/recording.mp4"));
    EXPECT_FALSE(fs::exists(home / "Videos/Pallo"));
    EXPECT_FALSE(preferences.value("libraryPath"));
    EXPECT_EQ(preferences.value("openTabs"),
              Json({(home / "Videos/Quillo/Demo-1-AAAAAAAA").string(), "/elsewhere/x"}));
    EXPECT_EQ(preferences.value("migratedFromPallo"), Json(true));
}

TEST_F(MigrationFixture, ExistingDestinationMovesNothingAndPointsAtTheFormerLibrary) {
    home.write("Videos/Pallo/Demo-1-AAAAAAAA/recording.mp4", "old");
    home.write("Videos/Quillo/Demo-2-BBBBBBBB/recording.mp4", "new");
    home.write(".local/share/Pallo/a", "former");
    home.write(".local/share/Quillo/a", "current");

    PalloMigration::run(preferences, places, false);

    EXPECT_TRUE(fs::exists(home / "Videos/Pallo/Demo-1-AAAAAAAA/recording.mp4"));
    EXPECT_FALSE(fs::exists(home / "Videos/Quillo/Demo-1-AAAAAAAA"));  // never merged
    EXPECT_EQ(preferences.value("libraryPath"), Json((home / "Videos/Pallo").string()));
    EXPECT_EQ(readFile(home / ".local/share/Quillo/a").value(), "current");
    EXPECT_EQ(readFile(home / ".local/share/Pallo/a").value(), "former");
}

TEST_F(MigrationFixture, CustomFormerLibraryStaysWhereItIs) {
    home.write("Work/Demos/Demo-1-AAAAAAAA/recording.mp4", "m");
    home.write(".config/Pallo/preferences.json",
               R"({"libraryPath": ")" + (home / "Work/Demos/").string() + R"("})");
    PalloMigration::run(preferences, places, false);
    EXPECT_TRUE(fs::exists(home / "Work/Demos/Demo-1-AAAAAAAA"));
    EXPECT_EQ(preferences.value("libraryPath"), Json((home / "Work/Demos/").string()));
}

TEST_F(MigrationFixture, RunsOnceAndNeverInSelfTest) {
    home.write("Videos/Pallo/x/recording.mp4", "m");
    PalloMigration::run(preferences, places, true);
    EXPECT_TRUE(fs::exists(home / "Videos/Pallo"));
    EXPECT_FALSE(preferences.value("migratedFromPallo"));

    ASSERT_TRUE(preferences.set("migratedFromPallo", true));
    PalloMigration::run(preferences, places, false);
    EXPECT_TRUE(fs::exists(home / "Videos/Pallo"));
}

TEST_F(MigrationFixture, NothingFormerLeavesAFreshUserAlone) {
    PalloMigration::run(preferences, places, false);
    EXPECT_FALSE(preferences.value("libraryPath"));
    EXPECT_FALSE(fs::exists(home / "Videos/Quillo"));
    EXPECT_EQ(preferences.value("migratedFromPallo"), Json(true));
}

TEST(PalloMigrationMove, OnlyIntoAnEmptyPlace) {
    TempFolder folder;
    EXPECT_FALSE(PalloMigration::move(folder / "missing", folder / "to"));
    folder.write("from/a", "1");
    folder.write("to/b", "2");
    EXPECT_FALSE(PalloMigration::move(folder / "from", folder / "to"));
    EXPECT_TRUE(fs::exists(folder / "from/a"));
    EXPECT_FALSE(fs::exists(folder / "to/a"));
    EXPECT_TRUE(PalloMigration::move(folder / "from", folder / "deep/new/place"));
    EXPECT_TRUE(fs::exists(folder / "deep/new/place/a"));
}

}  // namespace
}  // namespace quillo::project
