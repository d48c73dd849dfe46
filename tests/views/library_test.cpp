// The library page: listing and search, opening, renaming in place, the Trash, the empty
// message and thumbnails made in the background and read back from their cache.

#include <filesystem>
#include <fstream>

#include <QAbstractItemModel>
#include <QApplication>
#include <QDesktopServices>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTest>
#include <QTimer>
#include <gtest/gtest.h>

#include "base/paths.h"
#include "views/library_model.h"
#include "views/library_view.h"
#include "views/thumbnail_cache.h"
#include "views_fixture.h"

namespace quillo::views {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Receives the file URLs the view asks the desktop to open, instead of a file manager.
class UrlCatcher : public QObject {
    Q_OBJECT

public:
    QList<QUrl> urls;

public slots:
    void openUrl(const QUrl& url) { urls.push_back(url); }
};

QStringList titles(const QListView* list) {
    QStringList shown;
    for (int row = 0; row < list->model()->rowCount(); ++row) {
        shown << list->model()->index(row, 0).data().toString();
    }
    return shown;
}

QString idAt(const QListView* list, int row) {
    return list->model()->index(row, 0).data(LibraryModel::IdRole).toString();
}

// Presses the button labelled `button` in the next message box that opens.
void answerNextMessageBox(const QString& button) {
    QTimer::singleShot(0, [button] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        ASSERT_TRUE(box);
        for (QAbstractButton* candidate : box->buttons()) {
            if (candidate->text() == button) {
                candidate->click();
                return;
            }
        }
        FAIL() << "no button " << button.toStdString();
    });
}

bool thumbnailsShown(const QListView* list) {
    for (int row = 0; row < list->model()->rowCount(); ++row) {
        if (list->model()
                ->index(row, 0)
                .data(LibraryModel::ThumbnailRole)
                .value<QImage>()
                .isNull()) {
            return false;
        }
    }
    return true;
}

class LibraryViewTest : public ViewsFixture {
protected:
    std::unique_ptr<LibraryView> showLibrary() {
        auto view = std::make_unique<LibraryView>(*studio);
        view->resize(900, 640);
        view->show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(view.get()));
        return view;
    }
};

// --- listing and search

TEST_F(LibraryViewTest, ListsNewestFirstAndFiltersTitlesIgnoringCase) {
    makeRecording("Alpha demo", 2, 3h);
    makeRecording("Beta walkthrough", 2, 2h);
    makeRecording("alpha notes", 2, 1h);
    studio->reload();
    auto view = showLibrary();
    QListView* list = view->list();
    EXPECT_EQ(list->accessibleName(), "Recordings");
    EXPECT_EQ(view->searchField()->accessibleName(), "Search recordings");
    EXPECT_EQ(titles(list), QStringList({"alpha notes", "Beta walkthrough", "Alpha demo"}));
    EXPECT_EQ(list->model()->index(0, 0).data(Qt::AccessibleTextRole).toString(), "alpha notes");
    EXPECT_EQ(list->model()->index(0, 0).data(LibraryModel::DurationRole).toString(), "0:02");

    QTest::keyClicks(view->searchField(), "ALPHA");
    EXPECT_EQ(titles(list), QStringList({"alpha notes", "Alpha demo"}));

    view->searchField()->setText("gamma");
    EXPECT_EQ(list->model()->rowCount(), 0);
    auto* pages = view->findChild<QStackedWidget*>();
    ASSERT_TRUE(pages);
    EXPECT_NE(pages->currentWidget(), list);
    auto labels = pages->currentWidget()->findChildren<QLabel*>();
    ASSERT_FALSE(labels.isEmpty());
    EXPECT_TRUE(labels.front()->text().contains("gamma"));

    view->searchField()->clear();
    EXPECT_EQ(pages->currentWidget(), list);
    EXPECT_EQ(list->model()->rowCount(), 3);
}

