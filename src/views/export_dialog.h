#pragma once

#include <QDialog>

#include "editor_session.h"

namespace quillo::views {

// The export sheet of one open recording.
class ExportDialog : public QDialog {
    Q_OBJECT

public:
    ExportDialog(EditorSession& session, QWidget* parent = nullptr);
};

}  // namespace quillo::views
