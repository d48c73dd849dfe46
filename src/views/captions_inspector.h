#pragma once

#include <QWidget>

#include "editor_session.h"

namespace quillo::views {

// The inspector section for the captions of the recording: generate with progress, edit lines, style.
class CaptionsInspector : public QWidget {
    Q_OBJECT

public:
    CaptionsInspector(EditorSession& session, QWidget* parent = nullptr);
};

}  // namespace quillo::views
