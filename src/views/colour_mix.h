#pragma once

#include <QColor>

namespace quillo::views {

// `a` moved towards `b` by `amount` (0: a, 1: b), opaque.
inline QColor mix(const QColor& a, const QColor& b, qreal amount) {
    return QColor::fromRgbF(a.redF() + (b.redF() - a.redF()) * amount,
                            a.greenF() + (b.greenF() - a.greenF()) * amount,
                            a.blueF() + (b.blueF() - a.blueF()) * amount);
}

inline QColor withAlpha(QColor colour, int alpha) {
    colour.setAlpha(alpha);
    return colour;
}

}  // namespace quillo::views
