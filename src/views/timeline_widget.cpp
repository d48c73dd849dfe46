#include "timeline_widget.h"

#include <algorithm>
#include <cmath>

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>
#include <QWheelEvent>

#include "base/clock.h"
#include "timeline_items.h"
#include "timeline_painter.h"
#include "timeline_strips.h"

namespace quillo::views {

namespace {

constexpr int kScrubInterval = 33;    // ms between playhead moves while scrubbing
constexpr int kFramesDelay = 80;      // ms of quiet before the filmstrip asks for pictures
constexpr double kDragThreshold = 3;  // pixels before a press on a block becomes a drag
constexpr double kFollowMargin = 40;  // pixels the playhead keeps from the right edge
constexpr double kWheelStep = 60;     // pixels scrolled per wheel notch
constexpr double kKeyZoom = 1.5;
constexpr double kEdgeZone = 16;   // pixels at the view's ends where a drag scrolls
constexpr int kEdgeInterval = 30;  // ms between scroll steps of a drag at an end

}  // namespace

TimelineWidget::TimelineWidget(EditorSession& session, QWidget* parent)
    : QWidget(parent), m_session(session), m_scrollBar(new QScrollBar(Qt::Horizontal, this)) {
    setAccessibleName(tr("Timeline"));
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent);
    m_scrollBar->setAccessibleName(tr("Timeline position"));
    m_scrollBar->setFocusPolicy(Qt::NoFocus);
    m_scrollBar->hide();
    connect(m_scrollBar, &QScrollBar::valueChanged, this, [this](int value) {
        if (!m_syncing) {
            setView(m_pixelsPerSecond, value / m_pixelsPerSecond);
        }
    });

    m_scrubTimer.setSingleShot(true);
    m_scrubTimer.setInterval(kScrubInterval);
    connect(&m_scrubTimer, &QTimer::timeout, this, [this] { flushScrub(); });
    m_framesTimer.setSingleShot(true);
    m_framesTimer.setInterval(kFramesDelay);
    connect(&m_framesTimer, &QTimer::timeout, this, [this] { requestFrames(); });
    m_edgeTimer.setInterval(kEdgeInterval);
    connect(&m_edgeTimer, &QTimer::timeout, this, [this] { edgeScroll(); });

    auto refresh = [this] {
        ensureStrips();
        describeSelection();
        update();
    };
    connect(&m_session, &EditorSession::recipeChanged, this, refresh);
    connect(&m_session, &EditorSession::keptTimeChanged, this, refresh);
    connect(&m_session, &EditorSession::sideFilesChanged, this, refresh);
    connect(&m_session, &EditorSession::deadTimeProposalsChanged, this, [this] { update(); });
    connect(&m_session, &EditorSession::selectionChanged, this, [this] {
        describeSelection();
        update();
    });
    connect(&m_session, &EditorSession::playheadMoved, this,
            [this](double t) { playheadMoved(t); });
    ensureStrips();
    describeSelection();
}

TimelineWidget::~TimelineWidget() = default;

QSize TimelineWidget::sizeHint() const {
    return {900, static_cast<int>(TimelineLayout::rowsHeight()) + 16};
}

QSize TimelineWidget::minimumSizeHint() const {
    return {320, static_cast<int>(TimelineLayout::rowsHeight()) + 16};
}

TimelineLayout TimelineWidget::layout() const {
    TimelineLayout layout;
    layout.width = width();
    layout.duration = m_session.model().duration();
    layout.pixelsPerSecond = m_pixelsPerSecond;
    layout.scroll = m_scroll;
    layout.rows = TimelineLayout::stackRows(width());
    return layout;
}

TimelineItems TimelineWidget::items() const {
    QFont font = this->font();
    font.setPointSizeF(font.pointSizeF() * 0.85);
    font.setWeight(QFont::Medium);
    TimelineItems items = timelineItems(m_session, QFontMetricsF(font));
    // A block being dragged shows where the pointer takes it, not where it is stored.
    if (m_drag.mode == DragMode::Block) {
        if (auto* spans = items.row(m_drag.row); spans && m_drag.index < spans->size()) {
            (*spans)[m_drag.index] = m_drag.current;
        }
    } else if (m_drag.mode == DragMode::Trim) {
        items.trimStart = m_drag.trimFrom;
        items.trimEnd = m_drag.trimTo;
    }
    return items;
}

