#pragma once

#include <functional>

#include <QElapsedTimer>
#include <QRect>
#include <QTimer>
#include <QWidget>

namespace quillo::views {

// The countdown before a recording: a large number in a dark disc with a ring that runs down
// with the seconds, centred on the screen of the shared source. Above every window and
// click-through, so it never takes the pointer or the keyboard; Escape reaches it through a
// desktop-wide key that its owner grabs and hands to cancel().
class CountdownOverlay : public QWidget {
    Q_OBJECT

public:
    CountdownOverlay();

    // Shows `value` of `total` seconds centred on `screen` (logical pixels); a new value starts
    // the ring's next second.
    void showCount(int value, int total, const QRect& screen);
    // A line under the number ("Press Esc to cancel"), empty for none.
    void setHint(const QString& hint);
    int value() const { return m_value; }

    // Escape: asks the owner to cancel the countdown.
    void cancel();
    std::function<void()> onCancel;

protected:
    void paintEvent(QPaintEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    int m_value = 0;
    int m_total = 1;
    QString m_hint;
    bool m_blends = true;
    QElapsedTimer m_second;  // since the value last changed
    QTimer m_frames;         // repaints while shown, for the ring
};

}  // namespace quillo::views
