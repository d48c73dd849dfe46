#pragma once

#include <QWidget>

#include "editor_session.h"

class QComboBox;
class QLabel;
class QPushButton;

namespace quillo::views {

class InspectorSlider;

// The selected redaction: blur, pixelate or a solid box, its strength, the box's colour, its
// time and removal. Changes go through the session's RedactionEditor (update, then commit).
// GUI thread only.
class RedactionInspector : public QWidget {
    Q_OBJECT

public:
    RedactionInspector(EditorSession& session, QWidget* parent = nullptr);

    void refresh();

private:
    template <class F>
    void change(F&& edit);
    void chooseColour();

    EditorSession& m_session;
    QComboBox* m_style = nullptr;
    InspectorSlider* m_strength = nullptr;
    QPushButton* m_colour = nullptr;
    QLabel* m_times = nullptr;
    QPushButton* m_remove = nullptr;
};

}  // namespace quillo::views