void TimelineWidget::ensureStrips() {
    const auto& model = m_session.model();
    if (m_strips || model.duration() <= 0) {
        return;
    }
    m_strips = new TimelineStrips(model.project().recordingFile(), model.duration(), this);
    connect(m_strips, &TimelineStrips::framesChanged, this, [this] { update(); });
    connect(m_strips, &TimelineStrips::soundChanged, this, [this] { update(); });
    m_strips->requestSound();
    setView(layout().fitScale(), 0);
    m_fitted = true;
}

// --- view

void TimelineWidget::setView(double pixelsPerSecond, double scroll) {
    TimelineLayout next = layout();
    next.pixelsPerSecond =
        std::clamp(pixelsPerSecond, next.fitScale(), next.maxScale(1 / m_session.frameDuration()));
    next.scroll = std::clamp(scroll, 0.0, next.maxScroll());
    bool changed = next.pixelsPerSecond != m_pixelsPerSecond || next.scroll != m_scroll;
    m_pixelsPerSecond = next.pixelsPerSecond;
    m_scroll = next.scroll;
    m_fitted = next.pixelsPerSecond <= next.fitScale() * 1.0001;
    syncScrollBar();
    if (changed) {
        m_framesTimer.start();
        update();
    }
}

void TimelineWidget::syncScrollBar() {
    TimelineLayout now = layout();
    m_syncing = true;
    int range = static_cast<int>(std::ceil(now.maxScroll() * m_pixelsPerSecond));
    m_scrollBar->setRange(0, range);
    m_scrollBar->setPageStep(static_cast<int>(now.trackWidth()));
    m_scrollBar->setSingleStep(static_cast<int>(kWheelStep));
    m_scrollBar->setValue(static_cast<int>(std::round(m_scroll * m_pixelsPerSecond)));
    int barHeight = m_scrollBar->sizeHint().height();
    m_scrollBar->setGeometry(static_cast<int>(now.trackLeft()),
                             static_cast<int>(TimelineLayout::rowsHeight()) + 2,
                             static_cast<int>(now.trackWidth()), barHeight);
    m_scrollBar->setVisible(range > 0);
    m_syncing = false;
}

void TimelineWidget::zoomBy(double factor, double anchorX) {
    auto [scale, scroll] = zoomAround(layout(), factor, anchorX, 1 / m_session.frameDuration());
    setView(scale, scroll);
}

void TimelineWidget::zoomToFit() { setView(layout().fitScale(), 0); }

void TimelineWidget::requestFrames() {
    if (!m_strips) {
        return;
    }
    TimelineLayout now = layout();
    Size video = m_session.model().videoSize();
    double aspect = video.width > 0 && video.height > 0
                        ? static_cast<double>(video.width) / video.height
                        : 16.0 / 9.0;
    double height = now.rect(TimelineRow::Frames).height();
    std::vector<double> times;
    for (const FilmTile& tile : filmTiles(now, height * aspect)) {
        times.push_back(tile.time);
    }
    m_strips->requestFrames(times, static_cast<int>(std::ceil(height * devicePixelRatioF())));
}

bool TimelineWidget::filmstripSettled() const {
    return !m_framesTimer.isActive() && (!m_strips || !m_strips->framesPending());
}

void TimelineWidget::playheadMoved(double t) {
    if (m_drag.mode == DragMode::None || m_drag.mode == DragMode::Scrub) {
        // While playing the view pages along; a jump elsewhere brings the playhead into view.
        TimelineLayout now = layout();
        double margin = m_session.playing() ? kFollowMargin : 0;
        if (m_drag.mode == DragMode::None) {
            setView(m_pixelsPerSecond, scrollToShow(now, t, margin));
        }
    }
    update();
}

// --- painting

void TimelineWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    TimelineLayout now = layout();
    TimelineItems shown = items();
    TimelineScene scene;
    scene.session = &m_session;
    scene.layout = &now;
    scene.items = &shown;
    scene.strips = m_strips;
    auto selection = m_session.selection();
    scene.selectedRow = selectionRow(selection.kind);
    scene.selectedIndex = selection.index;
    scene.hover = m_drag.mode == DragMode::None ? m_hover : TimelineHit{};
    scene.focused = hasFocus();
    scene.playhead = m_session.playhead();
    Size video = m_session.model().videoSize();
    if (video.width > 0 && video.height > 0) {
        scene.videoAspect = static_cast<double>(video.width) / video.height;
    }
    painter.fillRect(rect(), palette().color(QPalette::Base));
    paintTimeline(painter, scene, palette());
}

