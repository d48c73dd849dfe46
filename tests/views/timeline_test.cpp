// The timeline: its geometry and drag rules as plain functions, and the widget driven with the
// mouse, the wheel and the keyboard over a real editor session.

#include <QApplication>
#include <QImage>
#include <QSignalSpy>
#include <QTest>
#include <QWheelEvent>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/demo_markers.h"
#include "views/timeline_items.h"
#include "views/timeline_strips.h"
#include "views/timeline_widget.h"
#include "views_fixture.h"

namespace quillo::views {
namespace {

using What = TimelineHit::What;

// 1000 track pixels over a 10 s recording: 100 pixels a second.
TimelineLayout tenSeconds() {
    TimelineLayout layout;
    layout.width = TimelineLayout::kLabelWidth + 1000 + TimelineLayout::kRightPadding;
    layout.duration = 10;
    layout.pixelsPerSecond = 100;
    layout.rows = TimelineLayout::stackRows(layout.width);
    return layout;
}

TimelineItems someItems() {
    TimelineItems items;
    items.zooms = {{1, 3}, {3.5, 5}};
    items.segments = {{6, 6.1}};
    items.redactions = {{1, 4}, {2, 3}};
    items.markers = {{2, 2}};
    items.markerLabelWidths = {50};
    items.trimStart = 0;
    items.trimEnd = 9;
    return items;
}

QPointF at(const TimelineLayout& layout, TimelineRow row, double t, double dx = 0) {
    return {layout.x(t) + dx, layout.rect(row).center().y()};
}

// --- hit testing

TEST(TimelineHitTest, EdgesWinWithinTheirSlopAndTheBodyElsewhere) {
    auto layout = tenSeconds();
    auto items = someItems();
    auto zoomHit = [&](double t, double dx) {
        return hitTest(layout, items, at(layout, TimelineRow::Zooms, t, dx));
    };
    EXPECT_EQ(zoomHit(1, -4), (TimelineHit{What::Item, TimelineRow::Zooms, 0, HitPart::StartEdge}));
    EXPECT_EQ(zoomHit(1, 4), (TimelineHit{What::Item, TimelineRow::Zooms, 0, HitPart::StartEdge}));
    EXPECT_EQ(zoomHit(2, 0), (TimelineHit{What::Item, TimelineRow::Zooms, 0, HitPart::Body}));
    EXPECT_EQ(zoomHit(3, 3), (TimelineHit{What::Item, TimelineRow::Zooms, 0, HitPart::EndEdge}));
    EXPECT_EQ(zoomHit(3.5, -10).what, What::Track);
    // Between two blocks closer than the slop the nearer edge wins.
    items.zooms = {{1, 3}, {3.05, 5}};
    EXPECT_EQ(zoomHit(3, 2), (TimelineHit{What::Item, TimelineRow::Zooms, 0, HitPart::EndEdge}));
    EXPECT_EQ(zoomHit(3.05, -1),
              (TimelineHit{What::Item, TimelineRow::Zooms, 1, HitPart::StartEdge}));
    EXPECT_EQ(zoomHit(1, -8).what, What::Track);
    EXPECT_EQ(zoomHit(7, 0).what, What::Track);
}

TEST(TimelineHitTest, ANarrowBlockKeepsItsMiddleForTheBody) {
    auto layout = tenSeconds();
    auto items = someItems();  // the segment is 10 pixels wide
    auto middle = hitTest(layout, items, at(layout, TimelineRow::Segments, 6.05));
    EXPECT_EQ(middle, (TimelineHit{What::Item, TimelineRow::Segments, 0, HitPart::Body}));
    auto start = hitTest(layout, items, at(layout, TimelineRow::Segments, 6, 2));
    EXPECT_EQ(start.part, HitPart::StartEdge);
    auto end = hitTest(layout, items, at(layout, TimelineRow::Segments, 6.1, -2));
    EXPECT_EQ(end.part, HitPart::EndEdge);
}

TEST(TimelineHitTest, RowsRulerTrimHandlesAndTheLabelColumn) {
    auto layout = tenSeconds();
    auto items = someItems();
    EXPECT_EQ(hitTest(layout, items, at(layout, TimelineRow::Ruler, 5)).what, What::Ruler);
    EXPECT_EQ(hitTest(layout, items, {40, layout.rect(TimelineRow::Zooms).center().y()}).what,
              What::Nothing);
    EXPECT_EQ(hitTest(layout, items, {500, layout.rect(TimelineRow::Markers).bottom() + 30}).what,
              What::Nothing);
    EXPECT_EQ(hitTest(layout, items, at(layout, TimelineRow::Frames, 0, 2)).what, What::TrimStart);
    EXPECT_EQ(hitTest(layout, items, at(layout, TimelineRow::Sound, 9, -3)).what, What::TrimEnd);
    EXPECT_EQ(hitTest(layout, items, at(layout, TimelineRow::Frames, 5)).what, What::Track);
    // The gap under a row belongs to it.
    QPointF gap(layout.x(2), layout.rect(TimelineRow::Zooms).bottom() + 1);
    EXPECT_EQ(hitTest(layout, items, gap).row, TimelineRow::Zooms);
}

TEST(TimelineHitTest, MarkersAreHitOnTheirLabelAndOverlappingRedactionsByTheTopOne) {
    auto layout = tenSeconds();
    auto items = someItems();
    EXPECT_EQ(hitTest(layout, items, at(layout, TimelineRow::Markers, 2, 40)),
              (TimelineHit{What::Item, TimelineRow::Markers, 0, HitPart::Body}));
    EXPECT_EQ(hitTest(layout, items, at(layout, TimelineRow::Markers, 2, 60)).what, What::Track);
    EXPECT_EQ(hitTest(layout, items, at(layout, TimelineRow::Redactions, 2.5)).index, 1u);
    EXPECT_EQ(hitTest(layout, items, at(layout, TimelineRow::Redactions, 3.5)).index, 0u);
}

// --- drag rules

MATCHER_P2(SpanIs, start, end, "") {
    return std::abs(arg.start - start) < 1e-9 && std::abs(arg.end - end) < 1e-9;
}

TEST(TimelineDragRules, MovingStopsAtTheRoomAndKeepsTheLength) {
    DragRoom room{1, 5, 0.3};
    EXPECT_THAT(dragSpan({2, 3}, HitPart::Body, 4, room), SpanIs(4, 5));
    EXPECT_THAT(dragSpan({2, 3}, HitPart::Body, -4, room), SpanIs(1, 2));
    EXPECT_THAT(dragSpan({2, 3}, HitPart::Body, 0.5, room), SpanIs(2.5, 3.5));
}

TEST(TimelineDragRules, EdgesStopAtTheMinimumLengthAndTheRoom) {
    DragRoom room{1, 5, 0.3};
    EXPECT_THAT(dragSpan({2, 3}, HitPart::EndEdge, -2, room), SpanIs(2, 2.3));
    EXPECT_THAT(dragSpan({2, 3}, HitPart::EndEdge, 9, room), SpanIs(2, 5));
    EXPECT_THAT(dragSpan({2, 3}, HitPart::StartEdge, 2, room), SpanIs(2.7, 3));
    EXPECT_THAT(dragSpan({2, 3}, HitPart::StartEdge, -5, room), SpanIs(1, 3));
}

TEST(TimelineDragRules, ABlockAlreadyOutOfRuleIsNotMadeWorse) {
    DragRoom room{1, 5, 0.3};
    // Shorter than the minimum: it may grow, never shrink.
    EXPECT_THAT(dragSpan({2, 2.1}, HitPart::EndEdge, -1, room), SpanIs(2, 2.1));
    EXPECT_THAT(dragSpan({2, 2.1}, HitPart::StartEdge, 1, room), SpanIs(2, 2.1));
    EXPECT_THAT(dragSpan({2, 2.1}, HitPart::EndEdge, 0.5, room), SpanIs(2, 2.6));
    // Reaching past its room: it does not jump back in when moved away.
    EXPECT_THAT(dragSpan({0.5, 2}, HitPart::Body, -1, room), SpanIs(0.5, 2));
}

MATCHER_P2(TrimIs, start, end, "") {
    return std::abs(arg.first - start) < 1e-9 && std::abs(arg.second - end) < 1e-9;
}

TEST(TimelineDragRules, TrimKeepsATenthOfASecondInsideTheRecording) {
    EXPECT_THAT(dragTrim(1, 5, true, 6, 10), TrimIs(4.9, 5));
    EXPECT_THAT(dragTrim(1, 5, true, -2, 10), TrimIs(0, 5));
    EXPECT_THAT(dragTrim(1, 5, false, 12, 10), TrimIs(1, 10));
    EXPECT_THAT(dragTrim(1, 5, false, 0, 10), TrimIs(1, 1.1));
}

// --- scale and scroll

TEST(TimelineScale, ZoomKeepsTheTimeUnderThePointerAndStaysBetweenFitAndFrames) {
    auto layout = tenSeconds();
    auto [scale, scroll] = zoomAround(layout, 4, layout.x(6), 60);
    EXPECT_DOUBLE_EQ(scale, 400);
    layout.pixelsPerSecond = scale;
    layout.scroll = scroll;
    EXPECT_NEAR(layout.time(TimelineLayout::kLabelWidth + 600), 6, 1e-9);

    EXPECT_EQ(zoomAround(tenSeconds(), 0.01, 500, 30).first, tenSeconds().fitScale());
    EXPECT_EQ(zoomAround(tenSeconds(), 0.01, 500, 30).second, 0);
    EXPECT_EQ(zoomAround(tenSeconds(), 1e6, 500, 30).first,
              30 * TimelineLayout::kMaxPixelsPerFrame);
}

TEST(TimelineScale, ThePlayheadPagesIntoViewOnlyWhenItLeavesIt) {
    auto layout = tenSeconds();
    layout.pixelsPerSecond = 400;  // 2.5 s in view
    layout.scroll = 1;
    EXPECT_EQ(scrollToShow(layout, 2, 40), 1);
    EXPECT_NEAR(scrollToShow(layout, 3.45, 40), 3.45 - 0.1, 1e-9);
    EXPECT_EQ(scrollToShow(layout, 0.5, 0), 0.5);
    EXPECT_EQ(scrollToShow(layout, 9.9, 40), 7.5);  // no further than the end
}

TEST(TimelineScale, RulerStepsAreRoundAndFarEnoughApart) {
    EXPECT_EQ(rulerStep(100, 72), 1);
    EXPECT_EQ(rulerStep(1000, 72), 0.1);
    EXPECT_EQ(rulerStep(10, 72), 10);
    EXPECT_EQ(rulerStep(1, 72), 120);
}

// --- sound outline

TEST(TimelineSound, PeaksSpanTheBucketsOfARangeAndNothingOutside) {
    SoundPeaks peaks;
    peaks.bucketsPerSecond = 10;
    std::vector<float> samples(200, 0.1f);  // 2 s at 100 a second
    samples[15] = 0.9f;                     // bucket 1
    samples[120] = -0.7f;                   // bucket 12
    size_t added = 0;
    peaks.add(samples.data(), 100, 100, added);
    peaks.add(samples.data() + 100, 100, 100, added);
    EXPECT_EQ(peaks.low.size(), 20u);
    EXPECT_EQ(peaks.loudest, 0.9f);
    EXPECT_EQ(peaks.range(0.1, 0.2), (std::pair<float, float>{0.1f, 0.9f}));
    EXPECT_EQ(peaks.range(0.0, 1.5), (std::pair<float, float>{-0.7f, 0.9f}));
    // Narrower than a bucket: the bucket holding it.
    EXPECT_EQ(peaks.range(1.21, 1.22), (std::pair<float, float>{-0.7f, 0.1f}));
    EXPECT_EQ(peaks.range(5, 6), (std::pair<float, float>{0, 0}));
}

// --- the widget

// A timeline over a fresh 4 s recording, 1000 track pixels wide (250 pixels a second).
class TimelineWidgetTest : public ViewsFixture {
protected:
    void open(double seconds = 4) {
        session = &openSession(seconds);
        timeline = std::make_unique<TimelineWidget>(*session);
        timeline->resize(
            static_cast<int>(TimelineLayout::kLabelWidth + 1000 + TimelineLayout::kRightPadding),
            timeline->sizeHint().height());
        timeline->show();
    }
    void commitRecipe(const std::function<void(project::Edits&)>& change) {
        project::Edits edits = session->model().edits();
        change(edits);
        ASSERT_TRUE(session->model().commit(edits)) << session->model().status();
    }
    QPoint point(TimelineRow row, double t, double dx = 0) const {
        auto layout = timeline->layout();
        return QPointF(layout.x(t) + dx, layout.rect(row).center().y()).toPoint();
    }
    void drag(TimelineRow row, double from, double to, double dx = 0) {
        QTest::mousePress(timeline.get(), Qt::LeftButton, {}, point(row, from, dx));
        QTest::mouseMove(timeline.get(), point(row, (from + to) / 2, dx));
        QTest::mouseMove(timeline.get(), point(row, to, dx));
        QTest::mouseRelease(timeline.get(), Qt::LeftButton, {}, point(row, to, dx));
    }

