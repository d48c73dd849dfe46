#pragma once

#include <QDialog>

#include "app/preferences.h"

namespace quillo::views {

// The settings window.
class SettingsDialog : public QDialog {
    Q_OBJECT

public:
    SettingsDialog(app::Preferences& preferences, QWidget* parent = nullptr);
};

}  // namespace quillo::views
