#pragma once

#include <QWidget>

#include "editor_session.h"

namespace quillo::views {

// The finished picture of one open recording, still or playing.
class PreviewWidget : public QWidget {
    Q_OBJECT

public:
    PreviewWidget(EditorSession& session, QWidget* parent = nullptr);
};

}  // namespace quillo::views
