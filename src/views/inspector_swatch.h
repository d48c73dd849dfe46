#pragma once

#include <QAbstractButton>

#include "project/edits.h"

namespace quillo::views {

// One backdrop gradient as a checkable round-cornered chip, named after the backdrop. Drawn from
// the backdrop table and the palette (ring in the highlight colour when chosen). GUI thread only.
class SwatchButton : public QAbstractButton {
    Q_OBJECT

public:
    SwatchButton(const project::Backdrop& backdrop, QWidget* parent = nullptr);

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    project::Backdrop m_backdrop;
};

}  // namespace quillo::views
