#pragma once

#include <QWidget>

#include "editor_session.h"

class QCheckBox;
class QComboBox;

namespace quillo::views {

class InspectorSlider;

// The drawn cursor of the whole recording: shown or not, the theme standing in for the system
// arrow, its size, smoothing and hiding when idle. Changes go through updateCursorStyle.
// GUI thread only.
class CursorInspector : public QWidget {
    Q_OBJECT

public:
    CursorInspector(EditorSession& session, QWidget* parent = nullptr);

    void refresh();

private:
    template <class F>
    void change(F&& edit);

    EditorSession& m_session;
    QCheckBox* m_visible = nullptr;
    QComboBox* m_theme = nullptr;
    InspectorSlider* m_size = nullptr;
    InspectorSlider* m_smoothing = nullptr;
    QCheckBox* m_idle = nullptr;
};

}  // namespace quillo::views