TEST_F(LibraryViewTest, EmptyLibrarySaysHowToRecordUntilARecordingArrives) {
    studio->reload();
    auto view = showLibrary();
    auto* pages = view->findChild<QStackedWidget*>();
    ASSERT_TRUE(pages);
    QStringList texts;
    for (QLabel* label : pages->currentWidget()->findChildren<QLabel*>()) {
        texts << label->text();
    }
    EXPECT_TRUE(texts.contains("No recordings yet"));
    EXPECT_TRUE(texts.join(" ").contains("Ctrl+Shift+2"));

    makeRecording("First", 2);
    studio->reload();
    EXPECT_EQ(pages->currentWidget(), view->list());
    EXPECT_EQ(titles(view->list()), QStringList({"First"}));
}

// --- card actions

TEST_F(LibraryViewTest, EnterAndDoubleClickOpenTheCardUnderThem) {
    auto older = makeRecording("Older", 2, 1h);
    auto newer = makeRecording("Newer", 2);
    studio->reload();
    auto view = showLibrary();
    QListView* list = view->list();
    QSignalSpy opened(view.get(), &LibraryView::openRequested);

    list->setFocus();
    list->setCurrentIndex(list->model()->index(1, 0));
    QTest::keyClick(list, Qt::Key_Return);
    ASSERT_EQ(opened.count(), 1);
    EXPECT_EQ(opened.takeFirst().at(0).toString().toStdString(), older.id());

    QPoint card = list->visualRect(list->model()->index(0, 0)).center();
    // A widget's double-click event alone comes without its first press: click first.
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, card);
    ASSERT_EQ(opened.count(), 0);
    QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, card);
    ASSERT_EQ(opened.count(), 1);
    EXPECT_EQ(opened.takeFirst().at(0).toString().toStdString(), newer.id());
}

TEST_F(LibraryViewTest, RenamingInPlaceReachesTheProjectAndAnEmptyTitleChangesNothing) {
    auto project = makeRecording("Draft", 2);
    studio->reload();
    auto view = showLibrary();
    QListView* list = view->list();
    list->setFocus();
    list->setCurrentIndex(list->model()->index(0, 0));

    auto editTitle = [&](const QString& text) {
        QTest::keyClick(list, Qt::Key_F2);
        auto* editor = list->findChild<QLineEdit*>();
        ASSERT_TRUE(editor);
        EXPECT_EQ(editor->accessibleName(), "Title");
        EXPECT_EQ(editor->text(), list->model()->index(0, 0).data().toString());
        editor->selectAll();
        QTest::keyClicks(editor, text);
        QTest::keyClick(editor, Qt::Key_Return);
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
    };

    editTitle("  Launch demo ");
    EXPECT_EQ(project::LocalProject::open(project.directory)->metadata.title, "Launch demo");
    EXPECT_EQ(titles(list), QStringList({"Launch demo"}));
    EXPECT_EQ(idAt(list, 0).toStdString(), project.id());
    EXPECT_EQ(list->currentIndex().row(), 0);

    editTitle("   ");
    EXPECT_EQ(project::LocalProject::open(project.directory)->metadata.title, "Launch demo");
    EXPECT_EQ(titles(list), QStringList({"Launch demo"}));
}

TEST_F(LibraryViewTest, DeleteAsksFirstThenMovesTheRecordingToTheTrash) {
    auto kept = makeRecording("Kept", 2, 1h);
    auto doomed = makeRecording("Doomed", 2);
    studio->reload();
    auto view = showLibrary();
    QListView* list = view->list();
    list->setFocus();
    list->setCurrentIndex(list->model()->index(0, 0));

    answerNextMessageBox("Cancel");
    QTest::keyClick(list, Qt::Key_Delete);
    EXPECT_EQ(list->model()->rowCount(), 2);
    EXPECT_TRUE(fs::exists(doomed.directory));

    answerNextMessageBox("Move to Trash");
    QTest::keyClick(list, Qt::Key_Delete);
    EXPECT_EQ(titles(list), QStringList({"Kept"}));
    EXPECT_FALSE(fs::exists(doomed.directory));
    fs::path trashed = dataHome() / "Trash" / "files" / doomed.directory.filename();
    EXPECT_TRUE(fs::exists(trashed / "recording.mp4"));
    EXPECT_TRUE(fs::exists(dataHome() / "Trash" / "info" /
                           (doomed.directory.filename().string() + ".trashinfo")));
    // The neighbour becomes the current card, so Delete can go on.
    EXPECT_EQ(idAt(list, list->currentIndex().row()).toStdString(), kept.id());
}

