#include "sensitive_inspector.h"

namespace quillo::views {

SensitiveInspector::SensitiveInspector(EditorSession&, QWidget* parent) : QWidget(parent) {}

}  // namespace quillo::views
