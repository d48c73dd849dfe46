#pragma once

#include <QWidget>

#include "editor_session.h"

namespace quillo::views {

// The inspector section for dead time: find, review the proposals, apply.
class DeadTimeInspector : public QWidget {
    Q_OBJECT

public:
    DeadTimeInspector(EditorSession& session, QWidget* parent = nullptr);
};

}  // namespace quillo::views
