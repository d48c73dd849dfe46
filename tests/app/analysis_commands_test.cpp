#include "app/analysis_commands.h"

#include <sstream>

#include <gtest/gtest.h>

#include "base/files.h"
#include "captions/caption_track.h"
#include "project/project_library.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::app {
namespace {

namespace fs = std::filesystem;

class AnalysisCommands : public ::testing::Test {
protected:
    void SetUp() override {
        testing::isolateHome(environment, home.path());
        environment.set("QUILLO_LIBRARY", library.string());
        auto created = project::ProjectLibrary(library).create({"window", 1, "Notes", ""});
        ASSERT_TRUE(created);
        folder = created->directory;
        title = created->metadata.title;
        testing::ffmpeg("-f lavfi -i testsrc=size=160x120:rate=10:duration=2 -pix_fmt yuv420p",
                        created->recordingFile());
    }

    using Command = int (*)(const std::vector<std::string>&, std::ostream&, std::ostream&);
    int run(Command command, std::vector<std::string> args) {
        out.str("");
        err.str("");
        return command(args, out, err);
    }

    testing::TempFolder home;
    testing::ScopedEnvironment environment;
    fs::path library = home / "Library";
    fs::path folder;
    std::string title;
    std::ostringstream out;
    std::ostringstream err;
};

TEST_F(AnalysisCommands, CaptionsSubtitlesAndScan) {
    EXPECT_EQ(run(captionsCommand, {folder.string()}), 1);
    EXPECT_EQ(err.str(), "Couldn't read the recording's sound.\n");
    EXPECT_EQ(run(captionsCommand, {folder.string(), "--language"}), 2);

    EXPECT_EQ(run(subtitlesCommand, {folder.string()}), 1);
    captions::CaptionTrack track;
    track.segments = {{0.5, 1.5, "Hello", std::nullopt}};
    ASSERT_TRUE(track.save(folder));
    EXPECT_EQ(run(subtitlesCommand, {folder.string(), "--format", "ass"}), 2);
    ASSERT_EQ(run(subtitlesCommand, {folder.string(), "--format", "vtt"}), 0) << err.str();
    fs::path written = library / "Exports" / (title + ".vtt");
    EXPECT_EQ(out.str(), written.string() + "\n");
    EXPECT_EQ(*readFile(written), "WEBVTT\n\n00:00:00.500 --> 00:00:01.500\nHello\n");

    EXPECT_EQ(run(scanCommand, {folder.string(), "--everything"}), 2);
    ASSERT_EQ(run(scanCommand, {folder.string(), "--apply"}), 0) << err.str();
    EXPECT_EQ(out.str(), "Nothing private was found on screen.\n");
}

}  // namespace
}  // namespace quillo::app
