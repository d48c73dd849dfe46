#include <csignal>
#include <regex>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/files.h"
#include "project/edits_json.h"
#include "project/project_library.h"
#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quillo::project {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

const CaptureSource kWindow{"window", 42, "Safari", "Apple"};

Instant at(long long seconds) { return Instant(std::chrono::seconds(seconds)); }

// --- creating

TEST(ProjectLibrary, CreateNamesTheFolderAndWritesMetadata) {
    TempFolder folder;
    ProjectLibrary library(folder / "nested" / "library");  // missing parents are made
    auto project = library.create(kWindow, at(1731601234));
    ASSERT_TRUE(project) << project.error().message;
    std::string name = project->directory.filename().string();
    EXPECT_TRUE(std::regex_match(name, std::regex("Demo-1731601234-[0-9A-F]{8}"))) << name;
    EXPECT_EQ(project->metadata.created, "2024-11-14T16:20:34Z");
    EXPECT_EQ(project->metadata.title.rfind("Safari · ", 0), 0u) << project->metadata.title;
    EXPECT_GT(project->metadata.title.size(), std::string("Safari · ").size());
    EXPECT_EQ(project->metadata.source, kWindow);
    EXPECT_FALSE(project->metadata.duration);
    auto reopened = LocalProject::open(project->directory);
    ASSERT_TRUE(reopened);
    EXPECT_EQ(*reopened, *project);
}

TEST(ProjectLibrary, ScreenOrUnnamedSourcesAreTitledDemo) {
    EXPECT_EQ(ProjectLibrary::title("Screen", at(0)).rfind("Demo · ", 0), 0u);
    EXPECT_EQ(ProjectLibrary::title("", at(0)).rfind("Demo · ", 0), 0u);
    EXPECT_EQ(ProjectLibrary::title("Screen 2", at(0)).rfind("Screen 2 · ", 0), 0u);
}

TEST(ProjectLibrary, TwoProjectsInOneSecondGetDifferentFolders) {
    TempFolder folder;
    ProjectLibrary library(folder.path());
    auto a = library.create(kWindow, at(100));
    auto b = library.create(kWindow, at(100));
    ASSERT_TRUE(a && b);
    EXPECT_NE(a->directory, b->directory);
}

TEST(ProjectLibrary, CreateReportsTheFileSystemError) {
    TempFolder folder;
    folder.write("file", "not a folder");
    auto project = ProjectLibrary(folder / "file").create(kWindow);
    ASSERT_FALSE(project);
    EXPECT_NE(project.error().message.find("Not a directory"), std::string::npos)
        << project.error().message;
}

// --- listing

TEST(ProjectLibrary, ListsRecordingsNewestFirstAndSkipsTheRest) {
    TempFolder folder;
    ProjectLibrary library(folder.path());
    auto old = library.create(kWindow, at(1000));
    auto recent = library.create(kWindow, at(3000));
    auto middle = library.create(kWindow, at(2000));
    for (auto* p : {&old, &recent, &middle}) {
        ASSERT_TRUE(*p);
        folder.write((*p)->directory.filename().string() + "/recording.mp4", "movie");
    }
    auto noMovie = library.create(kWindow, at(4000));  // project.json but no recording.mp4
    folder.write("Broken/recording.mp4", "movie");
    folder.write("Broken/project.json", "{\"version\": 1}");
    folder.write("NoMetadata/recording.mp4", "movie");
    folder.write("stray.txt", "not a folder");

    auto projects = library.load();
    ASSERT_TRUE(projects) << projects.error().message;
    ASSERT_EQ(projects->size(), 3u);
    EXPECT_EQ((*projects)[0].directory, recent->directory);
    EXPECT_EQ((*projects)[1].directory, middle->directory);
    EXPECT_EQ((*projects)[2].directory, old->directory);
    EXPECT_TRUE(fs::exists(folder / "Broken"));  // skipped, never deleted
}

TEST(ProjectLibrary, MissingRootListsEmptyAndIsNotCreated) {
    TempFolder folder;
    auto projects = ProjectLibrary(folder / "nowhere").load();
    ASSERT_TRUE(projects);
    EXPECT_TRUE(projects->empty());
    EXPECT_FALSE(fs::exists(folder / "nowhere"));
}

// --- rename and trash

TEST(ProjectLibrary, RenameTrimsAndKeepsTheFolder) {
    TempFolder folder;
    auto project = ProjectLibrary(folder.path()).create(kWindow);
    ASSERT_TRUE(project);
    auto renamed = ProjectLibrary::rename(*project, "  Checkout flow\n");
    ASSERT_TRUE(renamed && renamed->has_value());
    EXPECT_EQ((*renamed)->metadata.title, "Checkout flow");
    EXPECT_EQ((*renamed)->directory, project->directory);
    EXPECT_EQ(LocalProject::open(project->directory)->metadata.title, "Checkout flow");

    auto unchanged = ProjectLibrary::rename(*project, " \t\n");
    ASSERT_TRUE(unchanged);
    EXPECT_FALSE(unchanged->has_value());
    EXPECT_EQ(LocalProject::open(project->directory)->metadata.title, "Checkout flow");
}

