#include "settings_dialog.h"

namespace quillo::views {

SettingsDialog::SettingsDialog(app::Preferences&, QWidget* parent) : QDialog(parent) {}

}  // namespace quillo::views
