#include "timeline_widget.h"

namespace quillo::views {

TimelineWidget::TimelineWidget(EditorSession&, QWidget* parent) : QWidget(parent) {}

}  // namespace quillo::views
