#pragma once

#include <QWidget>

#include "editor_session.h"

class QCheckBox;
class QLabel;
class QPushButton;

namespace quillo::views {

class InspectorSlider;

// The selected zoom: magnification, focus point, following the pointer, its time in the
// finished video, and removal. Each finished change is one commitZoom. GUI thread only.
class ZoomInspector : public QWidget {
    Q_OBJECT

public:
    ZoomInspector(EditorSession& session, QWidget* parent = nullptr);

    // Shows the selected zoom as the model has it now.
    void refresh();

private:
    template <class F>
    void change(F&& edit);

    EditorSession& m_session;
    InspectorSlider* m_scale = nullptr;
    InspectorSlider* m_x = nullptr;
    InspectorSlider* m_y = nullptr;
    QCheckBox* m_follow = nullptr;
    QLabel* m_times = nullptr;
    QPushButton* m_remove = nullptr;
};

}  // namespace quillo::views
