#include "export_dialog.h"

namespace quillo::views {

ExportDialog::ExportDialog(EditorSession&, QWidget* parent) : QDialog(parent) {}

}  // namespace quillo::views
