#include "base/preference_store.h"

#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "base/files.h"
#include "base/main_queue.h"
#include "support/temp_folder.h"

namespace quillo {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

TEST(PreferenceStore, SetWritesTheWholeFileAndTellsObservers) {
    TempFolder folder;
    fs::path file = folder / "Quillo" / "preferences.json";
    PreferenceStore store(file);
    int calls = 0;
    store.addObserver([&] { ++calls; });
    ASSERT_TRUE(store.set("captureFPS", 60));
    ASSERT_TRUE(store.set("captureFPS", 60));  // unchanged: no write, no call
    ASSERT_TRUE(store.set("libraryPath", "/x"));
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(readFile(file).value(), "{\n  \"captureFPS\": 60,\n  \"libraryPath\": \"/x\"\n}\n");

    PreferenceStore again(file);
    EXPECT_EQ(again.value("captureFPS"), Json(60));
    ASSERT_TRUE(again.remove("libraryPath"));
    EXPECT_FALSE(again.value("libraryPath"));
}

TEST(PreferenceStore, MalformedFileReadsAsEmptyAndIsReplacedOnWrite) {
    TempFolder folder;
    folder.write("preferences.json", "{ not json");
    PreferenceStore store(folder / "preferences.json");
    EXPECT_TRUE(store.entries().empty());
    ASSERT_TRUE(store.set("autoZoom", false));
    EXPECT_EQ(PreferenceStore(folder / "preferences.json").value("autoZoom"), Json(false));
}

TEST(PreferenceStore, FailedWriteKeepsTheOldValue) {
    TempFolder folder;
    folder.write("blocker", "a file where the folder should be");
    PreferenceStore store(folder / "blocker" / "preferences.json");
    EXPECT_FALSE(store.set("autoZoom", false));
    EXPECT_FALSE(store.value("autoZoom"));
}

TEST(PreferenceStore, RewriteByAnotherProcessReachesObserversOnTheQueue) {
    TempFolder folder;
    fs::path file = folder / "preferences.json";
    LoopMainQueue main;
    PreferenceStore store(file);
    int calls = 0;
    store.addObserver([&] {
        EXPECT_TRUE(main.isCurrent());
        ++calls;
    });
    ASSERT_TRUE(store.startWatching(main));

    // Another process replaces the file the way atomic writers do.
    ASSERT_TRUE(writeFileAtomically(file, R"({"agentServerEnabled": false})"));
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (calls == 0 && std::chrono::steady_clock::now() < deadline) {
        main.runPending();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(store.value("agentServerEnabled"), Json(false));

    // Our own writes come back through the watch too, but with nothing new they stay quiet.
    ASSERT_TRUE(store.set("countdown", 5));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    main.runPending();
    EXPECT_EQ(calls, 2);
    store.stopWatching();
}

}  // namespace
}  // namespace quillo
