// Dead time found in real movies: a moving test pattern with a tone, then a still picture with
// silence, a still picture with noise, a moving picture in silence, and the pattern and tone
// again. Only the still, silent stretch is dead time.

#include "base/files.h"
#include "editor/dead_time_remover.h"
#include "editor/editor_texts.h"
#include "editor_fixture.h"

namespace quillo::editor {
namespace {

class DeadTimeMovie : public EditorFixture {
protected:
    void makeRecording(const std::filesystem::path& file) override {
        const std::string tone = "'aevalsrc=0.3*sin(2*PI*440*t):s=48000:d=3'";
        testing::ffmpeg(
            "-f lavfi -i testsrc=size=320x240:rate=30:duration=3 "
            "-f lavfi -i color=c=0x336699:size=320x240:rate=30:duration=7 "
            "-f lavfi -i testsrc=size=320x240:rate=30:duration=6 "
            "-f lavfi -i " +
                tone +
                " -f lavfi -i aevalsrc=0:s=48000:d=4 "
                "-f lavfi -i anoisesrc=d=3:c=white:r=48000:a=0.3 -f lavfi -i "
                "aevalsrc=0:s=48000:d=3 "
                "-f lavfi -i " +
                tone +
                " "
                "-filter_complex '[0:v][1:v][2:v]concat=n=3:v=1:a=0[v];"
                "[3:a][4:a][5:a][6:a][7:a]concat=n=5:v=0:a=1[a]' "
                "-map '[v]' -map '[a]' -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac",
            file);
    }
};

TEST_F(DeadTimeMovie, ActivityShowsWhereTheMovieMovesAndSounds) {
    CancelToken cancel;
    double lastProgress = -1;
    auto timeline = dead_time::analyze(
        project.recordingFile(), nullptr, 0, 16, [&](double p) { lastProgress = p; }, cancel);
    ASSERT_TRUE(timeline) << timeline.error().message;
    ASSERT_EQ(timeline->count(), 160u);
    EXPECT_DOUBLE_EQ(lastProgress, 1.0);
    auto at = [](const std::vector<double>& v, double t) { return v[static_cast<size_t>(t * 10)]; };
    EXPECT_GT(at(timeline->screen, 1.0), 0.002);    // the pattern moves
    EXPECT_LT(at(timeline->screen, 5.0), 0.002);    // the still picture
    EXPECT_LT(at(timeline->screen, 8.5), 0.002);    // still, with noise
    EXPECT_GT(at(timeline->screen, 11.5), 0.002);   // moving in silence
    EXPECT_GT(at(timeline->loudness, 1.0), 0.1);    // the tone: about 0.21
    EXPECT_LT(at(timeline->loudness, 5.0), 0.01);   // silence
    EXPECT_GT(at(timeline->loudness, 8.5), 0.01);   // noise
    EXPECT_LT(at(timeline->loudness, 11.5), 0.01);  // silence
}

TEST_F(DeadTimeMovie, ProposalLandsOnTheStillSilentStretchOnly) {
    auto editor = openEditor();
    DeadTimeRemover remover(*editor);
    remover.start(DeadTimeOptions{});
    EXPECT_TRUE(remover.running());
    ASSERT_TRUE(runUntil([&] { return !remover.running(); }));
    ASSERT_FALSE(remover.error()) << *remover.error();

    const auto& segments = editor->edits().timing();
    ASSERT_EQ(segments.size(), 1u);
    EXPECT_NEAR(segments[0].start, 3.3, 0.1);
    EXPECT_NEAR(segments[0].end, 6.7, 0.1);
    EXPECT_EQ(segments[0].speed, 4);
    ASSERT_TRUE(remover.summary());
    EXPECT_EQ(remover.summary()->rfind("Removed 2.", 0), 0u) << *remover.summary();
    EXPECT_NE(remover.summary()->find(" s in 1 place"), std::string::npos);

    // One undoable edit; the timeline is kept, so a second removal needs no analysis.
    editor->undo();
    EXPECT_TRUE(editor->edits().timing().empty());
    DeadTimeOptions cut;
    cut.action = DeadTimeAction::Cut;
    remover.start(cut);
    EXPECT_FALSE(remover.running());
    ASSERT_EQ(editor->edits().timing().size(), 1u);
    EXPECT_EQ(editor->edits().timing()[0].speed, 0);
}

TEST_F(DeadTimeMovie, CancelStopsWithoutChangingTheRecipe) {
    auto editor = openEditor();
    DeadTimeRemover remover(*editor);
    remover.start(DeadTimeOptions{});
    remover.cancel();
    EXPECT_FALSE(remover.running());
    EXPECT_FALSE(remover.progress());
    mainQueue.runPending();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    mainQueue.runPending();
    EXPECT_TRUE(editor->edits().timing().empty());
    EXPECT_FALSE(remover.summary());
}

TEST_F(DeadTimeMovie, UnreadableMovieLeavesTheRecipeAlone) {
    auto editor = openEditor();
    ASSERT_TRUE(writeFileAtomically(project.recordingFile(), "no longer a movie"));
    DeadTimeRemover remover(*editor);
    remover.start(DeadTimeOptions{});
    ASSERT_TRUE(runUntil([&] { return !remover.running(); }));
    EXPECT_EQ(remover.error(), "The movie “recording.mp4” could not be read.");
    EXPECT_EQ(editor->edits(), project::Edits::fresh(editor->duration()));
    EXPECT_FALSE(editor->canUndo());
}

TEST_F(DeadTimeMovie, AWhollyIdleClipIsNotCutAway) {
    auto editor = openEditor();
    DeadTimeRemover remover(*editor);
    ActivityTimeline idle;
    size_t count = dead_time::stepCount(0, editor->duration());
    idle.input.assign(count, false);
    idle.screen.assign(count, 0);
    idle.loudness.assign(count, 0);
    remover.adopt(idle, 0, editor->duration());
    DeadTimeOptions cut;
    cut.action = DeadTimeAction::Cut;
    auto removed = remover.remove(cut);
    ASSERT_FALSE(removed);
    EXPECT_EQ(removed.error().message, texts::kWholeClipIdle);
    EXPECT_TRUE(editor->edits().timing().empty());

    editor->setExporting(true);
    EXPECT_EQ(remover.remove(DeadTimeOptions{}).error().message, texts::kWaitForExport);
}

}  // namespace
}  // namespace quillo::editor
