#pragma once

#include <QWidget>

#include "editor_session.h"

namespace quillo::views {

// The inspector section for sensitive info: scan with progress, accept proposals.
class SensitiveInspector : public QWidget {
    Q_OBJECT

public:
    SensitiveInspector(EditorSession& session, QWidget* parent = nullptr);
};

}  // namespace quillo::views
