#pragma once

#include <QWidget>

#include "editor_session.h"

class QCheckBox;
class QComboBox;
class QLabel;

namespace quillo::views {

class InspectorSlider;

// The webcam recorded with the recording: where it goes (a corner bubble, side by side, alone or
// off), its shape, size and corner radius, mirroring and shadow. The camera is never zoomed.
// Without camera footage the controls are off and a note says so. GUI thread only.
class CameraInspector : public QWidget {
    Q_OBJECT

public:
    CameraInspector(EditorSession& session, QWidget* parent = nullptr);

    void refresh();

private:
    template <class F>
    void change(F&& edit);

    EditorSession& m_session;
    QComboBox* m_layout = nullptr;
    QComboBox* m_shape = nullptr;
    InspectorSlider* m_size = nullptr;
    InspectorSlider* m_radius = nullptr;
    QCheckBox* m_mirror = nullptr;
    QCheckBox* m_shadow = nullptr;
    QLabel* m_note = nullptr;
};

}  // namespace quillo::views
