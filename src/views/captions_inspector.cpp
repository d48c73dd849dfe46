#include "captions_inspector.h"

namespace quillo::views {

CaptionsInspector::CaptionsInspector(EditorSession&, QWidget* parent) : QWidget(parent) {}

}  // namespace quillo::views
