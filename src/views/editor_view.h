#pragma once

#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include "editor_session.h"

namespace quillo::views {

class InspectorPanel;
class PreviewWidget;
class TimelineWidget;

// One editor tab: the preview with its transport bar, the inspectors beside it, the timeline
// below and the editor's status line. Playback and editing keys work wherever the focus is,
// unless a text field takes them.
class EditorView : public QWidget {
    Q_OBJECT

public:
    EditorView(app::StudioModel& studio, editor::EditorModel& model, QWidget* parent = nullptr);
    ~EditorView() override;

    EditorSession& session() { return *m_session; }
    PreviewWidget& preview() { return *m_preview; }
    TimelineWidget& timeline() { return *m_timeline; }
    // Opens the export sheet.
    void showExport();

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void refresh();
    void showTime();

    EditorSession* m_session;
    PreviewWidget* m_preview;
    TimelineWidget* m_timeline;
    InspectorPanel* m_inspector;
    QPushButton* m_play;
    QLabel* m_time;
    QLabel* m_status;
};

}  // namespace quillo::views
