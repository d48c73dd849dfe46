#pragma once

#include <QString>

#include "project/edits.h"

class QFormLayout;
class QLabel;
class QPushButton;
class QWidget;

namespace quillo::views {

// The pieces the inspectors share, so every section lines up the same way.

// A form layout on `parent` with the inspector's spacing and labels on the left.
QFormLayout* inspectorForm(QWidget* parent);
// Adds a row whose label column has the same width in every section, so the controls line up.
void formRow(QFormLayout* form, const QString& label, QWidget* field);
// Lets the wheel scroll the inspector past `control` unless the control has the keyboard focus,
// so scrolling the panel never edits the recipe by accident.
void ignoreWheelUnlessFocused(QWidget* control);
// A read-only line for an item's time, found by `name`.
QLabel* timesLabel(const QString& name, QWidget* parent);
// The button that removes the selected item.
QPushButton* removeButton(const QString& text, QWidget* parent);
// "0:01.2 – 0:03.4 · 2.2 s": where recording seconds start–end fall in the finished video.
// A stretch that is cut away entirely reads "cut from the video".
QString finishedTimes(const project::Edits& edits, double start, double end);

}  // namespace quillo::views
