#include "inspector_fields.h"

#include <QEvent>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QWidget>

#include "base/clock.h"

namespace quillo::views {

namespace {

// Hands wheel events of an unfocused control to its parent (the scroll area).
class WheelGuard : public QObject {
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Wheel && !static_cast<QWidget*>(watched)->hasFocus()) {
            event->ignore();
            return true;
        }
        return false;
    }
};

// Wide enough for the longest label ("Background", "Smoothing") at the default font.
constexpr int kLabelWidth = 78;

}  // namespace

QFormLayout* inspectorForm(QWidget* parent) {
    auto* form = new QFormLayout(parent);
    form->setContentsMargins(0, 0, 0, 0);
    form->setHorizontalSpacing(12);
    form->setVerticalSpacing(8);
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->setRowWrapPolicy(QFormLayout::DontWrapRows);
    return form;
}

void formRow(QFormLayout* form, const QString& label, QWidget* field) {
    auto* text = new QLabel(label, form->parentWidget());
    text->setMinimumWidth(kLabelWidth);
    text->setBuddy(field);
    form->addRow(text, field);
}

void ignoreWheelUnlessFocused(QWidget* control) {
    control->setFocusPolicy(Qt::StrongFocus);
    control->installEventFilter(new WheelGuard(control));
}

QLabel* timesLabel(const QString& name, QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setAccessibleName(name);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    return label;
}

QPushButton* removeButton(const QString& text, QWidget* parent) {
    auto* button = new QPushButton(text, parent);
    button->setAccessibleName(text);
    button->setToolTip(QObject::tr("Remove it from the video (Delete)"));
    button->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    return button;
}

QString finishedTimes(const project::Edits& edits, double start, double end) {
    double from = edits.outputTime(start);
    double to = edits.outputTime(end);
    if (to - from < 0.001) {
        return QObject::tr("Cut from the video");
    }
    return QString::fromStdString(clock(from, true) + " – " + clock(to, true)) +
           QObject::tr(" · %1 s").arg(to - from, 0, 'f', 1);
}

}  // namespace quillo::views
