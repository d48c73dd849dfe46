#include "app/inspect.h"

#include <cstdlib>
#include <sstream>

#include <gtest/gtest.h>

#include "project/edits_json.h"
#include "project/project_library.h"
#include "support/temp_folder.h"

namespace quillo::app {
namespace {

using testing::TempFolder;

// A real 4-second movie, made once for the suite with the ffmpeg command.
class Inspect : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_movies = new TempFolder();
        std::string command =
            "ffmpeg -loglevel error -y -f lavfi -i testsrc=size=320x240:rate=30 "
            "-t 4 -pix_fmt yuv420p -c:v libx264 '" +
            (*s_movies / "recording.mp4").string() + "'";
        ASSERT_EQ(std::system(command.c_str()), 0) << command;
    }
    static void TearDownTestSuite() { delete s_movies; }

    project::LocalProject makeProject() {
        auto project =
            project::ProjectLibrary(library.path()).create({"window", 1, "Terminal", "bash"});
        EXPECT_TRUE(project);
        std::filesystem::copy_file(*s_movies / "recording.mp4", project->recordingFile());
        return *project;
    }

    int run(const project::LocalProject& project) {
        out.str("");
        err.str("");
        return inspectProject(project.directory, out, err);
    }

    static TempFolder* s_movies;
    TempFolder library;
    std::ostringstream out;
    std::ostringstream err;
};

TempFolder* Inspect::s_movies = nullptr;

TEST_F(Inspect, UneditedRecordingKeepsEverything) {
    auto project = makeProject();
    EXPECT_EQ(run(project), 0) << err.str();
    EXPECT_NE(out.str().find("Title: Terminal · "), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("Duration: 0:04.0 (4.000 s)"), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("Kept pieces: 1\n  0.000 s – 4.000 s at 1×"), std::string::npos)
        << out.str();
    EXPECT_NE(out.str().find("Output duration: 0:04.0"), std::string::npos) << out.str();
}

TEST_F(Inspect, PrintsTheKeptPiecesOfTheRecipe) {
    auto project = makeProject();
    project::Edits edits = project::Edits::fresh(4);
    edits.segments = {{{1, 2, 0}, {2.5, 3.5, 2}}};
    ASSERT_TRUE(project.saveEdits(edits));
    EXPECT_EQ(run(project), 0) << err.str();
    EXPECT_NE(out.str().find("Kept pieces: 4\n  0.000 s – 1.000 s at 1×\n"
                             "  2.000 s – 2.500 s at 1×\n  2.500 s – 3.500 s at 2×\n"
                             "  3.500 s – 4.000 s at 1×\n"),
              std::string::npos)
        << out.str();
    EXPECT_NE(out.str().find("Output duration: 0:02.5 (2.500 s)"), std::string::npos);
}

TEST_F(Inspect, InvalidRecipePrintsItsMessage) {
    auto project = makeProject();
    project::Edits edits = project::Edits::fresh(4);
    edits.zooms = {{1, 3, 2, 0.5, 0.5, {}}, {2, 3.5, 2, 0.5, 0.5, {}}};
    ASSERT_TRUE(project.saveEdits(edits));
    EXPECT_EQ(run(project), 1);
    EXPECT_EQ(err.str(), "Zoom sections must be within the recording and must not overlap.\n");
    EXPECT_TRUE(out.str().empty());
}

TEST_F(Inspect, NotAProjectOrNoMovie) {
    TempFolder empty;
    EXPECT_EQ(inspectProject(empty.path(), out, err), 1);
    EXPECT_NE(err.str().find("is not a Quillo recording"), std::string::npos) << err.str();

    auto project = project::ProjectLibrary(library.path()).create({"window", 1, "X", ""});
    ASSERT_TRUE(project);
    library.write(project->directory.filename().string() + "/recording.mp4", "not a movie");
    EXPECT_EQ(run(*project), 1);
    EXPECT_EQ(err.str(), "The movie “recording.mp4” could not be read.\n");
}

}  // namespace
}  // namespace quillo::app
