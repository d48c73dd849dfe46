#include "dead_time_inspector.h"

namespace quillo::views {

DeadTimeInspector::DeadTimeInspector(EditorSession&, QWidget* parent) : QWidget(parent) {}

}  // namespace quillo::views
