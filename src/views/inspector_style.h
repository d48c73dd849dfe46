#pragma once

#include <vector>

#include <QWidget>

#include "editor_session.h"

class QCheckBox;
class QComboBox;

namespace quillo::views {

class InspectorSlider;
class SwatchButton;

// The look of the whole recording: the backdrop (on or off, one of the six gradients, padding,
// corners, shadow), the canvas shape and click highlights. Changes go through setFrame,
// setAspect and commit. GUI thread only.
class StyleInspector : public QWidget {
    Q_OBJECT

public:
    StyleInspector(EditorSession& session, QWidget* parent = nullptr);

    void refresh();

private:
    // Commits `edit` applied to the current backdrop (or the remembered one when it is off,
    // which turns it on).
    template <class F>
    void changeFrame(F&& edit);

    EditorSession& m_session;
    // The backdrop to bring back when it is turned on again: the last one shown, at first the
    // user's default for new recordings.
    project::FrameStyle m_lastFrame;
    QCheckBox* m_backdrop = nullptr;
    std::vector<SwatchButton*> m_swatches;
    InspectorSlider* m_padding = nullptr;
    InspectorSlider* m_corners = nullptr;
    QCheckBox* m_shadow = nullptr;
    QComboBox* m_aspect = nullptr;
    QCheckBox* m_highlights = nullptr;
};

}  // namespace quillo::views
