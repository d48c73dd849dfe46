#include "inspector_slider.h"

#include <cmath>

#include <QDoubleSpinBox>
#include <QHBoxLayout>
#include <QSignalBlocker>
#include <QSlider>

#include "inspector_fields.h"

namespace quillo::views {

InspectorSlider::InspectorSlider(const QString& name, double minimum, double maximum, double step,
                                 int decimals, const QString& suffix, QWidget* parent)
    : QWidget(parent), m_minimum(minimum), m_step(step) {
    m_slider = new QSlider(Qt::Horizontal, this);
    m_slider->setAccessibleName(name);
    m_slider->setRange(0, position(maximum));
    m_slider->setPageStep(std::max(1, m_slider->maximum() / 10));

    m_spin = new QDoubleSpinBox(this);
    m_spin->setAccessibleName(tr("%1 value").arg(name));
    m_spin->setRange(minimum, maximum);
    m_spin->setDecimals(decimals);
    m_spin->setSingleStep(step);
    m_spin->setSuffix(suffix);
    // Typing "2.5" must not commit "2" on the way.
    m_spin->setKeyboardTracking(false);
    m_spin->setMinimumWidth(76);
    m_spin->setAlignment(Qt::AlignRight | Qt::AlignVCenter);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    layout->addWidget(m_slider, 1);
    layout->addWidget(m_spin);
    setFocusProxy(m_slider);
    ignoreWheelUnlessFocused(m_slider);
    ignoreWheelUnlessFocused(m_spin);

    connect(m_slider, &QSlider::valueChanged, this, [this](int at) {
        QSignalBlocker blocker(m_spin);
        m_spin->setValue(valueAt(at));
        // A drag commits once, on release; keys and clicks on the groove commit at once.
        if (!m_slider->isSliderDown()) {
            emit committed(value());
        }
    });
    connect(m_slider, &QSlider::sliderReleased, this, [this] { emit committed(value()); });
    connect(m_spin, &QDoubleSpinBox::valueChanged, this, [this](double changed) {
        QSignalBlocker blocker(m_slider);
        m_slider->setValue(position(changed));
        emit committed(changed);
    });
}

double InspectorSlider::value() const { return m_spin->value(); }

void InspectorSlider::setValue(double value) {
    QSignalBlocker spinBlocker(m_spin);
    QSignalBlocker sliderBlocker(m_slider);
    m_spin->setValue(value);
    m_slider->setValue(position(value));
}

int InspectorSlider::position(double value) const {
    return static_cast<int>(std::lround((value - m_minimum) / m_step));
}

double InspectorSlider::valueAt(int position) const { return m_minimum + position * m_step; }

}  // namespace quillo::views
