#include "base/paths.h"

#include <gtest/gtest.h>

#include "support/temp_folder.h"

namespace quillo {
namespace {

using testing::ScopedEnvironment;
using testing::TempFolder;

TEST(Paths, LibraryRootTakesCallerThenEnvironmentThenPreferenceThenDefault) {
    TempFolder home;
    ScopedEnvironment env;
    testing::isolateHome(env, home.path());
    const auto defaultRoot = home.path() / "Videos" / "Quillo";

    EXPECT_EQ(libraryRoot(std::nullopt, std::nullopt), defaultRoot);
    EXPECT_EQ(libraryRoot(std::nullopt, std::string("/prefs/lib")), "/prefs/lib");
    EXPECT_EQ(libraryRoot(std::nullopt, std::string()), defaultRoot);  // empty means unset
    env.set("QUILLO_LIBRARY", "/env/lib");
    EXPECT_EQ(libraryRoot(std::nullopt, std::string("/prefs/lib")), "/env/lib");
    EXPECT_EQ(libraryRoot(std::filesystem::path("/caller"), std::string("/prefs/lib")), "/caller");
}

TEST(Paths, VideosFolderFollowsUserDirs) {
    TempFolder home;
    ScopedEnvironment env;
    testing::isolateHome(env, home.path());
    EXPECT_EQ(videosFolder(), home.path() / "Videos");
    home.write(".config/user-dirs.dirs",
               "# written by xdg-user-dirs-update\nXDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
               "XDG_VIDEOS_DIR=\"$HOME/Filme\"\n");
    EXPECT_EQ(videosFolder(), home.path() / "Filme");
    EXPECT_EQ(defaultLibraryRoot(), home.path() / "Filme" / "Quillo");
    home.write(".config/user-dirs.dirs", "XDG_VIDEOS_DIR=\"/srv/media\"\n");
    EXPECT_EQ(videosFolder(), "/srv/media");
}

TEST(Paths, SupportFolderAndXdgFallbacks) {
    TempFolder home;
    ScopedEnvironment env;
    testing::isolateHome(env, home.path());
    EXPECT_EQ(supportFolder(), home.path() / ".local/share" / "Quillo");
    env.set("XDG_DATA_HOME", "relative/ignored");
    EXPECT_EQ(dataHome(), home.path() / ".local/share");
    env.set("QUILLO_SUPPORT", "/tmp/support");
    EXPECT_EQ(supportFolder(), "/tmp/support");
    EXPECT_EQ(preferencesFile(), home.path() / ".config" / "Quillo" / "preferences.json");
}

}  // namespace
}  // namespace quillo
