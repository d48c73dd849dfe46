// The editor's preview: the finished picture at the playhead as the renderer makes it, clicks and
// drags on it mapped back into the recording, and playback through the recipe's kept time.

#include <cmath>
#include <fstream>
#include <vector>

#include <QAccessible>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>
#include <QToolButton>
#include <QtTest/QTest>
#include <gtest/gtest.h>

#include "captions/caption_renderer.h"
#include "redaction/redaction.h"
#include "render/exporter.h"
#include "views/preview_geometry.h"
#include "views/preview_widget.h"
#include "views_fixture.h"

namespace quillo::views {
namespace {

// Runs the event loop until `done` holds; false after a generous bound.
template <class Condition>
bool waitFor(Condition done) {
    QDeadlineTimer deadline(30000);
    while (!done()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    return true;
}

// Peak signal-to-noise ratio of two BGRA pictures of one size, over the colour channels, in dB.
double psnr(const QImage& shown, const render::Image& expected) {
    double squared = 0;
    for (int y = 0; y < expected.height; ++y) {
        const uchar* a = shown.constScanLine(y);
        const uint8_t* b = expected.pixels.data() + static_cast<size_t>(y) * expected.stride();
        for (int x = 0; x < expected.width * 4; ++x) {
            if (x % 4 != 3) {
                double d = static_cast<double>(a[x]) - b[x];
                squared += d * d;
            }
        }
    }
    double mse = squared / (3.0 * expected.width * expected.height);
    return mse == 0 ? 99 : 10 * std::log10(255.0 * 255.0 / mse);
}

project::ZoomSection zoomAt(double start, double end, double x, double y) {
    project::ZoomSection zoom;
    zoom.start = start;
    zoom.end = end;
    zoom.x = x;
    zoom.y = y;
    return zoom;
}

project::Redaction redaction(double start, double end, Rect area) {
    project::Redaction r;
    r.start = start;
    r.end = end;
    r.x = area.x;
    r.y = area.y;
    r.width = area.width;
    r.height = area.height;
    return r;
}

class PreviewTest : public ViewsFixture {
protected:
    void SetUp() override {
        ViewsFixture::SetUp();
        redaction::registerDrawing();
        captions::registerBurnIn();
    }

    EditorSession& loadedSession(double seconds = 4) {
        EditorSession& session = openSession(seconds);
        EXPECT_TRUE(waitFor([&] { return session.model().loaded(); }));
        return session;
    }

    // A shown preview of `session` once it shows the playhead's frame of the current recipe.
    std::unique_ptr<PreviewWidget> showPreview(EditorSession& session, QSize size = {640, 400}) {
        auto preview = std::make_unique<PreviewWidget>(session);
        preview->resize(size);
        preview->show();
        const double canvas = 320.0 / 180.0;
        EXPECT_TRUE(waitFor([&] {
            QImage image = preview->currentImage();
            return !image.isNull() && preview->shownTime() == session.playhead() &&
                   std::abs(image.width() -
                            std::min<double>(size.width(), size.height() * canvas)) <= 2;
        }));
        return preview;
    }

    static void commit(EditorSession& session, const std::function<void(project::Edits&)>& edit) {
        project::Edits edits = session.model().edits();
        edit(edits);
        ASSERT_TRUE(session.model().commit(edits)) << session.model().status();
    }
};

// --- what is shown

TEST_F(PreviewTest, StillShowsTheRenderersFrameAtThePlayhead) {
    EditorSession& session = loadedSession();
    commit(session, [](project::Edits& edits) {
        edits.zooms = {zoomAt(1.0, 3.0, 0.3, 0.6)};
        edits.frame = project::FrameStyle{};
        edits.redactions =
            std::vector<project::Redaction>{redaction(1.5, 2.5, {0.1, 0.1, 0.3, 0.2})};
    });
    session.setPlayhead(2.0);
    auto preview = showPreview(session);
    QImage shown = preview->currentImage();
    ASSERT_FALSE(shown.isNull());

    auto plan =
        render::renderPlan(session.model().project().directory, session.model().edits(),
                           std::nullopt, Size{double(shown.width()), double(shown.height())});
    ASSERT_TRUE(plan);
    auto expected = render::renderFrame(*plan, 2.0);
    ASSERT_TRUE(expected);
    ASSERT_EQ(expected->width, shown.width());
    ASSERT_EQ(expected->height, shown.height());
    EXPECT_GE(psnr(shown, *expected), 35.0);

    // A scrub shows the new time's frame, and a recipe change re-renders it.
    session.setPlayhead(0.5);
    ASSERT_TRUE(waitFor([&] { return preview->shownTime() == 0.5; }));
    QImage before = preview->currentImage().copy();
    commit(session, [](project::Edits& edits) { edits.frame.reset(); });
    EXPECT_TRUE(waitFor([&] { return preview->currentImage() != before; }));
}

TEST_F(PreviewTest, UnreadableMovieShowsWhyInsteadOfAPicture) {
    // The model fails to load: its reason is shown.
    auto project = makeRecording("Broken");
    std::ofstream(project.recordingFile(), std::ios::trunc) << "not a movie";
    editor::EditorModel broken(project);
    EditorSession brokenSession(*studio, broken);
    PreviewWidget preview(brokenSession);
    preview.resize(320, 200);
    preview.show();
    EXPECT_EQ(preview.placeholderText(), "Loading preview…");
    broken.load();
    ASSERT_TRUE(broken.loadError());
    EXPECT_EQ(preview.placeholderText().toStdString(), *broken.loadError());
    EXPECT_FALSE(preview.grab().isNull());

    // The movie goes away after loading: the preview says so instead of a picture.
    EditorSession& session = loadedSession();
    std::filesystem::remove(session.model().project().recordingFile());
    PreviewWidget gone(session);
    gone.resize(320, 200);
    gone.show();
    ASSERT_TRUE(waitFor([&] { return gone.placeholderText() != "Loading preview…"; }));
    EXPECT_TRUE(gone.currentImage().isNull());
    EXPECT_EQ(gone.placeholderText(), "The recording could not be read.");
}

TEST_F(PreviewTest, IsNamedForAssistiveTechnologyAndLetsEditorKeysThrough) {
    EditorSession& session = loadedSession();
    auto preview = showPreview(session);
    EXPECT_EQ(preview->accessibleName(), "Preview");
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(preview.get());
    ASSERT_NE(accessible, nullptr);
    EXPECT_EQ(accessible->role(), QAccessible::Graphic);
    auto* hide = preview->findChild<QToolButton*>();
    ASSERT_NE(hide, nullptr);
    EXPECT_EQ(hide->accessibleName(), "Hide Area");

    for (int key : {Qt::Key_Space, Qt::Key_Left, Qt::Key_J, Qt::Key_L}) {
        QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
        QCoreApplication::sendEvent(preview.get(), &press);
        EXPECT_FALSE(press.isAccepted()) << key;
    }
}

// --- clicks and drags on the picture

TEST_F(PreviewTest, ClickMovesTheSelectedZoomsFocusUnzoomedAndZoomed) {
    EditorSession& session = loadedSession();
    commit(session, [](project::Edits& edits) { edits.zooms = {zoomAt(1.0, 3.0, 0.5, 0.5)}; });
    session.model().selectZoom(0);
    for (double playhead : {0.5, 2.0}) {
        SCOPED_TRACE(playhead);
        session.setPlayhead(playhead);
        auto preview = showPreview(session);
        auto where = preview->placement();
        ASSERT_TRUE(where);
        const Point target{0.42, 0.58};
        QTest::mouseClick(preview.get(), Qt::LeftButton, {}, where->widgetPoint(target).toPoint());
        // A logical pixel of the widget, in recording fractions.
        const double pixel =
            1.0 / (where->widgetPoint({1, 1}).x() - where->widgetPoint({0, 0}).x());
        const auto& zoom = session.model().edits().zooms.at(0);
        EXPECT_NEAR(zoom.x, target.x, pixel);
        EXPECT_NEAR(zoom.y, target.y, pixel * 16 / 9);
    }
}

TEST_F(PreviewTest, ClickWithoutASelectedZoomOrOnTheBackdropChangesNothing) {
    EditorSession& session = loadedSession();
    commit(session, [](project::Edits& edits) {
        edits.zooms = {zoomAt(1.0, 3.0, 0.5, 0.5)};
        edits.frame = project::FrameStyle{};
    });
    session.model().deselect();
    auto preview = showPreview(session);
    auto where = preview->placement();
    ASSERT_TRUE(where);
    QTest::mouseClick(preview.get(), Qt::LeftButton, {}, where->widgetPoint({0.2, 0.2}).toPoint());
    session.model().selectZoom(0);
    // Just outside the picture, on the backdrop's padding.
    QTest::mouseClick(preview.get(), Qt::LeftButton, {},
                      (where->widgetPoint({0, 0}) - QPointF(3, 3)).toPoint());
    EXPECT_EQ(session.model().edits().zooms.at(0).x, 0.5);
    EXPECT_EQ(session.model().edits().zooms.at(0).y, 0.5);
}

TEST_F(PreviewTest, ShiftDragAddsARedactionOverTheDraggedArea) {
    EditorSession& session = loadedSession();
    session.setPlayhead(1.0);
    auto preview = showPreview(session);
    auto where = preview->placement();
    ASSERT_TRUE(where);
    const QPoint from = where->widgetPoint({0.2, 0.3}).toPoint();
    const QPoint to = where->widgetPoint({0.6, 0.7}).toPoint();
    QTest::mousePress(preview.get(), Qt::LeftButton, Qt::ShiftModifier, from);
    QTest::mouseMove(preview.get(), to);
    QTest::mouseRelease(preview.get(), Qt::LeftButton, Qt::ShiftModifier, to);

    const auto& list = session.model().edits().redactionList();
    ASSERT_EQ(list.size(), 1u);
    const double pixel = 1.0 / (where->widgetPoint({1, 1}).x() - where->widgetPoint({0, 0}).x());
    EXPECT_NEAR(list[0].x, 0.2, pixel);
    EXPECT_NEAR(list[0].y, 0.3, 2 * pixel);
    EXPECT_NEAR(list[0].width, 0.4, 2 * pixel);
    EXPECT_NEAR(list[0].height, 0.4, 4 * pixel);
    EXPECT_NEAR(list[0].start, 1.0, 1e-6);
}

TEST_F(PreviewTest, HideAreaModeDrawsWithoutShiftAndClipsToThePicture) {
    EditorSession& session = loadedSession();
    auto preview = showPreview(session);
    auto where = preview->placement();
    ASSERT_TRUE(where);
    auto* hide = preview->findChild<QToolButton*>();
    ASSERT_NE(hide, nullptr);
    hide->click();
    ASSERT_TRUE(hide->isChecked());

    // From inside past the picture's bottom right corner.
    const QPoint from = where->widgetPoint({0.5, 0.5}).toPoint();
    const QPoint to = (where->widgetPoint({1, 1}) + QPointF(30, 30)).toPoint();
    QTest::mousePress(preview.get(), Qt::LeftButton, {}, from);
    QTest::mouseMove(preview.get(), to);
    QTest::mouseRelease(preview.get(), Qt::LeftButton, {}, to);
    const auto& list = session.model().edits().redactionList();
    ASSERT_EQ(list.size(), 1u);
    EXPECT_NEAR(list[0].x + list[0].width, 1.0, 1e-9);
    EXPECT_NEAR(list[0].y + list[0].height, 1.0, 1e-9);

    // A click is not a drag; Escape leaves the mode.
    QTest::mouseClick(preview.get(), Qt::LeftButton, {}, from);
    EXPECT_EQ(session.model().edits().redactionList().size(), 1u);
    QTest::keyClick(preview.get(), Qt::Key_Escape);
    EXPECT_FALSE(hide->isChecked());
}

// --- playback

TEST_F(PreviewTest, PlaybackSkipsCutsAndStopsAtTheTrimEnd) {
    EditorSession& session = loadedSession();
    commit(session, [](project::Edits& edits) {
        edits.segments = std::vector<project::TimeSegment>{{1.0, 2.0, 0}, {2.5, 2.8, 2}};
        edits.trimEnd = 3.0;
    });
    session.setPlayhead(0.6);
    auto preview = showPreview(session);
    std::vector<double> playheads;
    QObject::connect(&session, &EditorSession::playheadMoved,
                     [&](double t) { playheads.push_back(t); });
    session.setPlaying(true);
    ASSERT_TRUE(waitFor([&] { return !session.playing(); }));

    ASSERT_FALSE(playheads.empty());
    for (double t : playheads) {
        EXPECT_FALSE(t > 1.0 + 1e-6 && t < 2.0 - 1e-6) << "rested inside the cut at " << t;
    }
    EXPECT_TRUE(std::any_of(playheads.begin(), playheads.end(), [](double t) { return t > 2.0; }));
    EXPECT_NEAR(session.playhead(), 3.0, 1e-6);
    EXPECT_GT(preview->counters().shown, 0);
    // Stopped, the model's playhead is where playback ended and the still shows it.
    EXPECT_NEAR(session.model().currentTime(), 3.0, 1e-6);
    EXPECT_TRUE(waitFor([&] { return preview->shownTime() == session.playhead(); }));
}

TEST_F(PreviewTest, PlayingFromTheEndStartsOverAndStopStopsThere) {
    EditorSession& session = loadedSession(2);
    session.setPlayhead(2.0);
    auto preview = showPreview(session);
    session.setPlaying(true);
    ASSERT_TRUE(waitFor([&] { return session.playhead() > 0.2 && session.playhead() < 1.5; }));
    session.setPlaying(false);
    const double stopped = session.playhead();
    EXPECT_TRUE(waitFor([&] { return preview->shownTime() == stopped; }));
    EXPECT_NEAR(session.model().currentTime(), stopped, 1e-9);

    // Shuttled backwards it plays (silently) back to the start and stops there.
    session.shuttle(-1);
    ASSERT_TRUE(session.playing());
    ASSERT_TRUE(waitFor([&] { return !session.playing(); }));
    EXPECT_NEAR(session.playhead(), 0.0, 1e-6);
}

// --- geometry

TEST(PreviewGeometry, RenderSizeKeepsTheCanvasShapeWithEvenSides) {
    EXPECT_EQ(previewRenderSize({1920, 1080}, {400, 400}, 2), (Size{800, 450}));
    EXPECT_EQ(previewRenderSize({1080, 1920}, {641, 360}, 1), (Size{202, 360}));
    EXPECT_EQ(previewRenderSize({1920, 1080}, {0, 0}, 1), (Size{2, 2}));
    EXPECT_EQ(previewRenderSize({0, 0}, {101, 51}, 1), (Size{100, 50}));
}

TEST(PreviewGeometry, PointsMapThroughAZoomedLetterboxedFrameAtHighDensity) {
    PreviewPlacement place;
    place.shown = previewImageRect({500, 400}, {800, 450}, 2);
    EXPECT_EQ(place.shown, QRectF(50, 87.5, 400, 225));
    place.pixels = {800, 450};
    place.source = {1600, 900};
    // Twice zoomed, the recording's (400, 225) at the frame's top left corner.
    place.mapping = {1.0, 1.0, -400, -225, {0, 0, 800, 450}};
    Point centre = place.recordingPoint({250, 200});
    EXPECT_NEAR(centre.x, 0.5, 1e-9);
    EXPECT_NEAR(centre.y, 0.5, 1e-9);
    QPointF back = place.widgetPoint({0.3, 0.7});
    EXPECT_NEAR(place.recordingPoint(back).x, 0.3, 1e-9);
    EXPECT_NEAR(place.recordingPoint(back).y, 0.7, 1e-9);
    EXPECT_TRUE(place.onPicture({51, 88}));
    EXPECT_FALSE(place.onPicture({49, 200}));

    auto area = place.recordingRect({450, 312.5}, {250, 200});
    ASSERT_TRUE(area);
    EXPECT_NEAR(area->x, 0.5, 1e-9);
    EXPECT_NEAR(area->width, 0.25, 1e-9);
    // Dragged entirely off the recording: nothing.
    place.mapping = {0.25, 0.25, 200, 0, {200, 0, 400, 225}};
    EXPECT_FALSE(place.recordingRect({50, 90}, {90, 300}));
}

}  // namespace
}  // namespace quillo::views
