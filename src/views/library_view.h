#pragma once

#include <QWidget>

#include "app/studio_model.h"

namespace quillo::views {

// The library page: the recordings as cards, newest first.
class LibraryView : public QWidget {
    Q_OBJECT

public:
    LibraryView(app::StudioModel& studio, QWidget* parent = nullptr);

signals:
    // Open this recording in a tab (double-click or Enter on a card).
    void openRequested(const QString& id);
};

}  // namespace quillo::views
