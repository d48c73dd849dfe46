#include "preview_widget.h"

namespace quillo::views {

PreviewWidget::PreviewWidget(EditorSession&, QWidget* parent) : QWidget(parent) {}

}  // namespace quillo::views
