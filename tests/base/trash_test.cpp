#include "base/trash.h"

#include <gtest/gtest.h>

#include "base/files.h"
#include "support/temp_folder.h"

namespace quillo {
namespace {

namespace fs = std::filesystem;
using testing::ScopedEnvironment;
using testing::TempFolder;

std::string infoOf(const fs::path& trashed) {
    fs::path info =
        trashed.parent_path().parent_path() / "info" / (trashed.filename().string() + ".trashinfo");
    return readFile(info).value_or("");
}

TEST(Trash, MovesFolderWithARestorableRecord) {
    TempFolder home;
    ScopedEnvironment env;
    testing::isolateHome(env, home.path());
    home.write("Videos/Quillo/Demo 1/recording.mp4", "movie");

    fs::path original = home.path() / "Videos/Quillo/Demo 1";
    auto trashed = moveToTrash(original);
    ASSERT_TRUE(trashed) << trashed.error().message;
    EXPECT_FALSE(fs::exists(original));
    EXPECT_EQ(*trashed, home.path() / ".local/share/Trash/files/Demo 1");
    EXPECT_EQ(readFile(*trashed / "recording.mp4").value(), "movie");

    std::string info = infoOf(*trashed);
    EXPECT_EQ(info.rfind("[Trash Info]\n", 0), 0u) << info;
    // The original path is absolute and percent-encoded, the date local and without a zone.
    std::string encoded = (home.path() / "Videos/Quillo/Demo%201").string();
    EXPECT_NE(info.find("\nPath=" + encoded + "\n"), std::string::npos) << info;
    EXPECT_NE(info.find("\nDeletionDate=2"), std::string::npos) << info;
    EXPECT_EQ(info.find("DeletionDate=") + 13 + 19, info.size() - 1) << info;
}

TEST(Trash, SameNameTwiceGetsADistinctPlace) {
    TempFolder home;
    ScopedEnvironment env;
    testing::isolateHome(env, home.path());
    home.write("a/Demo/x", "1");
    home.write("b/Demo/x", "2");
    auto first = moveToTrash(home.path() / "a/Demo");
    auto second = moveToTrash(home.path() / "b/Demo");
    ASSERT_TRUE(first && second);
    EXPECT_NE(*first, *second);
    EXPECT_EQ(readFile(*second / "x").value(), "2");
    EXPECT_NE(infoOf(*second).find("/b/Demo\n"), std::string::npos);
}

TEST(Trash, MissingItemFailsAndCreatesNoRecord) {
    TempFolder home;
    ScopedEnvironment env;
    testing::isolateHome(env, home.path());
    auto trashed = moveToTrash(home.path() / "gone");
    ASSERT_FALSE(trashed);
    EXPECT_EQ(trashed.error().message,
              "Could not move “gone” to the Trash: No such file or directory.");
    fs::path info = home.path() / ".local/share/Trash/info";
    EXPECT_TRUE(!fs::exists(info) || fs::is_empty(info));
}

}  // namespace
}  // namespace quillo
