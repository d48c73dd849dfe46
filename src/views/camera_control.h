#pragma once

#include <memory>

#include <QTimer>
#include <QToolButton>
#include <QWidget>

#include "app/preferences.h"

namespace quillo::app {
class StudioModel;
}
namespace quillo::capture {
struct CameraPreviewFrame;
}

namespace quillo::views {

// The webcam's live picture in a small circle, looked at ten times a second while the
// camera runs; hidden while it doesn't.
class CameraBubble : public QWidget {
    Q_OBJECT

public:
    explicit CameraBubble(app::StudioModel& studio, QWidget* parent = nullptr);

    QSize sizeHint() const override { return {64, 64}; }
    // Shows or hides the bubble and starts or stops looking, as the camera says.
    void follow();
    bool showsPicture() const { return m_picture != nullptr; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void tick();

    app::StudioModel& m_studio;
    QTimer m_timer;
    std::shared_ptr<const capture::CameraPreviewFrame> m_picture;
};

// "Camera" where recording starts: checked while the camera setting is on, with a menu of the
// attached cameras ("Default camera" first). Both write the settings, which turn the camera on
// or off; a camera that fails turns the setting back off with the reason in the status line.
class CameraControl : public QToolButton {
    Q_OBJECT

public:
    explicit CameraControl(app::StudioModel& studio, QWidget* parent = nullptr);
    ~CameraControl() override;

    // Rebuilds the device menu from the cameras attached now.
    void refreshDevices();
    // Follows the settings and the recording's state.
    void sync();

private:
    app::StudioModel& m_studio;
    PreferenceStore::ObserverId m_observer{};
};

}  // namespace quillo::views
