#pragma once

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/enum_table.h"
#include "base/geometry.h"
#include "base/result.h"

namespace quillo::project {

// The recipe's tolerances: how far past the recording's end a time may lie, and the slack of
// time look-ups.
inline constexpr double kEndTolerance = 0.05;
inline constexpr double kTimeSlack = 0.000001;

// Items with a `start` (zooms, segments, redactions, events) in start order; equal starts keep
// their order.
template <class T>
void sortByStart(std::vector<T>& items) {
    std::stable_sort(items.begin(), items.end(),
                     [](const T& a, const T& b) { return a.start < b.start; });
}
template <class T>
std::vector<T> sortedByStart(std::vector<T> items) {
    sortByStart(items);
    return items;
}

// One zoom, in recording seconds; x and y are the focus centre as unit fractions (top left).
struct ZoomSection {
    double start = 0;
    double end = 0;
    double scale = 2;
    double x = 0.5;
    double y = 0.5;
    std::optional<bool> follow;  // true: the focus tracks the cursor or the caret

    // The magnification in force at recording time t: eases in over the first half second
    // (or the first half of a shorter zoom), holds, and eases out again.
    double amount(double t) const;
    // The visible unit rectangle at magnification `scale` (the zoom's own when none), slid to
    // stay inside the picture.
    Rect viewport(std::optional<double> magnification = std::nullopt) const;

    bool operator==(const ZoomSection&) const = default;
};

// A cut (speed 0) or a speed-up in recording seconds; also a kept piece of the time map.
struct TimeSegment {
    double start = 0;
    double end = 0;
    double speed = 1;

    bool isCut() const { return speed == 0; }
    double length() const { return end - start; }
    bool operator==(const TimeSegment&) const = default;
};

enum class AspectRatio { Original, Wide16x9, Classic4x3, Square1x1, Portrait9x16 };

// "Auto" for Original, else the raw value.
std::string_view aspectLabel(AspectRatio aspect);
// Width over height; none for Original.
std::optional<double> aspectValue(AspectRatio aspect);
// The canvas in pixels for a recording of `source` size: grows around the recording to the
// ratio, sides rounded to even numbers. Original (or a non-positive size) returns `source`.
Size outputSize(AspectRatio aspect, Size source);

struct Colour {
    double red = 0;
    double green = 0;
    double blue = 0;
    bool operator==(const Colour&) const = default;
};

// One row of the fixed backdrop table: a vertical gradient from `top` to `bottom`.
struct Backdrop {
    std::string_view name;
    Colour top;
    Colour bottom;
};

inline constexpr std::array<Backdrop, 6> kBackgrounds = {{
    {"Violet", {0.49, 0.36, 0.98}, {0.93, 0.36, 0.62}},
    {"Ocean", {0.13, 0.55, 0.95}, {0.19, 0.84, 0.75}},
    {"Sunset", {0.99, 0.62, 0.30}, {0.93, 0.29, 0.40}},
    {"Forest", {0.15, 0.55, 0.38}, {0.64, 0.85, 0.40}},
    {"Graphite", {0.24, 0.25, 0.30}, {0.08, 0.08, 0.10}},
    {"Paper", {0.96, 0.95, 0.93}, {0.86, 0.85, 0.83}},
}};

// The backdrop behind the picture.
struct FrameStyle {
    int64_t background = 0;      // index into kBackgrounds
    double padding = 0.08;       // fraction of the canvas's short edge, 0–0.25
    double cornerRadius = 0.02;  // 0–0.1
    bool shadow = true;
    bool operator==(const FrameStyle&) const = default;
};

// The look of the separately recorded cursor.
struct CursorStyle {
    bool visible = true;
    double size = 1.4;
    double smoothing = 0.35;
    bool hideWhenIdle = false;
    std::optional<std::string> theme;  // absent: the recorded system cursor
    bool operator==(const CursorStyle&) const = default;
};

// Crop-to-fill canvas for portrait and square export presets.
struct Reframe {
    double width = 0;
    double height = 0;
    bool follow = true;
    bool operator==(const Reframe&) const = default;
};

enum class CaptionPosition { Bottom, Top };
enum class CaptionBackground { Pill, None };

struct CaptionStyle {
    bool visible = true;
    double size = 1.0;
    CaptionPosition position = CaptionPosition::Bottom;
    CaptionBackground background = CaptionBackground::Pill;
    int64_t maxCharacters = 36;
    bool highlightWords = false;

    // The style with `size` within 0.5–2.5 and `maxCharacters` within 12–80; drawing and
    // subtitles always use this.
    CaptionStyle clamped() const;
    bool operator==(const CaptionStyle&) const = default;
};

enum class CameraLayout {
    TopLeft,
    TopRight,
    BottomLeft,
    BottomRight,
    SideLeft,
    SideRight,
    CameraOnly,
    ScreenOnly
};
enum class CameraShape { Circle, Rounded };

struct CameraStyle {
    CameraLayout layout = CameraLayout::BottomRight;
    CameraShape shape = CameraShape::Circle;
    double size = 0.28;
    double cornerRadius = 0.22;
    bool mirror = true;
    bool shadow = true;

