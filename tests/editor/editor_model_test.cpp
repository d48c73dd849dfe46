#include "editor/editor_model.h"

#include "base/files.h"
#include "editor/editor_texts.h"
#include "editor_fixture.h"
#include "project/edits_json.h"

namespace quillo::editor {
namespace {

using project::Edits;
using EditorModelTest = EditorFixture;

std::string editsFile(const project::LocalProject& p) {
    return readFile(p.directory / "edits.json").value_or("");
}

// --- loading

TEST_F(EditorModelTest, OpensOffTheMainQueueWithAFreshRecipe) {
    EditorModel editor(project);
    int changes = 0;
    editor.changed.connect([&] { ++changes; });
    editor.open();
    ASSERT_TRUE(runUntil([&] { return editor.loaded(); }));
    EXPECT_NEAR(editor.duration(), 10, 0.001);
    EXPECT_EQ(editor.videoSize(), (Size{160, 120}));
    EXPECT_EQ(editor.edits(), Edits::fresh(editor.duration()));
    EXPECT_FALSE(editor.cursorTrack());
    EXPECT_GE(changes, 1);
}

TEST_F(EditorModelTest, AnInvalidStoredRecipeBecomesTheLoadError) {
    library.write(project.directory.filename().string() + "/edits.json",
                  R"({"version":1,"trimStart":0,"trimEnd":30,"zooms":[]})");
    EditorModel editor(project);
    editor.load();
    EXPECT_FALSE(editor.loaded());
    EXPECT_EQ(editor.loadError(), "The trim range is invalid.");

    library.write(project.directory.filename().string() + "/edits.json", "{");
    editor.load();
    EXPECT_EQ(editor.loadError(), "The edit recipe could not be read: the file is not valid JSON.");
}

TEST_F(EditorModelTest, StoredListsAreSortedByStart) {
    Edits stored = Edits::fresh(10);
    stored.zooms = {{5, 6, 2, 0.5, 0.5, {}}, {1, 2, 2, 0.5, 0.5, {}}};
    ASSERT_TRUE(project.saveEdits(stored));
    auto editor = openEditor();
    EXPECT_EQ(editor->edits().zooms[0].start, 1);
}

// --- the commit step

TEST_F(EditorModelTest, HistoryKeepsAtMostOneHundredSteps) {
    auto editor = openEditor();
    for (int i = 1; i <= 101; ++i) {
        Edits next = editor->edits();
        next.trimEnd = 10 - i * 0.01;
        ASSERT_TRUE(editor->commit(next));
    }
    EXPECT_EQ(editor->undoStack().size(), 100u);
    int undone = 0;
    while (editor->canUndo()) {
        editor->undo();
        ++undone;
    }
    EXPECT_EQ(undone, 100);
    // The oldest step (the fresh recipe) was dropped: undo stops one edit short of it.
    EXPECT_NEAR(editor->edits().trimEnd, 9.99, 1e-9);
    EXPECT_EQ(editor->redoStack().size(), 100u);
}

TEST_F(EditorModelTest, EqualEditsAddNoHistoryAndNewEditsClearRedo) {
    auto editor = openEditor();
    ASSERT_TRUE(editor->commit(editor->edits()));
    EXPECT_FALSE(editor->canUndo());

    Edits trimmed = editor->edits();
    trimmed.trimStart = 1;
    ASSERT_TRUE(editor->commit(trimmed));
    editor->undo();
    EXPECT_EQ(editor->edits().trimStart, 0);
    EXPECT_TRUE(editor->canRedo());
    editor->redo();
    EXPECT_EQ(editor->edits().trimStart, 1);
    editor->undo();
    Edits other = editor->edits();
    other.clickHighlights = true;
    ASSERT_TRUE(editor->commit(other));
    EXPECT_FALSE(editor->canRedo());
    // Every step is on disk at once.
    EXPECT_EQ(project::decodeEdits(editsFile(project)).value(), other);
}

TEST_F(EditorModelTest, RejectedEditsNeverReachTheFileOrHistory) {
    auto editor = openEditor();
    Edits good = editor->edits();
    good.trimStart = 2;
    ASSERT_TRUE(editor->commit(good));
    const std::string before = editsFile(project);

    Edits bad = good;
    bad.zooms = {{1, 3, 2, 0.5, 0.5, {}}, {2, 4, 2, 0.5, 0.5, {}}};
    EXPECT_FALSE(editor->commit(bad));
    EXPECT_EQ(editor->status(), "Zoom sections must be within the recording and must not overlap.");
    EXPECT_TRUE(editor->hasError());
    EXPECT_EQ(editor->edits(), good);
    EXPECT_EQ(editor->undoStack().size(), 1u);
    EXPECT_EQ(editsFile(project), before);
}

TEST_F(EditorModelTest, ASaveFailureChangesNothing) {
    auto editor = openEditor();
    // A folder where the file should go makes the rename fail.
    std::filesystem::create_directory(project.directory / "edits.json");
    Edits next = editor->edits();
    next.trimStart = 1;
    EXPECT_FALSE(editor->commit(next));
    EXPECT_TRUE(editor->hasError());
    EXPECT_NE(editor->status().find("edits.json"), std::string::npos) << editor->status();
    EXPECT_EQ(editor->edits().trimStart, 0);
    EXPECT_FALSE(editor->canUndo());
}

TEST_F(EditorModelTest, EditsAreRefusedWhileExporting) {
    auto editor = openEditor();
    editor->setExporting(true);
    editor->addZoom(2);
    editor->addSegment(0, 4);
    EXPECT_TRUE(editor->edits().zooms.empty());
    Edits next = editor->edits();
    next.trimStart = 1;
    EXPECT_FALSE(editor->commit(next));
    EXPECT_EQ(editor->status(), texts::kWaitForExport);
    editor->setExporting(false);
    EXPECT_TRUE(editor->commit(next));
}

// --- playhead commands

TEST_F(EditorModelTest, TrimNeverGetsShorterThanATenth) {
    auto editor = openEditor();
    editor->setCurrentTime(9.95);
    editor->markIn();
    EXPECT_NEAR(editor->edits().trimStart, 9.9, 1e-9);
    editor->setCurrentTime(0);
    editor->markOut();
    EXPECT_NEAR(editor->edits().trimEnd, 10.0, 1e-9);  // trimStart + 0.1
    editor->setTrim(-5, 50);
    EXPECT_EQ(editor->edits().trimStart, 0);
    EXPECT_NEAR(editor->edits().trimEnd, editor->duration(), 1e-9);
}

TEST_F(EditorModelTest, ZoomsNeedThreeTenthsOfRoom) {
    auto editor = openEditor();
    editor->addZoom(5.0);
    ASSERT_EQ(editor->edits().zooms.size(), 1u);
    EXPECT_EQ(editor->edits().zooms[0].end, 8.0);
    EXPECT_EQ(editor->selectedZoom(), 0u);

    editor->addZoom(4.8);  // 0.2 s before the next zoom
    EXPECT_EQ(editor->status(), texts::kNoRoomForZoom);
    EXPECT_EQ(editor->edits().zooms.size(), 1u);
    editor->addZoom(4.7);  // 0.3 s: fits exactly
    ASSERT_EQ(editor->edits().zooms.size(), 2u);
    EXPECT_NEAR(editor->edits().zooms[0].end - editor->edits().zooms[0].start, 0.3, 1e-9);
    EXPECT_EQ(editor->selectedZoom(), 0u);

    editor->addZoom(6.0);  // inside a zoom: selects it
    EXPECT_EQ(editor->edits().zooms.size(), 2u);
    EXPECT_EQ(editor->selectedZoom(), 1u);
    EXPECT_EQ(editor->room(1), (std::pair<double, double>{5.0, editor->duration()}));
    EXPECT_EQ(editor->room(0), (std::pair<double, double>{0, 5.0}));
}

TEST_F(EditorModelTest, ZoomFocusFollowsTheSmoothedPointer) {
    project::CursorTrack track;
    track.samples = {{0, 0.2, 0.3, {}}, {10, 0.2, 0.3, {}}};
    library.write(project.directory.filename().string() + "/cursor.json",
                  project::encodeCursorTrack(track));
    auto editor = openEditor();
    editor->addZoom(1);
    ASSERT_EQ(editor->edits().zooms.size(), 1u);
    EXPECT_NEAR(editor->edits().zooms[0].x, 0.2, 1e-9);
    EXPECT_NEAR(editor->edits().zooms[0].y, 0.3, 1e-9);
}

TEST_F(EditorModelTest, SegmentsNeedTwoTenthsAndSelectWhenInside) {
    auto editor = openEditor();
    editor->addSegment(0, 3);
    ASSERT_EQ(editor->edits().timing().size(), 1u);
    EXPECT_EQ(editor->edits().timing()[0], (project::TimeSegment{3, 5, 0}));
    editor->deselect();
    editor->addSegment(4, 4.0);  // inside: selects, adds nothing
    EXPECT_EQ(editor->edits().timing().size(), 1u);
    EXPECT_EQ(editor->selectedSegment(), 0u);
    editor->addSegment(4, 2.85);
    EXPECT_EQ(editor->status(), texts::kNoRoomForSegment);
    editor->addSegment(4, 2.8);
    ASSERT_EQ(editor->edits().timing().size(), 2u);
    EXPECT_EQ(editor->selectedSegment(), 0u);

    editor->setSegment(1, 1.0, 9.0, 8);  // clamped into its room
    EXPECT_EQ(editor->edits().timing()[1], (project::TimeSegment{3, 9, 8}));
    EXPECT_TRUE(editor->removeSelection());
    EXPECT_EQ(editor->edits().timing().size(), 1u);
    EXPECT_FALSE(editor->removeSelection());
}

TEST_F(EditorModelTest, StyleCommandsStartFromDefaults) {
    auto editor = openEditor();
    editor->updateCursorStyle([](project::CursorStyle& style) { style.size = 2; });
    ASSERT_TRUE(editor->edits().cursor);
    EXPECT_EQ(editor->edits().cursor->smoothing, project::CursorStyle{}.smoothing);
    EXPECT_EQ(editor->edits().cursor->size, 2);
    editor->setAspect(project::AspectRatio::Square1x1);
    editor->setFrame(project::FrameStyle{9, 0.1, 0.02, true});
    EXPECT_EQ(editor->status(), "The background style is invalid.");
    EXPECT_FALSE(editor->edits().frame);
    EXPECT_EQ(editor->undoStack().size(), 2u);
}

TEST_F(EditorModelTest, AutoZoomReplacesZoomsAsOneStep) {
    auto editor = openEditor();
    editor->autoZoom();
    EXPECT_EQ(editor->status(), texts::kNothingToZoomOn);

    project::CursorTrack track;
    track.clicks = {{2, 0.5, 0.5, {}}, {7, 0.5, 0.5, {}}};
    library.write(project.directory.filename().string() + "/cursor.json",
                  project::encodeCursorTrack(track));
    editor = openEditor();
    editor->addZoom(0.5);
    editor->autoZoom();
    ASSERT_EQ(editor->edits().zooms.size(), 2u);
    EXPECT_EQ(editor->notice(), "Added 2 zooms from your clicks and typing · Ctrl+Z to undo");
    EXPECT_FALSE(editor->selectedZoom());
    editor->undo();
    EXPECT_EQ(editor->edits().zooms.size(), 1u);
}

}  // namespace
}  // namespace quillo::editor
