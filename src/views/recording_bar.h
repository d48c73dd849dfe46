#pragma once

#include <QAction>
#include <QPointer>
#include <QWidget>

#include "app/studio_model.h"
#include "source_picker.h"

class QLabel;
class QPushButton;

namespace quillo::views {

class SourcePreview;
class CameraBubble;
class CameraControl;

// The strip above the studio's tabs that records: a live picture of the chosen source, the
// source's button (it opens the picker), the elapsed time while recording and the Record
// button, which follows the recording's state (Record, Cancel Countdown, Stop, Saving…), with
// the camera's switch and, while it runs, its live picture.
class RecordingBar : public QWidget {
    Q_OBJECT

public:
    explicit RecordingBar(app::StudioModel& studio, QWidget* parent = nullptr);
    ~RecordingBar() override;

    // "Record": starts, cancels the countdown or stops, as the record button does.
    QAction* recordAction() const { return m_record; }
    // "Choose Source…": opens the picker (only while no recording is under way).
    QAction* chooseAction() const { return m_choose; }
    void openPicker();
    SourcePicker* picker() const { return m_picker; }
    SourcePreview& preview() const { return *m_preview; }
    CameraControl& cameraControl() const { return *m_camera; }
    CameraBubble& cameraBubble() const { return *m_cameraBubble; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void sync();

    app::StudioModel& m_studio;
    QAction* m_record;
    QAction* m_choose;
    SourcePreview* m_preview;
    QPushButton* m_sourceButton;
    QLabel* m_sourceDetail;
    QLabel* m_elapsed;
    CameraControl* m_camera;
    CameraBubble* m_cameraBubble;
    QPushButton* m_recordButton;
    QPointer<SourcePicker> m_picker;
    int m_changed = 0;
};

}  // namespace quillo::views
