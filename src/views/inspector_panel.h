#pragma once

#include <QWidget>

#include "editor_session.h"

namespace quillo::views {

// The inspectors beside the preview.
class InspectorPanel : public QWidget {
    Q_OBJECT

public:
    InspectorPanel(EditorSession& session, QWidget* parent = nullptr);
};

}  // namespace quillo::views