    // Where the screen picture and the camera go on a canvas rectangle, for a screen picture of
    // `screen` pixels and the backdrop's padding fraction; either may be absent (camera-only,
    // screen-only). Corner bubbles keep a margin from the padded content area's edges.
    struct Frames {
        std::optional<Rect> screen;
        std::optional<Rect> camera;
    };
    Frames frames(const Rect& canvas, Size screen, double padding) const;
    // The corner radius of camera rectangle `camera`: a circle's or the rounded share.
    double radius(const Rect& camera) const;
    bool isCorner() const;
    bool isSide() const;

    bool operator==(const CameraStyle&) const = default;
};

enum class RedactionStyle { Blur, Pixelate, Box };

// A hidden area: unit rectangle (left, top, width, height) over recording seconds start–end.
struct Redaction {
    double start = 0;
    double end = 0;
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    RedactionStyle style = RedactionStyle::Blur;
    double strength = 0.6;
    std::optional<std::vector<double>> color;  // red, green, blue 0–1; absent: black
    std::optional<std::string> label;

    // Finite numbers, 0 ≤ start < end, a non-empty area inside the frame (with 0.0001 of
    // slack), strength 0–1, and a colour of three components 0–1 when given.
    bool isValid() const;
    bool operator==(const Redaction&) const = default;
};

// The edit recipe of one recording: everything the editor changes, as one validated value.
// Times are recording seconds; absent optionals are left out of the JSON.
struct Edits {
    int64_t version = 1;
    double trimStart = 0;
    double trimEnd = 0;
    std::vector<ZoomSection> zooms;
    std::optional<FrameStyle> frame;
    std::optional<std::vector<TimeSegment>> segments;
    std::optional<AspectRatio> aspect;
    std::optional<bool> clickHighlights;
    std::optional<CursorStyle> cursor;
    std::optional<Reframe> reframe;
    std::optional<CaptionStyle> captions;
    std::optional<CameraStyle> camera;
    std::optional<std::vector<Redaction>> redactions;

    // The recipe of an unedited recording: the whole of it, nothing else.
    static Edits fresh(double duration);

    // The segments, or the redactions, with an absent list read as empty.
    const std::vector<TimeSegment>& timing() const;
    const std::vector<Redaction>& redactionList() const;

    // Checks the recipe against the recording's duration in seconds; the first failing rule
    // gives its message.
    Result<void> validate(double duration) const;

    // Whether playback and export must run through the frame compositor.
    bool needsComposition() const;

    // Time map (time_map.cpp): the kept pieces in order, the finished video's length, and
    // recording time to output time.
    std::vector<TimeSegment> pieces() const;
    double outputDuration() const;
    double outputTime(double t) const;

    bool operator==(const Edits&) const = default;
};

}  // namespace quillo::project

namespace quillo {

template <>
struct EnumTable<project::AspectRatio> {
    using E = project::AspectRatio;
    static constexpr std::pair<E, std::string_view> cases[] = {
        {E::Original, "original"}, {E::Wide16x9, "16:9"},     {E::Classic4x3, "4:3"},
        {E::Square1x1, "1:1"},     {E::Portrait9x16, "9:16"},
    };
};

template <>
struct EnumTable<project::CaptionPosition> {
    using E = project::CaptionPosition;
    static constexpr std::pair<E, std::string_view> cases[] = {{E::Bottom, "bottom"},
                                                               {E::Top, "top"}};
};

template <>
struct EnumTable<project::CaptionBackground> {
    using E = project::CaptionBackground;
    static constexpr std::pair<E, std::string_view> cases[] = {{E::Pill, "pill"},
                                                               {E::None, "none"}};
};

template <>
struct EnumTable<project::CameraLayout> {
    using E = project::CameraLayout;
    static constexpr std::pair<E, std::string_view> cases[] = {
        {E::TopLeft, "top-left"},       {E::TopRight, "top-right"},
        {E::BottomLeft, "bottom-left"}, {E::BottomRight, "bottom-right"},
        {E::SideLeft, "side-left"},     {E::SideRight, "side-right"},
        {E::CameraOnly, "camera-only"}, {E::ScreenOnly, "screen-only"},
    };
};

template <>
struct EnumTable<project::CameraShape> {
    using E = project::CameraShape;
    static constexpr std::pair<E, std::string_view> cases[] = {{E::Circle, "circle"},
                                                               {E::Rounded, "rounded"}};
};

template <>
struct EnumTable<project::RedactionStyle> {
    using E = project::RedactionStyle;
    static constexpr std::pair<E, std::string_view> cases[] = {
        {E::Blur, "blur"}, {E::Pixelate, "pixelate"}, {E::Box, "box"}};
};

}  // namespace quillo
