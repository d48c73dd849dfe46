#pragma once

#include <QWidget>

#include "editor_session.h"

namespace quillo::views {

// The timeline of one open recording.
class TimelineWidget : public QWidget {
    Q_OBJECT

public:
    TimelineWidget(EditorSession& session, QWidget* parent = nullptr);
};

}  // namespace quillo::views
