#pragma once

#include <optional>

#include <QLabel>
#include <QPoint>
#include <QTimer>
#include <QToolButton>
#include <QWidget>

#include "app/studio_model.h"

namespace quillo::views {

// The floating pill while recording: a red dot and the elapsed time, then Pause/Resume, Stop
// and Discard. Discard asks first, inside the pill ("Discard this recording?" with Keep
// Recording and Discard). Stays above the other windows without taking the keyboard; dragged
// by its body, it stays where it was put for the rest of the session.
class RecordingControls : public QWidget {
    Q_OBJECT

public:
    explicit RecordingControls(app::StudioModel& studio);
    ~RecordingControls() override;

    // Shows the pill on the screen of `source` (screen pixels): where it was dragged to, else at
    // the middle of the bottom edge, or another edge the source leaves free.
    void present(const QRect& source);
    // Follows the model: the clock, pause state; the question is dropped when recording ends.
    void follow();
    bool asking() const { return m_asking; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void ask(bool on);
    void reshape();
    QPoint defaultPlace(const QRect& screen, const QRect& source) const;

    app::StudioModel& m_studio;
    int m_changed = 0;
    bool m_blends = true;
    bool m_asking = false;
    QWidget* m_controls;  // dot, clock and buttons
    QWidget* m_question;  // the discard question
    QLabel* m_clock;
    QToolButton* m_pause;
    QToolButton* m_stop;
    QToolButton* m_discard;
    QToolButton* m_keep;
    QToolButton* m_confirm;
    QTimer m_tick;
    std::optional<QPoint> m_dragFrom;  // pointer offset inside the pill while dragging
    std::optional<QPoint> m_placed;    // where the user dragged it, kept for the session
    bool m_paused = false;
};

}  // namespace quillo::views
