#include "app/export_command.h"

#include <sstream>

#include <gtest/gtest.h>

#include "app/analysis_commands.h"
#include "base/files.h"
#include "captions/caption_track.h"
#include "project/project_library.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::app {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

class ExportCommand : public ::testing::Test {
protected:
    void SetUp() override {
        testing::isolateHome(environment, home.path());
        environment.set("QUILLO_LIBRARY", library.string());
        auto created = project::ProjectLibrary(library).create({"window", 1, "Notes", ""});
        ASSERT_TRUE(created);
        folder = created->directory;
        title = created->metadata.title;
        testing::ffmpeg(
            "-f lavfi -i testsrc=size=160x120:rate=10:duration=1 -pix_fmt yuv420p "
            "-c:v libx264 -preset ultrafast",
            created->recordingFile());
    }

    using Command = int (*)(const std::vector<std::string>&, std::ostream&, std::ostream&);
    int run(Command command, std::vector<std::string> args) {
        out.str("");
        err.str("");
        return command(args, out, err);
    }
    int run(std::vector<std::string> args, bool frame = false) {
        return run(frame ? renderFrameCommand : exportCommand, std::move(args));
    }

    TempFolder home;
    testing::ScopedEnvironment environment;
    fs::path library = home / "Library";
    fs::path folder;
    std::string title;
    std::ostringstream out;
    std::ostringstream err;
};

TEST_F(ExportCommand, WritesToTheExportsFolderWithoutOverwriting) {
    ASSERT_EQ(run({folder.string()}), 0) << err.str();
    fs::path first = library / "Exports" / (title + ".mp4");
    EXPECT_EQ(out.str(), first.string() + "\n");
    EXPECT_TRUE(fs::exists(first));

    ASSERT_EQ(run({folder.string(), "--preset", "docs_gif"}), 0) << err.str();
    EXPECT_EQ(out.str(), (library / "Exports" / (title + " — Docs.gif")).string() + "\n");

    ASSERT_EQ(run({folder.string()}), 0) << err.str();
    EXPECT_EQ(out.str(), (library / "Exports" / (title + " 2.mp4")).string() + "\n");

    fs::path chosen = home / "chosen.mp4";
    ASSERT_EQ(run({folder.string(), "--preset", "x", "--out", chosen.string()}), 0) << err.str();
    auto info = testing::probe(chosen);
    EXPECT_NE(info.find("\"width\": 1280"), std::string::npos) << info;
}

TEST_F(ExportCommand, BadArgumentsAndFoldersSayWhy) {
    EXPECT_EQ(run({folder.string(), "--preset", "vhs"}), 2);
    EXPECT_NE(err.str().find("Unknown preset “vhs”."), std::string::npos) << err.str();
    EXPECT_EQ(run({folder.string(), "--size"}), 2);
    EXPECT_NE(err.str().find("--size needs a value."), std::string::npos) << err.str();
    EXPECT_EQ(run({}), 2);
    EXPECT_EQ(run({(home / "nowhere").string()}), 1);
    EXPECT_FALSE(err.str().empty());
    EXPECT_FALSE(fs::exists(library / "Exports"));
}

TEST_F(ExportCommand, RenderFrameWritesAPicture) {
    fs::path png = home / "frame.png";
    ASSERT_EQ(run({folder.string(), "0.5", png.string()}, true), 0) << err.str();
    auto info = testing::probe(png);
    EXPECT_NE(info.find("\"width\": 160"), std::string::npos) << info;
    EXPECT_EQ(run({folder.string(), "soon", png.string()}, true), 2);
    EXPECT_NE(err.str().find("The time must be a number of seconds."), std::string::npos);
}

TEST_F(ExportCommand, CaptionsSubtitlesAndScan) {
    EXPECT_EQ(run(captionsCommand, {folder.string()}), 1);
    EXPECT_EQ(err.str(), "Couldn't read the recording's sound.\n");
    EXPECT_EQ(run(captionsCommand, {folder.string(), "--language"}), 2);

    EXPECT_EQ(run(subtitlesCommand, {folder.string()}), 1);
    captions::CaptionTrack track;
    track.segments = {{0.2, 0.8, "Hello", std::nullopt}};
    ASSERT_TRUE(track.save(folder));
    EXPECT_EQ(run(subtitlesCommand, {folder.string(), "--format", "ass"}), 2);
    ASSERT_EQ(run(subtitlesCommand, {folder.string(), "--format", "vtt"}), 0) << err.str();
    fs::path written = library / "Exports" / (title + ".vtt");
    EXPECT_EQ(out.str(), written.string() + "\n");
    EXPECT_EQ(*readFile(written), "WEBVTT\n\n00:00:00.200 --> 00:00:00.800\nHello\n");

    EXPECT_EQ(run(scanCommand, {folder.string(), "--everything"}), 2);
    ASSERT_EQ(run(scanCommand, {folder.string(), "--apply"}), 0) << err.str();
    EXPECT_EQ(out.str(), "Nothing private was found on screen.\n");
}

}  // namespace
}  // namespace quillo::app