void TimelineWidget::resizeEvent(QResizeEvent*) {
    if (m_fitted) {
        setView(layout().fitScale(), 0);
    } else {
        setView(m_pixelsPerSecond, m_scroll);
    }
    syncScrollBar();
    m_framesTimer.start();
}

// --- mouse

void TimelineWidget::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || m_drag.mode != DragMode::None) {
        QWidget::mousePressEvent(event);
        return;
    }
    setFocus(Qt::MouseFocusReason);
    TimelineLayout now = layout();
    TimelineItems current = items();
    QPointF point = event->position();
    TimelineHit hit = hitTest(now, current, point);
    using What = TimelineHit::What;
    m_drag = {};
    m_drag.pressX = point.x();
    m_drag.pressTime = now.time(point.x());
    switch (hit.what) {
        case What::Item: {
            m_session.select({selectionKind(hit.row), hit.index});
            const auto* spans = current.row(hit.row);
            m_drag.mode = DragMode::Pending;
            m_drag.row = hit.row;
            m_drag.index = hit.index;
            m_drag.part = hit.part;
            m_drag.original = (*spans)[hit.index];
            m_drag.current = m_drag.original;
            m_drag.room = dragRoom(m_session, current, hit.row, hit.index);
            break;
        }
        case What::TrimStart:
        case What::TrimEnd:
            m_drag.mode = DragMode::Trim;
            m_drag.trimStart = hit.what == What::TrimStart;
            m_drag.trimFrom = current.trimStart;
            m_drag.trimTo = current.trimEnd;
            break;
        case What::Ruler:
        case What::Track:
            if (selectionKind(hit.row) != EditorSession::Kind::None) {
                m_session.select({});
            }
            m_drag.mode = DragMode::Scrub;
            scrubTo(m_drag.pressTime);
            break;
        case What::Nothing:
            QWidget::mousePressEvent(event);
            return;
    }
    event->accept();
    update();
}

void TimelineWidget::mouseMoveEvent(QMouseEvent* event) {
    QPointF point = event->position();
    if (m_drag.mode == DragMode::None) {
        updateHover(point);
        return;
    }
    m_pointerX = point.x();
    dragTo(point.x());
    // Near either end of a zoomed-in view the drag scrolls it along.
    TimelineLayout now = layout();
    bool nearEdge = point.x() < now.trackLeft() + kEdgeZone ||
                    point.x() > now.trackLeft() + now.trackWidth() - kEdgeZone;
    if (nearEdge && now.maxScroll() > 0 && m_drag.mode != DragMode::Pending) {
        m_edgeTimer.start();
    } else {
        m_edgeTimer.stop();
    }
    event->accept();
}

void TimelineWidget::dragTo(double x) {
    switch (m_drag.mode) {
        case DragMode::None:
            return;
        case DragMode::Pending:
            if (std::abs(x - m_drag.pressX) < kDragThreshold) {
                return;
            }
            m_drag.mode = DragMode::Block;
            [[fallthrough]];
        case DragMode::Block:
            updateBlockDrag(x);
            break;
        case DragMode::Trim: {
            const project::Edits& edits = m_session.model().edits();
            auto [from, to] = dragTrim(edits.trimStart, edits.trimEnd, m_drag.trimStart,
                                       layout().time(x), m_session.model().duration());
            m_drag.trimFrom = from;
            m_drag.trimTo = to;
            break;
        }
        case DragMode::Scrub:
            scrubTo(layout().time(x));
            break;
    }
    update();
}

void TimelineWidget::edgeScroll() {
    TimelineLayout now = layout();
    double right = now.trackLeft() + now.trackWidth();
    double beyond = m_pointerX < now.trackLeft() + kEdgeZone
                        ? m_pointerX - (now.trackLeft() + kEdgeZone)
                        : std::max(0.0, m_pointerX - (right - kEdgeZone));
    if (m_drag.mode == DragMode::None || beyond == 0) {
        m_edgeTimer.stop();
        return;
    }
    // Faster the further past the edge the pointer is.
    double pixels = std::clamp(beyond / 2, -40.0, 40.0);
    setView(m_pixelsPerSecond, m_scroll + pixels / m_pixelsPerSecond);
    dragTo(m_pointerX);
}

