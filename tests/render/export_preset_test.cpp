#include "render/export_preset.h"

#include <gtest/gtest.h>

#include "support/temp_folder.h"

namespace quillo::render {
namespace {

using project::Edits;

TEST(ExportPreset, DetailsAndReframeOffers) {
    EXPECT_EQ(presetDetail(ExportPreset::YouTube1080p), "MP4 · 1920×1080 · 60 fps");
    EXPECT_EQ(presetDetail(ExportPreset::DocsGif), "GIF · up to 960 px · 12 fps");
    EXPECT_EQ(presetDetail(ExportPreset::Custom), "Choose format and size");
    EXPECT_TRUE(offersReframe(ExportPreset::LinkedInSquare));  // square counts
    EXPECT_FALSE(offersReframe(ExportPreset::X));
    EXPECT_FALSE(offersReframe(ExportPreset::DocsGif));
}

TEST(ExportSpec, SizedPresetsReframeAndNameTheFile) {
    Edits edits = Edits::fresh(10);
    ExportSpec youtube4k = exportSpec(ExportPreset::YouTube4K, edits, {1920, 1080}, true);
    EXPECT_EQ(youtube4k.fileName("Demo"), "Demo — YouTube 4K.mp4");
    EXPECT_TRUE(youtube4k.hevc);
    EXPECT_EQ(youtube4k.fps, 60);
    EXPECT_EQ(youtube4k.outputSize({1920, 1080}), (Size{3840, 2160}));
    ASSERT_TRUE(youtube4k.edits.reframe);
    EXPECT_FALSE(youtube4k.edits.frame);
    ExportSpec custom = exportSpec(ExportPreset::Custom, edits, {1920, 1080}, true);
    EXPECT_EQ(custom.fileName("Demo"), "Demo.mp4");
    EXPECT_FALSE(custom.edits.reframe);
    EXPECT_FALSE(custom.hevc);
}

TEST(ExportSpec, FittingAnotherShapeAddsTheBackdrop) {
    Edits edits = Edits::fresh(10);
    project::FrameStyle backdrop{2, 0.1, 0.05, true};
    auto landscape = exportSpec(ExportPreset::Reels, edits, {1920, 1080}, false, ExportFormat::MP4,
                                ExportSize::Original, 12, backdrop);
    EXPECT_EQ(landscape.edits.frame, backdrop);
    auto portrait = exportSpec(ExportPreset::Reels, edits, {1080, 1920}, false);
    EXPECT_FALSE(portrait.edits.frame);  // already the target's shape
    auto following = exportSpec(ExportPreset::Reels, edits, {1920, 1080}, true);
    EXPECT_FALSE(following.edits.frame);
    auto wide = exportSpec(ExportPreset::X, edits, {1080, 1920}, false);
    EXPECT_FALSE(wide.edits.frame);  // landscape presets never add one
    edits.frame = project::FrameStyle{};
    EXPECT_EQ(exportSpec(ExportPreset::Reels, edits, {1920, 1080}, false, ExportFormat::MP4,
                         ExportSize::Original, 12, backdrop)
                  .edits.frame,
              project::FrameStyle{});  // the recipe's own frame stays
}

TEST(ExportSpec, GifsAreHeldTo960Pixels) {
    Edits edits = Edits::fresh(10);
    ExportSpec gif = exportSpec(ExportPreset::Custom, edits, {1920, 1080}, true, ExportFormat::GIF,
                                ExportSize::Original, 15);
    EXPECT_EQ(gif.fileName("Demo"), "Demo.gif");
    EXPECT_EQ(gif.fps, 15);
    EXPECT_EQ(gif.outputSize({1920, 1080}), (Size{960, 540}));
    ExportSpec docs = exportSpec(ExportPreset::DocsGif, edits, {1920, 1080}, true);
    EXPECT_EQ(docs.fileName("Demo"), "Demo — Docs.gif");
    EXPECT_EQ(docs.fps, 12);
    ExportSpec movie = exportSpec(ExportPreset::Custom, edits, {3840, 2160}, true,
                                  ExportFormat::MP4, ExportSize::P720);
    EXPECT_EQ(movie.outputSize({3840, 2160}), (Size{1280, 720}));
    EXPECT_FALSE(movie.fps);
}

TEST(ExportSpec, ExistingFilesAreNotOverwritten) {
    testing::TempFolder folder;
    EXPECT_EQ(uniqueDestination(folder.path(), "Demo.mp4"), folder / "Demo.mp4");
    folder.write("Demo.mp4", "x");
    folder.write("Demo 2.mp4", "x");
    EXPECT_EQ(uniqueDestination(folder.path(), "Demo.mp4"), folder / "Demo 3.mp4");
}

}  // namespace
}  // namespace quillo::render