TEST_F(LibraryViewTest, ShowInFolderAsksTheDesktopForTheRecordingsFolder) {
    auto project = makeRecording("Folder", 2);
    studio->reload();
    auto view = showLibrary();
    UrlCatcher catcher;
    QDesktopServices::setUrlHandler("file", &catcher, "openUrl");
    view->list()->setCurrentIndex(view->list()->model()->index(0, 0));
    view->showCurrentInFolder();
    QDesktopServices::unsetUrlHandler("file");
    ASSERT_EQ(catcher.urls.size(), 1);
    EXPECT_EQ(catcher.urls.front().toLocalFile().toStdString(), project.id());
}

// --- thumbnails

TEST_F(LibraryViewTest, ThumbnailsArriveInTheBackgroundAndAreReadFromTheCacheNextTime) {
    makeRecording("One", 3, 1h);
    makeRecording("Two", 3, 0s, "640x360");
    studio->reload();
    {
        auto view = showLibrary();
        EXPECT_TRUE(QTest::qWaitFor([&] { return thumbnailsShown(view->list()); }, 20000));
        EXPECT_EQ(view->thumbnails().decodes(), 2);
        QImage image =
            view->list()->model()->index(1, 0).data(LibraryModel::ThumbnailRole).value<QImage>();
        EXPECT_EQ(image.width(), ThumbnailCache::kThumbnailWidth);
        EXPECT_EQ(image.height(), ThumbnailCache::kThumbnailWidth * 9 / 16);
    }
    size_t files = 0;
    for (const auto& entry : fs::directory_iterator(supportFolder() / "Thumbnails")) {
        files += entry.path().extension() == ".jpg";
    }
    EXPECT_EQ(files, 2u);

    auto again = showLibrary();
    EXPECT_TRUE(QTest::qWaitFor([&] { return thumbnailsShown(again->list()); }, 20000));
    EXPECT_EQ(again->thumbnails().decodes(), 0);
}

TEST_F(LibraryViewTest, AnUnreadableMovieGetsNoPreviewInsteadOfAPicture) {
    auto project = makeRecording("Broken", 2);
    { std::ofstream(project.recordingFile(), std::ios::trunc) << "not a movie"; }
    studio->reload();
    auto view = showLibrary();
    QModelIndex card = view->list()->model()->index(0, 0);
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return card.data(LibraryModel::ThumbnailFailedRole).toBool(); }, 20000));
    EXPECT_TRUE(card.data(LibraryModel::ThumbnailRole).value<QImage>().isNull());
}

TEST_F(LibraryViewTest, AFullLibraryAsksOnlyForTheThumbnailsOfCardsInView) {
    for (int i = 0; i < 500; ++i) {
        auto created = studio->library().create({"window", 1, "Notes", "Many"},
                                                std::chrono::system_clock::now() - i * 1min);
        ASSERT_TRUE(created);
        std::ofstream(created->recordingFile()) << "not decoded";
    }
    studio->reload();
    auto view = showLibrary();
    EXPECT_EQ(view->list()->model()->rowCount(), 500);
    EXPECT_TRUE(QTest::qWaitFor([&] { return view->thumbnails().requests() > 0; }, 20000));
    EXPECT_LT(view->thumbnails().requests(), 40u);

    // Cards scrolled into view are asked for next; the ones between are skipped.
    view->list()->scrollToBottom();
    QModelIndex last = view->list()->model()->index(499, 0);
    EXPECT_TRUE(QTest::qWaitFor(
        [&] { return last.data(LibraryModel::ThumbnailFailedRole).toBool(); }, 20000));
    EXPECT_LT(view->thumbnails().requests(), 80u);
}

