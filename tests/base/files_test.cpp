#include "base/files.h"

#include <csignal>
#include <random>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quillo {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

TEST(AtomicWrite, WritesWholeFileAndReplacesOldOne) {
    TempFolder folder;
    fs::path file = folder / "edits.json";
    ASSERT_TRUE(writeFileAtomically(file, "first"));
    ASSERT_TRUE(writeFileAtomically(file, "second, longer"));
    EXPECT_EQ(readFile(file).value(), "second, longer");
    // Nothing but the file itself is left in the folder.
    EXPECT_EQ(std::distance(fs::directory_iterator(folder.path()), fs::directory_iterator()), 1);
}

TEST(AtomicWrite, AppliesTheRequestedMode) {
    TempFolder folder;
    fs::path file = folder / "mcp.json";
    ASSERT_TRUE(writeFileAtomically(file, "{}", 0600));
    struct stat info {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST(AtomicWrite, MissingFolderFailsWithTheSystemText) {
    TempFolder folder;
    auto written = writeFileAtomically(folder / "missing" / "edits.json", "x");
    ASSERT_FALSE(written);
    EXPECT_EQ(written.error().message, "Could not write “edits.json”: No such file or directory.");
}

TEST(AtomicWrite, ReadingAMissingFileFails) {
    TempFolder folder;
    auto text = readFile(folder / "nothing");
    ASSERT_FALSE(text);
    EXPECT_EQ(text.error().message, "Could not read “nothing”: No such file or directory.");
}

TEST(AtomicWrite, ProcessKilledBeforeTheRenameLeavesTheOldFile) {
    TempFolder folder;
    fs::path file = folder / "project.json";
    ASSERT_TRUE(writeFileAtomically(file, "old contents"));
    pid_t child = testing::forkChild([&] {
        setBeforeRenameHookForTesting([](const fs::path&) { ::raise(SIGKILL); });
        (void)writeFileAtomically(file, "new contents that never land");
    });
    EXPECT_EQ(testing::waitForSignal(child), SIGKILL);
    EXPECT_EQ(readFile(file).value(), "old contents");
}

TEST(AtomicWrite, ProcessKilledAtRandomMomentsNeverLeavesAMixture) {
    TempFolder folder;
    fs::path file = folder / "edits.json";
    const std::string a(1 << 20, 'a');
    const std::string b(1 << 19, 'b');
    ASSERT_TRUE(writeFileAtomically(file, a));
    std::mt19937 random(7);
    for (int round = 0; round < 12; ++round) {
        pid_t child = testing::forkChild([&] {
            for (int i = 0;; ++i) {
                (void)writeFileAtomically(file, i % 2 ? a : b);
            }
        });
        ::usleep(std::uniform_int_distribution<useconds_t>(1000, 30000)(random));
        ::kill(child, SIGKILL);
        EXPECT_EQ(testing::waitForSignal(child), SIGKILL);
        std::string contents = readFile(file).value();
        EXPECT_TRUE(contents == a || contents == b)
            << "round " << round << ": " << contents.size() << " bytes";
    }
}

}  // namespace
}  // namespace quillo
