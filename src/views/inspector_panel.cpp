#include "inspector_panel.h"

namespace quillo::views {

InspectorPanel::InspectorPanel(EditorSession&, QWidget* parent) : QWidget(parent) {}

}  // namespace quillo::views
