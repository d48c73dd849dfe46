#pragma once

#include <optional>

#include <QPointer>
#include <QScrollBar>
#include <QTimer>
#include <QWidget>

#include "editor_session.h"
#include "timeline_layout.h"

namespace quillo::views {

class TimelineStrips;

// The timeline of one open recording: a ruler in finished-video time over the recording's own
// time axis, the filmstrip and the sound, trim handles, and rows of zooms, cuts and speed-ups,
// redactions, captions and markers whose blocks are selected, moved and stretched with the
// mouse (one stored change per gesture). Clicking or dragging on the ruler or an empty part
// scrubs. Ctrl+wheel (or +, - and 0) zooms around the pointer; the wheel scrolls. Keys the
// editor handles (Space, arrows, J/K/L, I/O, Z, C, S, Delete, Escape outside a drag) pass on.
// GUI thread only.
class TimelineWidget : public QWidget {
    Q_OBJECT

public:
    TimelineWidget(EditorSession& session, QWidget* parent = nullptr);
    ~TimelineWidget() override;

    // The geometry as it is now (for tests and the painter).
    TimelineLayout layout() const;
    // Pixels per second now, and whether the whole recording is in view.
    double pixelsPerSecond() const { return m_pixelsPerSecond; }
    double scrollTime() const { return m_scroll; }
    bool dragging() const { return m_drag.mode != DragMode::None; }
    // Multiplies the scale around x (widget pixels), as Ctrl+wheel does.
    void zoomBy(double factor, double anchorX);
    void zoomToFit();
    const TimelineStrips* strips() const { return m_strips; }
    // No filmstrip pictures are asked for or on their way.
    bool filmstripSettled() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    bool event(QEvent* event) override;

private:
    enum class DragMode { None, Pending, Block, Trim, Scrub };
    struct Drag {
        DragMode mode = DragMode::None;
        TimelineRow row = TimelineRow::Ruler;
        size_t index = 0;
        HitPart part = HitPart::Body;
        TimeSpan original;
        TimeSpan current;
        DragRoom room;
        double pressTime = 0;  // recording seconds under the pointer at the press
        double pressX = 0;
        bool trimStart = false;
        double trimFrom = 0;  // the trim as it stands during a trim drag
        double trimTo = 0;
    };

    TimelineItems items() const;
    void ensureStrips();
    void setView(double pixelsPerSecond, double scroll);
    void syncScrollBar();
    void requestFrames();
    void playheadMoved(double t);
    void scrubTo(double t);
    void flushScrub();
    void dragTo(double x);
    void edgeScroll();
    void updateBlockDrag(double x);
    void finishDrag();
    void cancelDrag();
    void nudgeSelection(HitPart part, int frames);
    void updateHover(QPointF point);
    void describeSelection();

    EditorSession& m_session;
    TimelineStrips* m_strips = nullptr;
    QScrollBar* m_scrollBar;
    double m_pixelsPerSecond = 1;
    double m_scroll = 0;   // recording seconds at the tracks' left edge
    bool m_fitted = true;  // follows the width while the whole recording is in view
    bool m_syncing = false;
    Drag m_drag;
    TimelineHit m_hover;
    std::optional<double> m_pendingScrub;
    QTimer m_scrubTimer;
    QTimer m_framesTimer;
    QTimer m_edgeTimer;
    double m_pointerX = 0;  // of the last move during a drag
};

}  // namespace quillo::views
