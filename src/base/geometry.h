#pragma once

namespace quillo {

// Plain geometry values. Units are the caller's: unit fractions of a frame (0–1, origin top
// left) in the recipe and cursor track, pixels elsewhere.
struct Point {
    double x = 0;
    double y = 0;
    bool operator==(const Point&) const = default;
};

struct Size {
    double width = 0;
    double height = 0;
    bool operator==(const Size&) const = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    bool operator==(const Rect&) const = default;
};

}  // namespace quillo
