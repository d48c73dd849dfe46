#pragma once

#include <array>

#include <QWidget>

#include "editor_session.h"

class QLabel;

namespace quillo::views {

class RedactionInspector;
class SegmentInspector;
class ZoomInspector;

// The inspectors beside the preview: at the top the selected zoom, cut or speed-up, or redaction
// (a hint when none is selected), then the sections for the whole recording: style, cursor,
// camera, captions, dead time and sensitive info, each collapsible. Every change goes through the
// session's model; the model's changes (also an agent's) refresh the controls. GUI thread only.
class InspectorPanel : public QWidget {
    Q_OBJECT

public:
    InspectorPanel(EditorSession& session, QWidget* parent = nullptr);

private:
    // Shows the inspector of what is selected now.
    void showSelection();
    std::array<QWidget*, 4> pages() const;
    void showPage(QWidget* shown);

    EditorSession& m_session;
    QLabel* m_title = nullptr;
    QLabel* m_hint = nullptr;
    ZoomInspector* m_zoom = nullptr;
    SegmentInspector* m_segment = nullptr;
    RedactionInspector* m_redaction = nullptr;
};

}  // namespace quillo::views