TEST(ProjectLibrary, MoveToTrashTakesTheWholeFolder) {
    TempFolder home;
    testing::ScopedEnvironment env;
    testing::isolateHome(env, home.path());
    ProjectLibrary library(home / "Videos/Quillo");
    auto project = library.create(kWindow);
    ASSERT_TRUE(project);
    home.write("Videos/Quillo/" + project->directory.filename().string() + "/recording.mp4", "m");
    auto trashed = ProjectLibrary::moveToTrash(*project);
    ASSERT_TRUE(trashed) << trashed.error().message;
    EXPECT_FALSE(fs::exists(project->directory));
    EXPECT_TRUE(fs::exists(*trashed / "recording.mp4"));
    EXPECT_TRUE(library.load()->empty());
}

// --- files survive crashes

TEST(LocalProject, KilledWhileSavingLeavesTheOldFilesWhole) {
    TempFolder folder;
    auto project = ProjectLibrary(folder.path()).create(kWindow);
    ASSERT_TRUE(project);
    Edits before = Edits::fresh(10);
    ASSERT_TRUE(project->saveEdits(before));

    pid_t child = testing::forkChild([&] {
        setBeforeRenameHookForTesting([](const fs::path&) { ::raise(SIGKILL); });
        Edits after = before;
        after.zooms = {{1, 2, 2, 0.5, 0.5, {}}};
        (void)project->saveEdits(after);
    });
    EXPECT_EQ(testing::waitForSignal(child), SIGKILL);
    child = testing::forkChild([&] {
        setBeforeRenameHookForTesting([](const fs::path&) { ::raise(SIGKILL); });
        LocalProject renamed = *project;
        renamed.metadata.title = "never saved";
        (void)renamed.save();
    });
    EXPECT_EQ(testing::waitForSignal(child), SIGKILL);

    auto edits = project->loadEdits(10);
    ASSERT_TRUE(edits && edits->has_value());
    EXPECT_EQ(**edits, before);
    EXPECT_EQ(LocalProject::open(project->directory)->metadata, project->metadata);
}

TEST(LocalProject, LoadEditsReportsDecodeAndValidationErrors) {
    TempFolder folder;
    LocalProject project{folder.path(), {}};
    auto none = project.loadEdits(10);
    ASSERT_TRUE(none);
    EXPECT_FALSE(none->has_value());

    folder.write("edits.json", R"({"version":1,"trimStart":0,"trimEnd":20,"zooms":[]})");
    auto tooLong = project.loadEdits(10);
    ASSERT_FALSE(tooLong);
    EXPECT_EQ(tooLong.error().message, "The trim range is invalid.");

    folder.write("edits.json", R"({"version":1,"trimStart":0,"zooms":[]})");
    auto missing = project.loadEdits(10);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().message,
              "The edit recipe could not be read: \"trimEnd\" is missing.");
}

// --- metadata

TEST(ProjectMetadata, DecodesAndRejectsBadSources) {
    auto good = decodeMetadata(R"({"version":1,"title":"T","created":"2024-11-14T16:20:34Z",
        "source":{"kind":"display","id":4294967295,"name":"Screen","detail":""},"duration":3.5})");
    ASSERT_TRUE(good) << good.error().message;
    EXPECT_EQ(good->source.id, 4294967295u);
    EXPECT_EQ(good->duration, 3.5);

    auto tooBig = decodeMetadata(R"({"version":1,"title":"T","created":"x",
        "source":{"kind":"display","id":4294967296,"name":"","detail":""}})");
    EXPECT_FALSE(tooBig);
    auto noSource = decodeMetadata(R"({"version":1,"title":"T","created":"x"})");
    ASSERT_FALSE(noSource);
    EXPECT_EQ(noSource.error().message,
              "The project file could not be read: \"source\" is missing.");
}

TEST(ProjectMetadata, CreatedDateReadsInternetDateTimes) {
    auto utc = parseISO8601("2024-11-14T16:20:34Z");
    ASSERT_TRUE(utc);
    EXPECT_EQ(*utc, at(1731601234));
    EXPECT_EQ(parseISO8601("2024-11-14T17:20:34+01:00"), utc);
    EXPECT_EQ(parseISO8601("2024-11-14T11:20:34-0500"), utc);
    auto fraction = parseISO8601("2024-11-14T16:20:34.5Z");
    ASSERT_TRUE(fraction);
    EXPECT_EQ(*fraction - *utc, std::chrono::milliseconds(500));
    for (const char* bad : {"", "2024-11-14", "2024-11-14T16:20:34", "2024-13-14T16:20:34Z",
                            "2024-11-14T16:20:34Zjunk", "yesterday", "9999-12-31T23:59:59Z"}) {
        EXPECT_FALSE(parseISO8601(bad)) << bad;
    }
    EXPECT_EQ(iso8601(at(0)), "1970-01-01T00:00:00Z");
}

}  // namespace
}  // namespace quillo::project
