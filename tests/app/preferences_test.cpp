#include "app/preferences.h"

#include <gtest/gtest.h>

#include "base/files.h"
#include "support/temp_folder.h"

namespace quillo::app {
namespace {

using testing::TempFolder;

struct PreferencesFixture : ::testing::Test {
    TempFolder folder;
    PreferenceStore store{folder / "preferences.json"};
    Preferences preferences{store};

    void stored(const std::string& json) {
        folder.write("preferences.json", json);
        store.reload();
    }
};

TEST_F(PreferencesFixture, WrongTypesAndUnknownChoicesReadAsDefaults) {
    stored(R"({"showMenuBarIcon": "no", "captureFPS": 29.5, "autoZoomScale": "big",
               "recordShortcut": "commandShift9", "demoPace": "frantic", "libraryPath": 7,
               "openTabs": "one", "defaultAspect": 3})");
    EXPECT_TRUE(preferences.get(prefs::showMenuBarIcon));
    EXPECT_EQ(preferences.get(prefs::captureFPS), 30);
    EXPECT_EQ(preferences.get(prefs::autoZoomScale), 1.8);
    EXPECT_EQ(preferences.get(prefs::recordShortcut), RecordShortcut::CommandShift2);
    EXPECT_EQ(preferences.get(prefs::demoPace), DemoPace::Normal);
    EXPECT_EQ(preferences.get(prefs::libraryPath), std::nullopt);
    EXPECT_TRUE(preferences.get(prefs::openTabs).empty());
    EXPECT_EQ(preferences.get(prefs::defaultAspect), project::AspectRatio::Original);
}

TEST_F(PreferencesFixture, NumbersConvertWhereTheKindAllows) {
    stored(R"({"captureMaxDimension": 2560, "captureFPS": 60.0, "deadTimeSpeed": 6})");
    EXPECT_EQ(preferences.get(prefs::captureMaxDimension), 2560);  // an integer read as real
    EXPECT_EQ(preferences.get(prefs::captureFPS), 60);             // a whole real as integer
    EXPECT_EQ(preferences.get(prefs::deadTimeSpeed), 6);
}

TEST_F(PreferencesFixture, WritesStoreRawValuesAndReadBack) {
    ASSERT_TRUE(preferences.set(prefs::recordShortcut, RecordShortcut::ControlOptionCommandR));
    ASSERT_TRUE(preferences.set(prefs::defaultAspect, project::AspectRatio::Portrait9x16));
    ASSERT_TRUE(preferences.set(prefs::libraryPath, OptionalText("/media/demos")));
    ASSERT_TRUE(preferences.set(prefs::openTabs, TextList{"/a", "/b"}));
    ASSERT_TRUE(preferences.set(prefs::captureFPS, int64_t{60}));

    PreferenceStore again(folder / "preferences.json");
    EXPECT_EQ(again.value("recordShortcut"), Json("controlOptionCommandR"));
    EXPECT_EQ(again.value("defaultAspect"), Json("9:16"));
    Preferences reread(again);
    EXPECT_EQ(reread.get(prefs::libraryPath), "/media/demos");
    EXPECT_EQ(reread.get(prefs::openTabs), (TextList{"/a", "/b"}));
    EXPECT_EQ(reread.get(prefs::captureFPS), 60);

    ASSERT_TRUE(preferences.set(prefs::libraryPath, std::nullopt));
    EXPECT_FALSE(store.value("libraryPath"));
}

TEST_F(PreferencesFixture, CompositeStylesGatherTheirKeys) {
    EXPECT_EQ(preferences.frameStyle(), project::FrameStyle{});
    EXPECT_EQ(preferences.cursorStyle(), project::CursorStyle{});
    EXPECT_EQ(preferences.captionStyle(), project::CaptionStyle{});
    EXPECT_EQ(preferences.cameraStyle(), project::CameraStyle{});
    EXPECT_EQ(preferences.deadTimeOptions(), editor::DeadTimeOptions{});

    stored(R"({"backdropBackground": 4, "backdropPadding": 0.12, "backdropShadow": false,
               "cursorSize": 2, "cursorHideWhenIdle": true, "captionLineLength": 50,
               "captionPosition": "top", "captionBackground": "none", "cameraLayout": "side-left",
               "cameraShape": "rounded", "cameraMirror": false, "deadTimeAction": "cut",
               "deadTimeMinimum": 3, "deadTimeSpeed": 8})");
    EXPECT_EQ(preferences.frameStyle(), (project::FrameStyle{4, 0.12, 0.02, false}));
    EXPECT_EQ(preferences.cursorStyle().size, 2);
    EXPECT_TRUE(preferences.cursorStyle().hideWhenIdle);
    project::CaptionStyle captions = preferences.captionStyle();
    EXPECT_EQ(captions.maxCharacters, 50);
    EXPECT_EQ(captions.position, project::CaptionPosition::Top);
    EXPECT_EQ(captions.background, project::CaptionBackground::None);
    project::CameraStyle camera = preferences.cameraStyle();
    EXPECT_EQ(camera.layout, project::CameraLayout::SideLeft);
    EXPECT_EQ(camera.shape, project::CameraShape::Rounded);
    EXPECT_FALSE(camera.mirror);
    EXPECT_EQ(camera.size, 0.28);
    editor::DeadTimeOptions options = preferences.deadTimeOptions();
    EXPECT_EQ(options.action, editor::DeadTimeAction::Cut);
    EXPECT_EQ(options.minimumLength, 3);
    EXPECT_EQ(options.speed, 8);
}

TEST_F(PreferencesFixture, ObserversHearChanges) {
    int calls = 0;
    auto id = preferences.addObserver([&] { ++calls; });
    ASSERT_TRUE(preferences.set(prefs::agentServerEnabled, false));
    EXPECT_EQ(calls, 1);
    stored(R"({"agentServerEnabled": true})");  // as if another process rewrote the file
    EXPECT_EQ(calls, 2);
    preferences.removeObserver(id);
    ASSERT_TRUE(preferences.set(prefs::agentServerEnabled, false));
    EXPECT_EQ(calls, 2);
}

TEST(DeadTimeOptions, RuleDescribesTheAction) {
    editor::DeadTimeOptions options;
    options.action = editor::DeadTimeAction::Cut;
    EXPECT_EQ(options.rule(), "Cuts idle stretches out.");
    options.action = editor::DeadTimeAction::SpeedUp;
    options.speed = 12;  // applied as 8
    EXPECT_EQ(options.rule(), "Speeds up idle stretches 8×.");
    options.action = editor::DeadTimeAction::Auto;
    options.speed = 2.5;
    EXPECT_EQ(options.rule(), "Speeds up idle stretches 2.5× and cuts those longer than 8 s.");
}

}  // namespace
}  // namespace quillo::app
