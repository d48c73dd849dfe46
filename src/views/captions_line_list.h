#pragma once

#include <QWidget>

#include "editor_session.h"

class QLabel;
class QPushButton;
class QTableView;

namespace quillo::views {

class CaptionLineModel;

// The recording's caption lines: start time in the finished video and editable text. Selecting
// a line moves the playhead to it and selects it across the editor; edits and deletions are
// saved to the captions file through the session. GUI thread only.
class CaptionLineList : public QWidget {
    Q_OBJECT

public:
    explicit CaptionLineList(EditorSession& session, QWidget* parent = nullptr);

    QTableView* table() const { return m_table; }

signals:
    // A save failed; `text` is the model's message.
    void failed(const QString& text);

private:
    void reload();
    void followSelection();
    void lineChosen(int row);
    bool saveText(int row, const QString& text);
    void deleteCurrent();

    EditorSession& m_session;
    CaptionLineModel* m_model = nullptr;
    QTableView* m_table = nullptr;
    QLabel* m_empty = nullptr;
    QPushButton* m_delete = nullptr;
    bool m_following = false;  // true while the list mirrors the session's selection
};

}  // namespace quillo::views
