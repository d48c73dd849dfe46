#include "library_view.h"

namespace quillo::views {

LibraryView::LibraryView(app::StudioModel&, QWidget* parent) : QWidget(parent) {}

}  // namespace quillo::views