    EditorSession* session = nullptr;
    std::unique_ptr<TimelineWidget> timeline;
};

TEST_F(TimelineWidgetTest, DraggingAZoomCommitsOneUndoableEditThatStopsAtItsNeighbour) {
    open();
    commitRecipe([](project::Edits& edits) {
        edits.zooms = {{1, 2, 2, 0.5, 0.5, std::nullopt}, {2.5, 3.5, 2, 0.5, 0.5, std::nullopt}};
    });
    size_t undo = session->model().undoStack().size();

    drag(TimelineRow::Zooms, 1.5, 2.0);
    EXPECT_EQ(session->selection(), (EditorSession::Selection{EditorSession::Kind::Zoom, 0}));
    EXPECT_EQ(session->model().undoStack().size(), undo + 1);
    EXPECT_NEAR(session->model().edits().zooms[0].start, 1.5, 0.01);
    EXPECT_NEAR(session->model().edits().zooms[0].end, 2.5, 0.01);

    drag(TimelineRow::Zooms, 2.0, 3.5);  // past the next zoom: stays against it
    EXPECT_NEAR(session->model().edits().zooms[0].end, 2.5, 1e-9);
    EXPECT_EQ(session->model().undoStack().size(), undo + 1);

    session->model().undo();
    EXPECT_EQ(session->model().edits().zooms[0].start, 1);
    EXPECT_EQ(session->model().edits().zooms[0].end, 2);
}

TEST_F(TimelineWidgetTest, StretchingASegmentStopsAtItsMinimumAndAClickStoresNothing) {
    open();
    commitRecipe([](project::Edits& edits) {
        edits.segments = std::vector<project::TimeSegment>{{1, 2, 0}, {2.5, 3, 2}};
    });
    size_t undo = session->model().undoStack().size();
    drag(TimelineRow::Segments, 2.0, 0.5, -2);  // the cut's end edge, far to the left
    const auto& cut = session->model().edits().timing()[0];
    EXPECT_NEAR(cut.end - cut.start, editor::EditorModel::kMinimumSegment, 1e-9);
    EXPECT_EQ(session->model().undoStack().size(), undo + 1);

    QTest::mouseClick(timeline.get(), Qt::LeftButton, {}, point(TimelineRow::Segments, 2.75));
    EXPECT_EQ(session->selection(), (EditorSession::Selection{EditorSession::Kind::Segment, 1}));
    EXPECT_EQ(session->model().undoStack().size(), undo + 1);
}

TEST_F(TimelineWidgetTest, EscapeCancelsADragAndLeavesTheRedactionAsItWas) {
    open();
    commitRecipe([](project::Edits& edits) {
        project::Redaction redaction;
        redaction.start = 1;
        redaction.end = 2;
        redaction.x = redaction.y = 0.1;
        redaction.width = redaction.height = 0.2;
        edits.redactions = std::vector<project::Redaction>{redaction};
    });
    size_t undo = session->model().undoStack().size();
    QTest::mousePress(timeline.get(), Qt::LeftButton, {}, point(TimelineRow::Redactions, 1.5));
    QTest::mouseMove(timeline.get(), point(TimelineRow::Redactions, 2.5));
    ASSERT_TRUE(timeline->dragging());
    EXPECT_NEAR(session->redactions().selection()->start, 2, 0.01);  // the preview follows
    QTest::keyClick(timeline.get(), Qt::Key_Escape);
    QTest::mouseRelease(timeline.get(), Qt::LeftButton, {}, point(TimelineRow::Redactions, 2.5));
    EXPECT_FALSE(timeline->dragging());
    EXPECT_EQ(session->model().undoStack().size(), undo);
    EXPECT_EQ(session->redactions().selection()->start, 1);

    drag(TimelineRow::Redactions, 1.5, 4.5);  // stops at the end of the recording
    EXPECT_NEAR(session->model().edits().redactionList()[0].end, 4, 1e-9);
    EXPECT_EQ(session->model().undoStack().size(), undo + 1);
}

TEST_F(TimelineWidgetTest, CaptionsAndMarkersAreMovedInTheirFiles) {
    open();
    captions::CaptionTrack track;
    track.segments = {{0.5, 1.5, "Hello there", std::nullopt}, {2, 3, "Second line", std::nullopt}};
    ASSERT_TRUE(session->saveCaptions(track));
    auto folder = session->model().project().directory;
    ASSERT_TRUE(agent::markers::save({{"Open", 1}, {"Save", 3}}, folder));
    session->reloadSideFiles();

    drag(TimelineRow::Captions, 1.0, 1.9);  // stops against the next line
    EXPECT_NEAR(session->captions()->segments[0].end, 2, 1e-9);
    EXPECT_NEAR(captions::CaptionTrack::load(folder)->segments[0].start, 1, 1e-9);

    drag(TimelineRow::Markers, 1.0, 3.5, 1);  // past the other one: they change places
    auto markers = agent::markers::load(folder);
    ASSERT_EQ(markers.size(), 2u);
    EXPECT_EQ(markers[1].label, "Open");
    EXPECT_NEAR(markers[1].time, 3.5, 0.01);
    EXPECT_EQ(session->selection(), (EditorSession::Selection{EditorSession::Kind::Marker, 1}));
}

TEST_F(TimelineWidgetTest, AMovedCaptionTakesItsWordsAlongAndAStretchedOneRespreadsThem) {
    open();
    captions::CaptionTrack track;
    std::vector<captions::CaptionWord> words = {{"Hello", 1.0, 1.4}, {"there", 1.5, 1.9}};
    track.segments = {{1, 2, "Hello there", words}};
    ASSERT_TRUE(session->saveCaptions(track));

    drag(TimelineRow::Captions, 1.5, 2.5);
    const auto& moved = session->captions()->segments[0];
    EXPECT_NEAR(moved.start, 2, 0.01);
    ASSERT_TRUE(moved.words);
    EXPECT_NEAR((*moved.words)[1].start - moved.start, 0.5, 1e-9);

    drag(TimelineRow::Captions, 3.0, 3.5, -2);  // the end edge
    const auto& stretched = session->captions()->segments[0];
    EXPECT_NEAR(stretched.end, 3.5, 0.01);
    EXPECT_FALSE(stretched.words);
    EXPECT_EQ(stretched.text, "Hello there");
}

TEST_F(TimelineWidgetTest, ClickingAnEmptyLaneDeselectsAndMovesThePlayhead) {
    open();
    commitRecipe([](project::Edits& edits) { edits.zooms = {{1, 2, 2, 0.5, 0.5, std::nullopt}}; });
    session->select({EditorSession::Kind::Zoom, 0});
    QTest::mouseClick(timeline.get(), Qt::LeftButton, {}, point(TimelineRow::Zooms, 3));
    EXPECT_EQ(session->selection().kind, EditorSession::Kind::None);
    EXPECT_NEAR(session->model().currentTime(), 3, 0.01);
}

TEST_F(TimelineWidgetTest, DraggingTheEndHandleTrimsOnce) {
    open();
    size_t undo = session->model().undoStack().size();
    drag(TimelineRow::Frames, 4.0, 3.0, -2);
    EXPECT_NEAR(session->model().edits().trimEnd, 3.0, 0.01);
    EXPECT_EQ(session->model().edits().trimStart, 0);
    EXPECT_EQ(session->model().undoStack().size(), undo + 1);
    // The start handle cannot pass the end.
    drag(TimelineRow::Sound, 0.0, 3.8, 2);
    EXPECT_NEAR(session->model().edits().trimStart, session->model().edits().trimEnd - 0.1, 1e-9);
    EXPECT_EQ(session->model().undoStack().size(), undo + 2);
}

TEST_F(TimelineWidgetTest, ScrubbingOnTheRulerMovesTheModelsTime) {
    open();
    QTest::mousePress(timeline.get(), Qt::LeftButton, {}, point(TimelineRow::Ruler, 1.0));
    EXPECT_NEAR(session->model().currentTime(), 1.0, 0.01);
    QTest::mouseMove(timeline.get(), point(TimelineRow::Ruler, 2.0));
    QTest::mouseMove(timeline.get(), point(TimelineRow::Ruler, 3.0));
    QTest::mouseRelease(timeline.get(), Qt::LeftButton, {}, point(TimelineRow::Ruler, 3.0));
    // However the moves were throttled, the last one lands.
    EXPECT_NEAR(session->model().currentTime(), 3.0, 0.01);
    EXPECT_NEAR(session->playhead(), 3.0, 0.01);
}

TEST_F(TimelineWidgetTest, CtrlWheelZoomsAroundThePointerAndThePlainWheelScrolls) {
    open();
    double fit = timeline->pixelsPerSecond();
    QPointF pointer = point(TimelineRow::Zooms, 3.0);
    auto wheel = [&](int delta, Qt::KeyboardModifiers modifiers) {
        QWheelEvent event(pointer, timeline->mapToGlobal(pointer), {}, {0, delta}, Qt::NoButton,
                          modifiers, Qt::NoScrollPhase, false);
        QApplication::sendEvent(timeline.get(), &event);
    };
    wheel(120, Qt::ControlModifier);
    EXPECT_GT(timeline->pixelsPerSecond(), fit * 1.1);
    EXPECT_NEAR(timeline->layout().time(pointer.x()), 3.0, 1e-6);

    double scroll = timeline->scrollTime();
    wheel(-120, {});
    EXPECT_GT(timeline->scrollTime(), scroll);

    QTest::keyClick(timeline.get(), Qt::Key_0);
    EXPECT_EQ(timeline->pixelsPerSecond(), fit);
    EXPECT_EQ(timeline->scrollTime(), 0);
}

TEST_F(TimelineWidgetTest, PlaybackPagesTheViewAlongWithThePlayhead) {
    open();
    timeline->zoomBy(1.4, timeline->layout().trackLeft());
    ASSERT_EQ(timeline->scrollTime(), 0);
    double right = timeline->layout().time(timeline->width());
    session->setPlaying(true);
    session->setPlayhead(right - 0.05, true);
    EXPECT_GT(timeline->scrollTime(), 0);
    auto layout = timeline->layout();
    EXPECT_GT(layout.x(session->playhead()), layout.trackLeft());
    EXPECT_LT(layout.x(session->playhead()), layout.trackLeft() + layout.trackWidth());
}

TEST_F(TimelineWidgetTest, ToolTipsGiveFinishedVideoTimes) {
    open();
    commitRecipe([](project::Edits& edits) {
        edits.segments = std::vector<project::TimeSegment>{{1, 2, 0}};
        edits.zooms = {{2.5, 3.5, 2, 0.5, 0.5, std::nullopt}};
    });
    // The cut removes a second before the zoom.
    EXPECT_EQ(itemToolTip(*session, TimelineRow::Zooms, 0).toStdString(),
              "Zoom · 0:01.5 – 0:02.5 · 2×");
    EXPECT_EQ(itemToolTip(*session, TimelineRow::Segments, 0).toStdString(),
              "Cut · 0:01.0 · 0:01.0 removed");
    EXPECT_EQ(itemLabel(*session, TimelineRow::Segments, 0).toStdString(), "Cut");
}

TEST_F(TimelineWidgetTest, AltArrowsNudgeTheSelectionAndPlainArrowsPassOn) {
    open();
    commitRecipe([](project::Edits& edits) { edits.zooms = {{1, 2, 2, 0.5, 0.5, std::nullopt}}; });
    session->select({EditorSession::Kind::Zoom, 0});
    QTest::keyClick(timeline.get(), Qt::Key_Right, Qt::AltModifier);
    EXPECT_NEAR(session->model().edits().zooms[0].start, 1 + session->frameDuration(), 1e-9);
    QTest::keyClick(timeline.get(), Qt::Key_Left, Qt::AltModifier | Qt::ShiftModifier);
    EXPECT_NEAR(session->model().edits().zooms[0].end, 2, 1e-9);

    QKeyEvent plain(QEvent::KeyPress, Qt::Key_Left, Qt::NoModifier);
    QApplication::sendEvent(timeline.get(), &plain);
    EXPECT_FALSE(plain.isAccepted());
}

// Pictures to look at: every row filled, in a light and a dark palette, at 1x and 2x.
TEST_F(TimelineWidgetTest, PaintsEveryRowInLightAndDarkPalettes) {
    open(10);
    commitRecipe([](project::Edits& edits) {
        edits.zooms = {{0.8, 2.6, 2, 0.5, 0.5, std::nullopt}, {4.5, 6.2, 1.5, 0.3, 0.4, true}};
        edits.segments = std::vector<project::TimeSegment>{{3.0, 3.9, 0}, {6.8, 8.2, 2}};
        project::Redaction redaction;
        redaction.start = 1.5;
        redaction.end = 5.0;
        redaction.x = redaction.y = 0.1;
        redaction.width = redaction.height = 0.2;
        redaction.label = "Email address";
        edits.redactions = std::vector<project::Redaction>{redaction};
        edits.trimEnd = 9.4;
    });
    captions::CaptionTrack track;
    track.segments = {{0.3, 2.4, "Let's open the settings first", std::nullopt},
                      {2.6, 4.4, "and turn on dark mode", std::nullopt},
                      {5.0, 7.5, "Now every window follows the system theme", std::nullopt}};
    ASSERT_TRUE(session->saveCaptions(track));
    ASSERT_TRUE(agent::markers::save({{"Open settings", 0.5}, {"Dark mode", 5.2}},
                                     session->model().project().directory));
    session->reloadSideFiles();
    session->setDeadTimeProposals({{1.2, 2.5, 4}, {8.4, 9.3, 0}});
    session->select({EditorSession::Kind::Zoom, 1});
    session->setPlayhead(5.6);
    // Wait for the strips to arrive so the pictures show them (no assertion on how long).
    (void)QTest::qWaitFor(
        [&] { return timeline->strips()->soundReady() && timeline->filmstripSettled(); }, 20000);
    ASSERT_FALSE(timeline->strips()->frame(1).isNull());

    QPalette light(QColor(246, 246, 248));
    light.setColor(QPalette::Base, Qt::white);
    light.setColor(QPalette::Text, QColor(28, 28, 32));
    light.setColor(QPalette::Highlight, QColor(58, 110, 240));
    light.setColor(QPalette::HighlightedText, Qt::white);
    QPalette dark(QColor(36, 36, 40));
    dark.setColor(QPalette::Base, QColor(26, 26, 30));
    dark.setColor(QPalette::Text, QColor(232, 232, 236));
    dark.setColor(QPalette::WindowText, QColor(232, 232, 236));
    dark.setColor(QPalette::Highlight, QColor(100, 140, 255));
    dark.setColor(QPalette::HighlightedText, Qt::white);
    const QString folder = qEnvironmentVariable("QUILLO_VIEWS_SHOTS", "/tmp");
    for (auto [name, palette] : {std::pair{"light", light}, std::pair{"dark", dark}}) {
        timeline->setPalette(palette);
        QImage picture = timeline->grab().toImage();
        EXPECT_FALSE(picture.isNull());
        picture.save(QString("%1/timeline_%2.png").arg(folder, name));
        QImage sharp(timeline->size() * 2, QImage::Format_ARGB32_Premultiplied);
        sharp.setDevicePixelRatio(2);
        sharp.fill(Qt::transparent);
        timeline->render(&sharp);
        sharp.save(QString("%1/timeline_%2@2x.png").arg(folder, name));
    }
    timeline->zoomBy(6, timeline->layout().x(5.6));
    (void)QTest::qWaitFor([&] { return timeline->filmstripSettled(); }, 20000);
    timeline->grab().save(folder + "/timeline_dark_zoomed.png");
}

}  // namespace
}  // namespace quillo::views
