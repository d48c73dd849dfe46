// The source picker against real windows on a private X server, and the studio's recording
// strip over a display made of plain values.

#include "views/source_picker.h"

#include <unistd.h>

#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>

#include "capture/capture_session.h"
#include "support/fake_display.h"
#include "support/x_session.h"
#include "views/recording_bar.h"
#include "views/source_card_delegate.h"
#include "views/source_list.h"
#include "views/source_preview.h"
#include "views/studio_window.h"
#include "views_fixture.h"

namespace quillo::views {
namespace {

using app::RecordingState;

// The accessible texts of the rows the list shows, in order.
QStringList rows(QListView& list) {
    QStringList texts;
    for (int row = 0; row < list.model()->rowCount(); ++row) {
        texts << list.model()->index(row, 0).data(Qt::AccessibleTextRole).toString();
    }
    return texts;
}

class SourcePickerTest : public ViewsFixture {
protected:
    void useBackend(std::shared_ptr<capture::DisplayBackend> backend) {
        studio = std::make_unique<app::StudioModel>(project::ProjectLibrary(home / "Library"),
                                                    MainQueue::shared(), *preferences,
                                                    std::move(backend));
    }
};

TEST_F(SourcePickerTest, ListsOtherAppsAndDisplaysSearchesAndSharesWithTheKeyboard) {
    environment.set("QUILLO_CAPTURE", "x11");
    std::string why;
    auto x = testing::XSession::start({.windowManager = true}, why);
    if (!x) {
        GTEST_SKIP() << "no X server: " << why;
    }
    pid_t notes = x->spawn(
        {"xterm", "-geometry", "60x12+40+40", "-title", "release notes", "-bg", "#f4e9c8"});
    pid_t own = x->spawn({"xterm", "-geometry", "40x8+600+300", "-title", "pretend quillo"});
    auto notesWindow = x->waitForWindow(notes);
    auto ownWindow = x->waitForWindow(own);
    ASSERT_TRUE(notesWindow && ownWindow);
    // The second terminal claims to be this process: as one of Quillo's own windows it is
    // never offered.
    testing::commandOutput("xprop -display " + x->display() + " -id " + std::to_string(*ownWindow) +
                           " -f _NET_WM_PID 32c -set _NET_WM_PID " + std::to_string(getpid()));
    useBackend(capture::makeDisplayBackend());

    SourcePicker picker(*studio);
    picker.show();
    auto* list = named<QListView>(picker, "Sources");
    auto* search = named<QLineEdit>(picker, "Search");
    ASSERT_TRUE(list && search);
    QStringList listed = rows(*list);
    EXPECT_TRUE(listed.contains("xterm, release notes")) << listed.join(" | ").toStdString();
    EXPECT_EQ(listed.filter(QRegularExpression("^Display .*, 1280 × 800$")).size(), 1)
        << listed.join(" | ").toStdString();
    EXPECT_FALSE(listed.join(" ").contains("pretend quillo"));
    EXPECT_EQ(listed.size(), 2);
    EXPECT_EQ(picker.focusWidget(), search);  // typing goes to the search field

    // The pictures come from the screen: the terminal's shows its pale background.
    int row = static_cast<int>(listed.indexOf("xterm, release notes"));
    ASSERT_GE(row, 0);
    QModelIndex notesRow = list->model()->index(row, 0);
    ASSERT_TRUE(QTest::qWaitFor(
        [&] { return !notesRow.data(SourceListModel::ThumbnailRole).value<QImage>().isNull(); },
        10000));
    QImage thumbnail = notesRow.data(SourceListModel::ThumbnailRole).value<QImage>();
    EXPECT_LE(thumbnail.width(), 2 * SourceCardDelegate::thumbnailSize().width());
    QColor middle = thumbnail.pixelColor(thumbnail.width() / 2, thumbnail.height() * 3 / 4);
    EXPECT_GT(middle.red(), 200);
    EXPECT_GT(middle.blue(), 150);

    // Arrows move through the list from the search field; typing narrows it.
    QModelIndex first = list->currentIndex();
    ASSERT_TRUE(first.isValid());
    list->setFocus();
    QTest::keyClick(list, first.row() == 0 ? Qt::Key_Right : Qt::Key_Left);
    EXPECT_NE(list->currentIndex().row(), first.row());
    QTest::keyClicks(search, "DISPLAY");
    EXPECT_EQ(rows(*list).size(), 1);
    QTest::keyClicks(search, " nothing-like-this");
    EXPECT_EQ(rows(*list).size(), 0);
    auto* empty = named<QLabel>(picker, "No sources");
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->isVisible());
    search->clear();
    QTest::keyClicks(search, "notes");
    ASSERT_EQ(rows(*list), QStringList{"xterm, release notes"});

    // Enter shares the one left, as the pointer picker would have.
    QTest::keyClick(search, Qt::Key_Return);
    EXPECT_FALSE(picker.isVisible());
    ASSERT_TRUE(studio->source());
    EXPECT_EQ(studio->source()->kind, "window");
    EXPECT_EQ(studio->source()->id, *notesWindow);
    EXPECT_EQ(studio->sourceAppName(), "xterm");
    EXPECT_EQ(studio->message().rfind("Ready. Press Record", 0), 0u) << studio->message();

    // Reopened, the shared window is the current row; Escape leaves everything as it was.
    picker.show();
    EXPECT_EQ(list->currentIndex().data(Qt::AccessibleTextRole).toString(), "xterm, release notes");
    QTest::keyClick(search, Qt::Key_Escape);
    EXPECT_FALSE(picker.isVisible());
    EXPECT_EQ(studio->source()->id, *notesWindow);
    studio.reset();  // before the X server goes
}

TEST_F(SourcePickerTest, TheRecordingStripFollowsTheModel) {
    auto display = std::make_shared<testing::FakeDisplay>();
    display->setWindows({{7, "Notes", "notes", 4242, {100, 100, 640, 360}}});
    useBackend(display);
    ASSERT_TRUE(preferences->set(app::prefs::countdown, int64_t{3}));
    StudioWindow window(*studio);
    window.show();
    RecordingBar& bar = window.recordingBar();
    auto* record = named<QPushButton>(window, "Record");
    auto* source = named<QPushButton>(window, "Choose Source");
    ASSERT_TRUE(record && source);
    EXPECT_FALSE(bar.preview().looking());  // nothing to look at yet

    ASSERT_TRUE(studio->shareSource({capture::SourceRef::Kind::Window, 7}));
    EXPECT_TRUE(source->text().startsWith("notes — Notes")) << source->text().toStdString();
    EXPECT_TRUE(bar.preview().looking());
    EXPECT_TRUE(QTest::qWaitFor([&] { return bar.preview().shownSerial() != 0; }, 5000));

    QTest::mouseClick(record, Qt::LeftButton);
    EXPECT_EQ(studio->state(), RecordingState::CountingDown);
    EXPECT_EQ(record->text(), "Cancel Countdown");
    EXPECT_EQ(record->accessibleName(), "Cancel Countdown");
    EXPECT_FALSE(source->isEnabled());
    EXPECT_FALSE(bar.chooseAction()->isEnabled());
    window.recordAction()->trigger();  // as from a menu
    EXPECT_EQ(studio->state(), RecordingState::Idle);
    EXPECT_EQ(record->text(), "Record");
    EXPECT_TRUE(source->isEnabled());

    // Out of sight, the preview stops looking.
    window.hide();
    EXPECT_FALSE(bar.preview().looking());
    window.show();
    EXPECT_TRUE(bar.preview().looking());
}

}  // namespace
}  // namespace quillo::views
