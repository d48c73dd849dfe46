// The export sheet: real exports through the dialog on the worker, Cancel leaving nothing, the
// choices each preset allows, and the remembered preset.

#include <functional>

#include <QAbstractButton>
#include <QComboBox>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QLabel>
#include <QProgressBar>
#include <QRadioButton>
#include <QThread>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "render/exporter.h"
#include "views/export_dialog.h"
#include "views_fixture.h"

namespace quillo::views {
namespace {

namespace fs = std::filesystem;

// Runs the event loop until `done` (an export can take a while under the sanitizers).
bool waitFor(const std::function<bool()>& done) {
    QDeadlineTimer deadline(std::chrono::minutes(3));
    while (!done() && !deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return done();
}

std::vector<fs::path> exportedFiles(const fs::path& library) {
    std::vector<fs::path> files;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(library / "Exports", error)) {
        files.push_back(entry.path());
    }
    return files;
}

class ExportTest : public ViewsFixture {
protected:
    fs::path library() { return studio->library().root(); }
};

TEST_F(ExportTest, ExportsTheMovieAtThePresetsSizeAndRemembersThePreset) {
    EditorSession& session = openSession(1.5);
    ExportDialog dialog(session);
    dialog.show();
    named<QRadioButton>(dialog, "LinkedIn 1:1")->click();
    EXPECT_TRUE(named<QLabel>(dialog, "Destination")->text().contains("Session — LinkedIn.mp4"));
    named<QAbstractButton>(dialog, "Export")->click();
    EXPECT_TRUE(session.model().exporting());
    EXPECT_FALSE(session.model().commit(session.model().edits())) << "edits refused meanwhile";

    ASSERT_TRUE(waitFor([&] { return named<QAbstractButton>(dialog, "Close")->isVisible(); }))
        << named<QLabel>(dialog, "Export message")->text().toStdString();
    EXPECT_FALSE(session.model().exporting());
    ASSERT_TRUE(dialog.exported());
    EXPECT_EQ(*dialog.exported(), library() / "Exports" / "Session — LinkedIn.mp4");
    EXPECT_EQ(named<QLabel>(dialog, "Exported file")->text().toStdString(),
              dialog.exported()->string());
    EXPECT_TRUE(named<QAbstractButton>(dialog, "Show in Folder")->isVisible());

    auto info = nlohmann::json::parse(testing::probe(*dialog.exported()));
    const auto& video = info["streams"][0];
    EXPECT_EQ(video["width"], 1080);
    EXPECT_EQ(video["height"], 1080);
    EXPECT_NEAR(std::stod(info["format"]["duration"].get<std::string>()), 1.5, 0.1);

    EXPECT_EQ(preferences->get(app::prefs::exportPreset), render::ExportPreset::LinkedInSquare);
    ExportDialog next(session);
    EXPECT_EQ(next.preset(), render::ExportPreset::LinkedInSquare);
}

TEST_F(ExportTest, ASecondExportDoesNotOverwriteTheFirst) {
    EditorSession& session = openSession(0.5);
    for (int round = 0; round < 2; ++round) {
        ExportDialog dialog(session);
        dialog.show();
        named<QRadioButton>(dialog, "Custom")->click();
        named<QAbstractButton>(dialog, "Export")->click();
        ASSERT_TRUE(waitFor([&] { return dialog.exported().has_value(); }));
    }
    auto files = exportedFiles(library());
    std::sort(files.begin(), files.end());
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[0].filename(), "Session 2.mp4");
    EXPECT_EQ(files[1].filename(), "Session.mp4");
}

TEST_F(ExportTest, CancelLeavesNoFileAndUnlocksTheEditor) {
    EditorSession& session = openSession(4);
    ExportDialog dialog(session);
    dialog.show();
    named<QRadioButton>(dialog, "YouTube 4K")->click();
    named<QAbstractButton>(dialog, "Export")->click();
    ASSERT_TRUE(session.model().exporting());
    EXPECT_TRUE(named<QWidget>(dialog, "Export progress")->isVisible());
    // Escape cancels the export rather than closing the sheet.
    dialog.reject();
    EXPECT_TRUE(dialog.isVisible());

    ASSERT_TRUE(waitFor([&] { return !session.model().exporting(); }));
    EXPECT_EQ(named<QLabel>(dialog, "Export message")->text(), render::kExportCancelled);
    EXPECT_FALSE(dialog.exported());
    EXPECT_TRUE(exportedFiles(library()).empty());
    EXPECT_TRUE(named<QAbstractButton>(dialog, "Export")->isVisible());
    dialog.reject();
    EXPECT_FALSE(dialog.isVisible());
}

TEST_F(ExportTest, ThePresetDecidesWhichChoicesApply) {
    EditorSession& session = openSession(1);
    ExportDialog dialog(session);
    auto* format = named<QComboBox>(dialog, "Format");
    auto* size = named<QComboBox>(dialog, "Size");
    auto* follow = named<QRadioButton>(dialog, "Follow the action");
    EXPECT_EQ(dialog.preset(), render::kDefaultExportPreset);

    named<QRadioButton>(dialog, "YouTube")->click();
    EXPECT_FALSE(format->isEnabled());
    EXPECT_FALSE(follow->isEnabled());
    named<QRadioButton>(dialog, "Reels · TikTok")->click();
    EXPECT_TRUE(follow->isEnabled());

    named<QRadioButton>(dialog, "Custom")->click();
    EXPECT_TRUE(format->isEnabled());
    EXPECT_TRUE(size->isEnabled());
    format->setCurrentIndex(format->findText("GIF"));
    EXPECT_FALSE(size->isEnabled()) << "GIFs are always held to 960 px";
    EXPECT_TRUE(named<QLabel>(dialog, "Destination")->text().contains("Session.gif"));
    EXPECT_EQ(dialog.findChildren<QRadioButton*>().size(),
              ExportDialog::offeredPresets().size() + 2);
}

}  // namespace
}  // namespace quillo::views

namespace quillo::views {
namespace {

// Pictures of the sheet choosing, exporting and finished, written to $QUILLO_VIEWS_SHOTS (the
// test run's artefacts).
TEST_F(ExportTest, Screenshots) {
    QString folder = qEnvironmentVariable("QUILLO_VIEWS_SHOTS", "/tmp");
    EditorSession& session = openSession(3);
    ExportDialog dialog(session);
    dialog.show();
    named<QRadioButton>(dialog, "Reels · TikTok")->click();
    QCoreApplication::processEvents();
    dialog.grab().save(folder + "/export-choosing.png");
    named<QAbstractButton>(dialog, "Export")->click();
    waitFor([&] {
        return named<QProgressBar>(dialog, "Export progress")->value() >= 40 ||
               dialog.exported().has_value();
    });
    QCoreApplication::processEvents();
    dialog.grab().save(folder + "/export-progress.png");
    ASSERT_TRUE(waitFor([&] { return dialog.exported().has_value(); }));
    QCoreApplication::processEvents();
    dialog.grab().save(folder + "/export-finished.png");
}

}  // namespace
}  // namespace quillo::views