TEST(ThumbnailCache, CacheFileFollowsTheMoviesSizeAndTimeAndTimesStayInside) {
    testing::TempFolder folder;
    fs::path movie = folder / "recording.mp4";
    EXPECT_FALSE(thumbnailFile(folder / "cache", movie));
    folder.write("recording.mp4", "one");
    auto first = thumbnailFile(folder / "cache", movie);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->parent_path(), folder / "cache");
    EXPECT_EQ(thumbnailFile(folder / "cache", movie), first);
    folder.write("recording.mp4", "longer");
    EXPECT_NE(thumbnailFile(folder / "cache", movie), first);

    EXPECT_EQ(thumbnailTime(0), 0);
    EXPECT_DOUBLE_EQ(thumbnailTime(0.5), 0.25);
    EXPECT_DOUBLE_EQ(thumbnailTime(4), 1);
    EXPECT_DOUBLE_EQ(thumbnailTime(120), 12);
}

// --- pictures to look at, written to $QUILLO_VIEWS_SHOTS (the test run's artefacts)

QPalette darkPalette() {
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(0x24, 0x25, 0x2a));
    dark.setColor(QPalette::WindowText, QColor(0xe8, 0xe8, 0xea));
    dark.setColor(QPalette::Base, QColor(0x1c, 0x1d, 0x21));
    dark.setColor(QPalette::AlternateBase, QColor(0x2a, 0x2b, 0x30));
    dark.setColor(QPalette::Text, QColor(0xe8, 0xe8, 0xea));
    dark.setColor(QPalette::Button, QColor(0x33, 0x34, 0x3a));
    dark.setColor(QPalette::ButtonText, QColor(0xe8, 0xe8, 0xea));
    dark.setColor(QPalette::Highlight, QColor(0x6c, 0x5c, 0xe7));
    dark.setColor(QPalette::HighlightedText, Qt::white);
    dark.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x9b, 0xa3));
    dark.setColor(QPalette::Mid, QColor(0x3a, 0x3b, 0x42));
    return dark;
}

TEST_F(LibraryViewTest, Screenshots) {
    QString folder = qEnvironmentVariable("QUILLO_VIEWS_SHOTS", "/tmp");
    const char* sizes[] = {"640x360", "320x240", "480x270", "360x640", "640x360", "400x300"};
    const char* names[] = {"Checkout flow",
                           "Onboarding tour",
                           "Bug report: login",
                           "Mobile preview",
                           "Release notes walkthrough for version 2.4",
                           "Settings tour"};
    for (int i = 0; i < 6; ++i) {
        makeRecording(names[i], 2 + i * 7, std::chrono::hours(30 * i), sizes[i]);
    }
    studio->reload();
    for (bool dark : {false, true}) {
        QPalette original = QApplication::palette();
        if (dark) {
            QApplication::setPalette(darkPalette());
        }
        auto view = showLibrary();
        view->resize(900, 600);
        ASSERT_TRUE(QTest::qWaitFor([&] { return thumbnailsShown(view->list()); }, 20000));
        view->list()->setFocus();
        view->list()->setCurrentIndex(view->list()->model()->index(1, 0));
        QCoreApplication::processEvents();
        view->grab().save(folder + (dark ? "/library_dark.png" : "/library_light.png"));
        view->searchField()->setText("zebra");
        view->grab().save(folder + (dark ? "/library_nomatch_dark.png" : "/library_nomatch.png"));
        QApplication::setPalette(original);
    }
}

}  // namespace
}  // namespace quillo::views

#include "library_test.moc"
