#pragma once

#include <memory>

#include <QWidget>

#include "base/cancel_token.h"
#include "editor/dead_time.h"
#include "editor/dead_time_options.h"
#include "editor_session.h"

class QComboBox;
class QLabel;
class QPushButton;
class QTableView;

namespace quillo {
class SerialQueue;
}
namespace quillo::editor {
class DeadTimeRemover;
}

namespace quillo::views {

class DeadTimeProposalModel;
class ProgressRow;

// The inspector section for dead time: find, review the proposals, apply. The recording is
// analysed once on the section's own queue ("app.quillo.deadtime.find"); the proposals follow
// the options and the recipe from then on, and Apply adds them as one undoable edit. GUI thread
// only.
class DeadTimeInspector : public QWidget {
    Q_OBJECT

public:
    DeadTimeInspector(EditorSession& session, QWidget* parent = nullptr);
    ~DeadTimeInspector() override;

    // The stretches listed now (recording seconds), for views that mark them on the timeline.
    const std::vector<editor::dead_time::Segment>& proposals() const;
    editor::DeadTimeOptions options() const;

signals:
    // The listed proposals changed (found, re-listed for new options, applied or dismissed).
    void proposalsChanged();

private:
    void publishProposals();
    void find();
    void cancel();
    void analysed(int generation, Result<editor::ActivityTimeline> timeline, double start,
                  double end);
    void showProposals();
    void apply();
    void dismiss();
    void optionsChanged();

    EditorSession& m_session;
    std::unique_ptr<editor::DeadTimeRemover> m_remover;
    QComboBox* m_length = nullptr;
    QComboBox* m_action = nullptr;
    QComboBox* m_speed = nullptr;
    QLabel* m_rule = nullptr;
    QPushButton* m_find = nullptr;
    ProgressRow* m_progress = nullptr;
    QWidget* m_results = nullptr;
    QLabel* m_found = nullptr;
    DeadTimeProposalModel* m_model = nullptr;
    QTableView* m_table = nullptr;
    QPushButton* m_apply = nullptr;
    QPushButton* m_dismiss = nullptr;
    bool m_listing = false;  // proposals are shown until applied or dismissed
    CancelToken m_cancel;
    int m_generation = 0;                  // an analysis that was cancelled carries an older number
    std::unique_ptr<SerialQueue> m_queue;  // last: joined first on destruction
};

}  // namespace quillo::views
