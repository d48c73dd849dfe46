#pragma once

#include <memory>

#include <QWidget>

#include "base/cancel_token.h"
#include "editor_session.h"

class QLabel;
class QPushButton;
class QTableView;

namespace quillo {
class SerialQueue;
}
namespace quillo::redaction {
class SensitiveScanner;
}

namespace quillo::views {

class ProgressRow;
class SensitiveProposalModel;

// The inspector section for sensitive info: scan with progress, accept proposals. The scan runs
// on the section's own queue ("app.quillo.sensitive.scan"); its state and proposals live in the
// session's redaction tools, where the timeline and the preview see them. GUI thread only.
class SensitiveInspector : public QWidget {
    Q_OBJECT

public:
    SensitiveInspector(EditorSession& session, QWidget* parent = nullptr);
    ~SensitiveInspector() override;

    QTableView* table() const { return m_table; }

signals:
    // The proposals in the session's redaction tools changed (found, hidden or dismissed).
    void proposalsChanged();

private:
    void scan();
    void cancel();
    void scanned(int generation, Result<std::vector<project::Redaction>> proposals);
    void refresh();
    void hide(std::optional<size_t> index);
    void dismiss();

    EditorSession& m_session;
    QPushButton* m_scan = nullptr;
    ProgressRow* m_progress = nullptr;
    QWidget* m_results = nullptr;
    QLabel* m_found = nullptr;
    SensitiveProposalModel* m_model = nullptr;
    QTableView* m_table = nullptr;
    QPushButton* m_hideAll = nullptr;
    QPushButton* m_dismiss = nullptr;
    CancelToken m_cancel;
    int m_generation = 0;  // a scan that was cancelled carries an older number
    // Used on m_queue only; kept between scans, since making its engines takes a while.
    std::shared_ptr<redaction::SensitiveScanner> m_scanner;
    std::unique_ptr<SerialQueue> m_queue;  // last: joined first on destruction
};

}  // namespace quillo::views
