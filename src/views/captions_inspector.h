#pragma once

#include <QWidget>

#include "editor_session.h"

class QLabel;
class QPushButton;
class QTimer;

namespace quillo::views {

class CaptionLineList;
class CaptionStyleForm;
class ProgressRow;

// The inspector section for the captions of the recording: generate with progress, edit lines,
// style. Transcriptions run through the studio's caption jobs, so one started by an agent or
// after recording shows here too. GUI thread only.
class CaptionsInspector : public QWidget {
    Q_OBJECT

public:
    CaptionsInspector(EditorSession& session, QWidget* parent = nullptr);

    CaptionLineList* lines() const { return m_lines; }

private:
    void generate();
    void stop();
    // Follows the recording's job: running or not, and what the last one ended with.
    void pollJob();
    void showProgress(const QString& status, std::optional<double> fraction);
    void finished(const Result<captions::CaptionTrack>& track);
    void showError(const QString& text);

    EditorSession& m_session;
    QLabel* m_language = nullptr;
    QPushButton* m_generate = nullptr;
    ProgressRow* m_progress = nullptr;
    CaptionLineList* m_lines = nullptr;
    CaptionStyleForm* m_style = nullptr;
    QTimer* m_poll = nullptr;
    bool m_ownJob = false;      // the running job was started here and reports to us
    bool m_jobRunning = false;  // as last seen by pollJob
};

}  // namespace quillo::views
