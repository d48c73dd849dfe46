#include "redaction/redaction.h"

#include <cmath>
#include <cstring>

#include <gtest/gtest.h>

#include "editor/editor_fixture.h"
#include "redaction/redaction_editor.h"
#include "render/exporter.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::redaction {
namespace {

using project::Redaction;
using project::RedactionStyle;

// A checkerboard of 2-pixel squares, so blurring and pixelation both change every pixel.
render::Image checkers(int width, int height) {
    render::Image image(width, height);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uint8_t v = ((x / 2 + y / 2) % 2) ? 255 : 0;
            uint8_t* p = image.view().pixel(x, y);
            p[0] = p[1] = p[2] = v;
            p[3] = 255;
        }
    }
    return image;
}

bool same(const render::Image& a, const render::Image& b, int x, int y) {
    return std::memcmp(a.view().pixel(x, y), b.view().pixel(x, y), 4) == 0;
}

// Pixels inside and outside the rectangle that changed.
std::pair<int, int> changed(const render::Image& before, const render::Image& after,
                            render::PixelRect area) {
    int inside = 0;
    int outside = 0;
    for (int y = 0; y < before.height; ++y) {
        for (int x = 0; x < before.width; ++x) {
            bool in =
                x >= area.x && x < area.x + area.width && y >= area.y && y < area.y + area.height;
            if (!same(before, after, x, y)) {
                (in ? inside : outside)++;
            }
        }
    }
    return {inside, outside};
}

TEST(Redaction, OpacityFadesOverAFifteenthOfASecondEachSide) {
    Redaction r = make(2, 4, {0, 0, 0.5, 0.5});
    EXPECT_DOUBLE_EQ(opacity(r, 2.0), 1);
    EXPECT_DOUBLE_EQ(opacity(r, 4.0), 1);
    EXPECT_NEAR(opacity(r, 1.925), 0.5, 1e-9);
    EXPECT_NEAR(opacity(r, 4.075), 0.5, 1e-9);
    EXPECT_DOUBLE_EQ(opacity(r, 4.15), 0);
    EXPECT_DOUBLE_EQ(opacity(r, 9), 0);
}

TEST(Redaction, Validity) {
    EXPECT_TRUE(make(0, 1, {0.9, 0, 0.1001, 0.5}).isValid());
    EXPECT_FALSE(make(0, 1, {0.9, 0, 0.2, 0.5}).isValid());
    Redaction twoComponents =
        make(0, 1, {0, 0, 0.5, 0.5}, RedactionStyle::Box, 0.6, std::vector<double>{1, 0});
    EXPECT_FALSE(twoComponents.isValid());
    EXPECT_FALSE(make(1, 1, {0, 0, 0.5, 0.5}).isValid());
    EXPECT_EQ(parseColor("#FF8000"), (std::vector<double>{1, 128 / 255.0, 0}));
    EXPECT_FALSE(parseColor("#FF80"));
    EXPECT_FALSE(parseColor("red"));
}

TEST(Redaction, StylesChangeExactlyTheArea) {
    render::Image before = checkers(200, 100);
    // Unit area (0.25, 0.2)–(0.5, 0.6) is pixels x 50–99, y 20–59.
    const render::PixelRect area{50, 20, 50, 40};
    for (RedactionStyle style :
         {RedactionStyle::Blur, RedactionStyle::Pixelate, RedactionStyle::Box}) {
        render::Image after = before;
        project::Edits edits = project::Edits::fresh(5);
        edits.redactions = std::vector{make(1, 2, {0.25, 0.2, 0.25, 0.4}, style)};
        applyAll(edits, after.view(), 1.5);
        auto [inside, outside] = changed(before, after, area);
        EXPECT_EQ(outside, 0) << static_cast<int>(style);
        EXPECT_GT(inside, 40 * 50 / 3) << static_cast<int>(style);
        if (style == RedactionStyle::Box) {
            EXPECT_EQ(after.view().pixel(60, 30)[0], 0);  // black without a colour
            EXPECT_EQ(after.view().pixel(61, 30)[2], 0);
            // Half faded in, the box is half dark over white.
            render::Image fading = before;
            applyAll(edits, fading.view(), 1 - kFade / 2);
            EXPECT_NEAR(fading.view().pixel(50, 20)[0], 128, 1);
        }
        // Outside its time nothing is drawn.
        render::Image later = before;
        applyAll(edits, later.view(), 2.2);
        EXPECT_EQ(changed(before, later, area).first, 0);
    }
}

