#pragma once

#include <functional>

#include <QWidget>

#include "editor_session.h"

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QSpinBox;

namespace quillo::views {

// How captions look in the finished video: shown or not, position, background, size, line
// length and word highlighting. Each change is one commit of the recipe's caption style (one
// undo step). GUI thread only.
class CaptionStyleForm : public QWidget {
    Q_OBJECT

public:
    explicit CaptionStyleForm(EditorSession& session, QWidget* parent = nullptr);

signals:
    // A commit was refused; `text` is the model's status.
    void failed(const QString& text);

private:
    void refresh();
    void change(const std::function<void(project::CaptionStyle&)>& edit);

    EditorSession& m_session;
    QCheckBox* m_visible = nullptr;
    QComboBox* m_position = nullptr;
    QComboBox* m_background = nullptr;
    QDoubleSpinBox* m_size = nullptr;
    QSpinBox* m_lineLength = nullptr;
    QCheckBox* m_highlight = nullptr;
    bool m_refreshing = false;  // controls being set from the recipe commit nothing
};

}  // namespace quillo::views