void TimelineWidget::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || m_drag.mode == DragMode::None) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    if (m_drag.mode == DragMode::Block) {
        updateBlockDrag(event->position().x());
    }
    finishDrag();
    updateHover(event->position());
    event->accept();
}

void TimelineWidget::updateBlockDrag(double x) {
    double delta = layout().time(x) - m_drag.pressTime;
    m_drag.current = dragSpan(m_drag.original, m_drag.part, delta, m_drag.room);
    if (m_drag.row == TimelineRow::Redactions) {
        // The preview shows the redaction where it is being dragged before it is stored.
        const auto& list = m_session.model().edits().redactionList();
        if (m_drag.index < list.size()) {
            project::Redaction redaction = list[m_drag.index];
            redaction.start = m_drag.current.start;
            redaction.end = m_drag.current.end;
            m_session.redactions().update(redaction);
        }
    }
}

void TimelineWidget::finishDrag() {
    m_edgeTimer.stop();
    Drag drag = m_drag;
    m_drag = {};
    switch (drag.mode) {
        case DragMode::Block:
            if (drag.current != drag.original) {
                if (auto index = commitSpan(m_session, drag.row, drag.index, drag.current)) {
                    m_session.select({selectionKind(drag.row), *index});
                }
            } else if (drag.row == TimelineRow::Redactions) {
                m_session.redactions().select(drag.index);
            }
            break;
        case DragMode::Trim: {
            const project::Edits& edits = m_session.model().edits();
            if (drag.trimStart && drag.trimFrom != edits.trimStart) {
                m_session.model().setTrim(drag.trimFrom, std::nullopt);
            } else if (!drag.trimStart && drag.trimTo != edits.trimEnd) {
                m_session.model().setTrim(std::nullopt, drag.trimTo);
            }
            break;
        }
        case DragMode::Scrub:
            m_scrubTimer.stop();
            flushScrub();
            break;
        default:
            break;
    }
    update();
}

void TimelineWidget::cancelDrag() {
    if (m_drag.mode == DragMode::Block && m_drag.row == TimelineRow::Redactions) {
        m_session.redactions().select(m_drag.index);  // drops the pending change
    }
    m_scrubTimer.stop();
    m_edgeTimer.stop();
    m_pendingScrub.reset();
    m_drag = {};
    update();
}

// Scrubbing moves the playhead at most every kScrubInterval ms, so a slow preview does not
// queue up every mouse move; the last position always lands.
void TimelineWidget::scrubTo(double t) {
    m_pendingScrub = t;
    if (!m_scrubTimer.isActive()) {
        flushScrub();
        m_scrubTimer.start();
    }
}

void TimelineWidget::flushScrub() {
    if (m_pendingScrub) {
        double t = *m_pendingScrub;
        m_pendingScrub.reset();
        m_session.setPlayhead(t);
    }
}

void TimelineWidget::updateHover(QPointF point) {
    TimelineHit hit = hitTest(layout(), items(), point);
    using What = TimelineHit::What;
    Qt::CursorShape shape = Qt::ArrowCursor;
    if (hit.what == What::TrimStart || hit.what == What::TrimEnd ||
        (hit.what == What::Item && hit.part != HitPart::Body)) {
        shape = Qt::SizeHorCursor;
    } else if (hit.what == What::Item) {
        shape = Qt::OpenHandCursor;
    } else if (hit.what == What::Ruler) {
        shape = Qt::IBeamCursor;
    }
    setCursor(shape);
    if (hit != m_hover) {
        m_hover = hit;
        update();
    }
}

void TimelineWidget::leaveEvent(QEvent*) {
    m_hover = {};
    update();
}

// --- wheel and keys

void TimelineWidget::wheelEvent(QWheelEvent* event) {
    QPoint angle = event->angleDelta();
    if (event->modifiers() & Qt::ControlModifier) {
        zoomBy(std::pow(1.0015, angle.y()), event->position().x());
    } else {
        int notches = angle.x() != 0 ? angle.x() : angle.y();
        setView(m_pixelsPerSecond, m_scroll - notches / 120.0 * kWheelStep / m_pixelsPerSecond);
    }
    event->accept();
}