TEST(Redaction, PixelateKeepsFourPixelBlocksAtStrengthZero) {
    EXPECT_DOUBLE_EQ(pixelBlock(200, 0), 4);
    EXPECT_DOUBLE_EQ(pixelBlock(1080, 1), 1080 * 0.05);
    EXPECT_NEAR(blurSigma(1000, 0.5), 14, 1e-9);

    render::Image image = checkers(200, 200);
    project::Edits edits = project::Edits::fresh(5);
    edits.redactions = std::vector{make(0, 5, {0, 0, 1, 1}, RedactionStyle::Pixelate, 0)};
    applyAll(edits, image.view(), 1);
    // Blocks of 4 over 2-pixel checkers: every block holds equal black and white, so grey.
    for (int x = 0; x < 200; x += 7) {
        EXPECT_NEAR(image.view().pixel(x, 101)[1], 128, 1);
    }
}

TEST(Redaction, FinishedFramesHideTheAreaThroughZooms) {
    // A white recording, zoomed 2× on its centre, with a black box over its centre quarter: the
    // box fills the middle of the finished frame and the border stays white.
    testing::TempFolder folder;
    testing::ffmpeg("-f lavfi -i color=white:size=160x120:rate=10:duration=2 -pix_fmt yuv420p",
                    folder / "recording.mp4");
    project::Edits edits = project::Edits::fresh(2);
    project::ZoomSection zoom;
    zoom.start = 0;
    zoom.end = 2;
    zoom.scale = 2;
    zoom.follow = false;
    edits.zooms = {zoom};
    edits.redactions = std::vector{make(0, 2, {0.375, 0.375, 0.25, 0.25}, RedactionStyle::Box)};
    registerDrawing();
    auto plan = render::renderPlan(folder.path(), edits);
    ASSERT_TRUE(plan) << plan.error().message;
    auto frame = render::renderFrame(*plan, 1);
    ASSERT_TRUE(frame) << frame.error().message;
    // Unzoomed the box is 40 × 30 pixels at the centre; at 2× it is 80 × 60.
    EXPECT_LT(frame->view().pixel(80, 60)[1], 10);
    EXPECT_LT(frame->view().pixel(45, 35)[1], 10);
    EXPECT_GT(frame->view().pixel(35, 25)[1], 245);
    EXPECT_GT(frame->view().pixel(125, 95)[1], 245);
}

using RedactionEditorTest = editor::EditorFixture;

TEST_F(RedactionEditorTest, AddsSelectsUpdatesAndRemoves) {
    auto opened = openEditor();
    editor::EditorModel& model = *opened;
    RedactionEditor editor(model);

    model.setCurrentTime(10);
    ASSERT_TRUE(editor.add({0.1, 0.1, 0.3, 0.2}));
    ASSERT_EQ(editor.list().size(), 1u);
    EXPECT_NEAR(editor.list()[0].start, 9.9, 1e-6);
    EXPECT_NEAR(editor.list()[0].end, 10, 1e-6);
    EXPECT_EQ(editor.selected(), 0u);

    model.setCurrentTime(2);
    ASSERT_TRUE(editor.add({0.5, 0.5, 0.2, 0.2}));
    EXPECT_DOUBLE_EQ(editor.list()[1].start, 2);
    EXPECT_DOUBLE_EQ(editor.list()[1].end, 5);

    // A drag changes the selection live; only commit() makes the undoable edit.
    Redaction moved = *editor.selection();
    moved.x = 0.6;
    editor.update(moved);
    EXPECT_DOUBLE_EQ(editor.selection()->x, 0.6);
    EXPECT_DOUBLE_EQ(editor.list()[1].x, 0.5);
    ASSERT_TRUE(editor.commit());
    EXPECT_DOUBLE_EQ(editor.list()[1].x, 0.6);
    model.undo();
    EXPECT_DOUBLE_EQ(editor.list()[1].x, 0.5);

    // An invalid change is refused whole.
    editor.select(1);
    Redaction outside = *editor.selection();
    outside.width = 0.9;
    editor.update(outside);
    EXPECT_FALSE(editor.commit());
    EXPECT_DOUBLE_EQ(editor.list()[1].width, 0.2);

    EXPECT_TRUE(editor.removeSelected());
    EXPECT_FALSE(editor.removeSelected());
    EXPECT_EQ(editor.list().size(), 1u);

    editor.setProposals({make(1, 2, {0, 0, 0.1, 0.1}), make(3, 4, {0, 0, 0.1, 0.1})});
    ASSERT_TRUE(editor.accept(1));
    EXPECT_EQ(editor.proposals().size(), 1u);
    ASSERT_TRUE(editor.accept());
    EXPECT_TRUE(editor.proposals().empty());
    EXPECT_EQ(editor.list().size(), 3u);
}

}  // namespace
}  // namespace quillo::redaction
