// The settings window: controls write their keys at once, changes from elsewhere show up in
// the open window without being written back, and a failed write is shown.

#include <filesystem>
#include <fstream>

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTest>
#include <gtest/gtest.h>

#include "views/codex_choice.h"
#include "views/settings_binder.h"
#include "views/settings_dialog.h"
#include "views_fixture.h"

namespace quillo::views {
namespace {

namespace fs = std::filesystem;
namespace prefs = app::prefs;

template <class W>
W* control(QWidget& root, const QString& name) {
    for (W* widget : root.findChildren<W*>()) {
        if (widget->accessibleName() == name) {
            return widget;
        }
    }
    ADD_FAILURE() << "no control " << name.toStdString();
    return nullptr;
}

// What another process would read from preferences.json now.
Json storedOnDisk(const fs::path& file) { return PreferenceStore(file).entries(); }

using SettingsTest = ViewsFixture;

TEST_F(SettingsTest, ControlsWriteTheirKeysAtOnce) {
    SettingsDialog dialog(*preferences);
    dialog.show();
    ASSERT_EQ(dialog.pageList()->count(), 5);

    control<QCheckBox>(dialog, "Record the microphone")->click();
    EXPECT_TRUE(preferences->get(prefs::microphone));

    QComboBox* fps = control<QComboBox>(dialog, "Frame rate");
    EXPECT_EQ(fps->currentText(), "30 fps");
    fps->setCurrentIndex(fps->findText("60 fps"));
    EXPECT_EQ(preferences->get(prefs::captureFPS), 60);

    QComboBox* shortcut = control<QComboBox>(dialog, "Record shortcut");
    shortcut->setCurrentIndex(shortcut->findText("Alt+Ctrl+R"));
    EXPECT_EQ(preferences->get(prefs::recordShortcut), app::RecordShortcut::OptionCommandR);

    QDoubleSpinBox* padding = control<QDoubleSpinBox>(dialog, "Padding");
    EXPECT_EQ(padding->value(), 8);
    padding->setValue(12);
    EXPECT_DOUBLE_EQ(preferences->get(prefs::backdropPadding), 0.12);

    QLineEdit* model = control<QLineEdit>(dialog, "Codex model");
    model->setText("gpt-test");
    emit model->editingFinished();
    EXPECT_EQ(preferences->get(prefs::assistantModel), "gpt-test");
    model->clear();
    emit model->editingFinished();
    EXPECT_EQ(preferences->get(prefs::assistantModel), std::nullopt);

    QComboBox* engine = control<QComboBox>(dialog, "Assistant engine");
    engine->setCurrentIndex(engine->findText("Claude Code"));
    emit engine->activated(engine->currentIndex());
    EXPECT_EQ(preferences->get(prefs::assistantEngine), "claude");

    Json disk = storedOnDisk(store->file());
    EXPECT_EQ(disk["microphone"], true);
    EXPECT_EQ(disk["captureFPS"], 60);
    EXPECT_EQ(disk["recordShortcut"], "optionCommandR");
    EXPECT_FALSE(disk.contains("assistantModel"));
}

TEST_F(SettingsTest, AnotherProcessesChangeShowsUpWithoutBeingWrittenBack) {
    ASSERT_TRUE(store->startWatching(MainQueue::shared()));
    SettingsDialog dialog(*preferences);
    dialog.show();
    auto* binder = dialog.findChild<SettingsBinder*>();
    ASSERT_TRUE(binder);
    QSignalSpy writes(binder, &SettingsBinder::written);
    QCheckBox* microphone = control<QCheckBox>(dialog, "Record the microphone");
    QComboBox* fps = control<QComboBox>(dialog, "Frame rate");
    QComboBox* pace = control<QComboBox>(dialog, "Demo pace");
    ASSERT_FALSE(microphone->isChecked());

    PreferenceStore other(store->file());
    ASSERT_TRUE(other.merge({{"microphone", true}, {"captureFPS", 25}, {"demoPace", "brisk"}}));
    EXPECT_TRUE(QTest::qWaitFor([&] { return microphone->isChecked(); }, 10000));
    EXPECT_TRUE(QTest::qWaitFor([&] { return pace->currentText() == "Brisk"; }, 10000));
    // A rate the menu does not offer is shown as it is, not replaced by an offered one.
    EXPECT_EQ(fps->currentText(), "25 fps");
    QCoreApplication::processEvents();
    EXPECT_EQ(writes.count(), 0);
    EXPECT_EQ(storedOnDisk(store->file()), other.entries());
    store->stopWatching();
}

TEST_F(SettingsTest, AFailedWriteIsShownAndTheControlKeepsWorking) {
    SettingsDialog dialog(*preferences);
    dialog.show();
    // A folder where the file should be: the atomic rename over it fails.
    fs::create_directories(store->file() / "blocker");
    QCheckBox* tray = control<QCheckBox>(dialog, "Show the tray icon");
    tray->click();
    auto* error = control<QLabel>(dialog, "Settings error");
    EXPECT_TRUE(error->isVisible());
    EXPECT_FALSE(error->text().isEmpty());
    EXPECT_TRUE(preferences->get(prefs::showMenuBarIcon));
    QCoreApplication::processEvents();
    EXPECT_TRUE(tray->isChecked());

    fs::remove_all(store->file());
    tray->click();
    EXPECT_FALSE(error->isVisible());
    EXPECT_FALSE(preferences->get(prefs::showMenuBarIcon));
}

TEST_F(SettingsTest, TheCodexChoiceTakesACodexFileOrItsFolderAndRefusesTheRest) {
    SettingsDialog dialog(*preferences);
    auto* codex = control<CodexChoice>(dialog, "Codex command");
    ASSERT_NE(codex, nullptr);
    QString problem;
    codex->refuse = [&](const QString& text, const QString&) { problem = text; };

    const fs::path folder = home / "tools" / "codex-cli";
    fs::create_directories(folder / "bin");
    const fs::path program = folder / "bin" / "codex";
    std::ofstream(program) << "#!/bin/sh\necho codex-cli 0.10.0\n";
    fs::permissions(program, fs::perms::owner_all);
    std::ofstream(home / "notes.txt") << "not a program";

    EXPECT_FALSE(codex->choose(QString::fromStdString((home / "notes.txt").string())));
    EXPECT_EQ(problem, "That isn't a Codex command");
    EXPECT_FALSE(preferences->get(prefs::codexPath));

    ASSERT_TRUE(codex->choose(QString::fromStdString(folder.string())));
    EXPECT_EQ(preferences->get(prefs::codexPath), std::optional(program.string()));
    // The chosen one is shown even before (or without) the look-up listing it.
    EXPECT_EQ(codex->currentData().toString().toStdString(), program.string());

    codex->setCurrentIndex(0);
    emit codex->activated(0);
    EXPECT_FALSE(preferences->get(prefs::codexPath));
}

TEST_F(SettingsTest, Screenshots) {
    QString folder = qEnvironmentVariable("QUILLO_VIEWS_SHOTS", "/tmp");
    SettingsDialog dialog(*preferences);
    dialog.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&dialog));
    for (int page = 0; page < dialog.pageList()->count(); ++page) {
        dialog.showPage(page);
        QCoreApplication::processEvents();
        dialog.grab().save(folder + QString("/settings_%1.png").arg(page));
    }
}

}  // namespace
}  // namespace quillo::views
