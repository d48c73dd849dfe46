#pragma once

#include <QString>
#include <QWidget>

class QDoubleSpinBox;
class QSlider;

namespace quillo::views {

// A number edited with a slider and a spin box side by side, in display units (× or %).
// `committed` fires once per change the user finishes: when a slider drag is released, on each
// keyboard step, and when a typed value is confirmed; setValue() never fires it, so the model's
// changes can be shown without echoing back. GUI thread only.
class InspectorSlider : public QWidget {
    Q_OBJECT

public:
    // `name` becomes the accessible name of both controls ("Zoom scale", "Zoom scale value").
    InspectorSlider(const QString& name, double minimum, double maximum, double step, int decimals,
                    const QString& suffix, QWidget* parent = nullptr);

    double value() const;
    void setValue(double value);

    QSlider* slider() const { return m_slider; }
    QDoubleSpinBox* spinBox() const { return m_spin; }

signals:
    void committed(double value);

private:
    int position(double value) const;
    double valueAt(int position) const;

    double m_minimum;
    double m_step;
    QSlider* m_slider = nullptr;
    QDoubleSpinBox* m_spin = nullptr;
};

}  // namespace quillo::views
