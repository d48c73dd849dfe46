#pragma once

#include <QWidget>

#include "editor_session.h"

class QComboBox;
class QLabel;
class QPushButton;
class QRadioButton;

namespace quillo::views {

// The selected cut or speed-up: which of the two it is, the speed, its time and removal.
// Changes go through EditorModel::setSegment. GUI thread only.
class SegmentInspector : public QWidget {
    Q_OBJECT

public:
    SegmentInspector(EditorSession& session, QWidget* parent = nullptr);

    void refresh();

    // The speeds offered for a speed-up.
    static constexpr double kSpeeds[] = {1.25, 1.5, 2, 3, 4, 6, 8, 16};
    static constexpr double kDefaultSpeed = 2;

private:
    void setSpeed(double speed);
    void showSpeed(double speed);

    EditorSession& m_session;
    QRadioButton* m_cut = nullptr;
    QRadioButton* m_speedUp = nullptr;
    QComboBox* m_speed = nullptr;
    QLabel* m_times = nullptr;
    QPushButton* m_remove = nullptr;
};

}  // namespace quillo::views