void TimelineWidget::keyPressEvent(QKeyEvent* event) {
    bool alt = event->modifiers() & Qt::AltModifier;
    bool shift = event->modifiers() & Qt::ShiftModifier;
    double playheadX = layout().x(m_session.playhead());
    if (playheadX < layout().trackLeft() || playheadX > width()) {
        playheadX = layout().trackLeft() + layout().trackWidth() / 2;
    }
    switch (event->key()) {
        case Qt::Key_Escape:
            if (m_drag.mode != DragMode::None) {
                cancelDrag();
                return;
            }
            break;
        case Qt::Key_Plus:
        case Qt::Key_Equal:
            zoomBy(kKeyZoom, playheadX);
            return;
        case Qt::Key_Minus:
            zoomBy(1 / kKeyZoom, playheadX);
            return;
        case Qt::Key_0:
            zoomToFit();
            return;
        case Qt::Key_Left:
        case Qt::Key_Right:
            // Alt moves the selected block a frame, Alt+Shift stretches its end; plain arrows
            // step frames in the editor.
            if (alt && m_drag.mode == DragMode::None && selectionRow(m_session.selection().kind)) {
                nudgeSelection(shift ? HitPart::EndEdge : HitPart::Body,
                               event->key() == Qt::Key_Left ? -1 : 1);
                return;
            }
            break;
        default:
            break;
    }
    event->ignore();
}

void TimelineWidget::nudgeSelection(HitPart part, int frames) {
    auto selection = m_session.selection();
    auto row = selectionRow(selection.kind);
    TimelineItems current = items();
    const auto* spans = row ? current.row(*row) : nullptr;
    if (!spans || selection.index >= spans->size()) {
        return;
    }
    TimeSpan span = dragSpan((*spans)[selection.index], part, frames * m_session.frameDuration(),
                             dragRoom(m_session, current, *row, selection.index));
    if (span != (*spans)[selection.index]) {
        if (auto index = commitSpan(m_session, *row, selection.index, span)) {
            m_session.select({selection.kind, *index});
        }
    }
}

void TimelineWidget::focusInEvent(QFocusEvent*) { update(); }

void TimelineWidget::focusOutEvent(QFocusEvent*) {
    if (m_drag.mode != DragMode::None) {
        cancelDrag();
    }
    update();
}

bool TimelineWidget::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        TimelineHit hit = hitTest(layout(), items(), help->pos());
        QString text;
        if (hit.what == TimelineHit::What::Item) {
            text = itemToolTip(m_session, hit.row, hit.index);
        } else if (hit.what == TimelineHit::What::TrimStart) {
            text = tr("Start of the finished video: drag to trim");
        } else if (hit.what == TimelineHit::What::TrimEnd) {
            text = tr("End of the finished video: drag to trim");
        }
        if (text.isEmpty()) {
            QToolTip::hideText();
            event->ignore();
        } else {
            QToolTip::showText(help->globalPos(), text, this);
        }
        return true;
    }
    return QWidget::event(event);
}

void TimelineWidget::describeSelection() {
    // What the rows hold, then the selection: what a screen reader (and a test) hears.
    const auto& edits = m_session.model().edits();
    size_t cuts = 0;
    size_t speedUps = 0;
    for (const auto& segment : edits.timing()) {
        (segment.speed == 0 ? cuts : speedUps) += 1;
    }
    auto count = [](size_t n, const QString& one, const QString& many) {
        return QString::number(n) + " " + (n == 1 ? one : many);
    };
    QStringList rows = {count(edits.zooms.size(), tr("zoom"), tr("zooms")),
                        count(cuts, tr("cut"), tr("cuts")),
                        count(speedUps, tr("speed-up"), tr("speed-ups")),
                        count(edits.redactionList().size(), tr("redaction"), tr("redactions")),
                        count(m_session.captions() ? m_session.captions()->segments.size() : 0,
                              tr("caption line"), tr("caption lines")),
                        count(m_session.markers().size(), tr("marker"), tr("markers"))};
    auto selection = m_session.selection();
    auto row = selectionRow(selection.kind);
    QString selected = row ? tr("Selected: %1").arg(itemToolTip(m_session, *row, selection.index))
                           : tr("Nothing selected");
    QString description = rows.join(", ") + ". " + selected;
    if (description != accessibleDescription()) {
        setAccessibleDescription(description);
    }
}

}  // namespace quillo::views
