#pragma once

#include <QTimer>
#include <QWidget>

#include "capture/capture_types.h"

namespace quillo::app {
class StudioModel;
}

namespace quillo::views {

// A small live picture of the chosen source: the capture session's latest frame, looked at a
// few times a second while the widget is on screen and a source is chosen (and not at all
// otherwise), fitted into rounded corners. Without a source it shows a quiet placeholder.
class SourcePreview : public QWidget {
    Q_OBJECT

public:
    explicit SourcePreview(app::StudioModel& studio, QWidget* parent = nullptr);

    QSize sizeHint() const override { return {144, 81}; }
    // Starts or stops looking, as the widget's visibility and the source say.
    void follow();
    bool looking() const { return m_timer.isActive(); }
    // The serial of the frame shown, 0 with none.
    uint64_t shownSerial() const { return m_frame ? m_frame->serial : 0; }

protected:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    void tick();

    app::StudioModel& m_studio;
    QTimer m_timer;
    capture::FramePtr m_frame;  // the frame shown
};

}  // namespace quillo::views
