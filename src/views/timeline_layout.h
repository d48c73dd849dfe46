#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include <QPointF>
#include <QRectF>

namespace quillo::views {

// The timeline's geometry without painting: which row lies where, recording seconds ↔ x, what
// lies under a point and how far a drag may take a block. Sizes are device-independent pixels;
// times are recording seconds.

enum class TimelineRow { Ruler, Frames, Sound, Zooms, Segments, Redactions, Captions, Markers };
inline constexpr size_t kTimelineRowCount = 8;

// A block's time span (recording seconds). Markers have start == end.
struct TimeSpan {
    double start = 0;
    double end = 0;
    double length() const { return end - start; }
    bool operator==(const TimeSpan&) const = default;
};

// The blocks of the rows that have blocks, in the recipe's (or file's) order. Marker flags
// carry the width of their label so a click on the label hits the marker.
struct TimelineItems {
    std::vector<TimeSpan> zooms;
    std::vector<TimeSpan> segments;
    std::vector<TimeSpan> redactions;
    std::vector<TimeSpan> captions;
    std::vector<TimeSpan> markers;
    std::vector<double> markerLabelWidths;  // pixels, one per marker
    double trimStart = 0;
    double trimEnd = 0;

    // The blocks of `row`; none for the ruler, filmstrip and sound.
    const std::vector<TimeSpan>* row(TimelineRow row) const;
    std::vector<TimeSpan>* row(TimelineRow which) {
        return const_cast<std::vector<TimeSpan>*>(std::as_const(*this).row(which));
    }
};

struct TimelineLayout {
    static constexpr double kLabelWidth = 110;
    static constexpr double kRightPadding = 14;  // keeps the end's trim handle off the edge
    static constexpr double kRowGap = 3;
    static constexpr double kEdgeSlop = 5;  // pixels either side of a block's edge
    static constexpr double kMarkerSlop = 6;
    static constexpr double kMaxPixelsPerFrame = 12;

    double width = 0;                            // the widget
    double duration = 0;                         // the recording
    double pixelsPerSecond = 1;                  // current scale
    double scroll = 0;                           // recording seconds at the left edge of the tracks
    std::array<QRectF, kTimelineRowCount> rows;  // whole rows, label column included

    // Rows stacked from the top with their standard heights; `width` of the widget.
    static std::array<QRectF, kTimelineRowCount> stackRows(double width);
    // Total height of the stacked rows.
    static double rowsHeight();

    const QRectF& rect(TimelineRow row) const { return rows[static_cast<size_t>(row)]; }
    double trackLeft() const { return kLabelWidth; }
    double trackWidth() const { return std::max(0.0, width - kLabelWidth - kRightPadding); }
    double x(double t) const { return trackLeft() + (t - scroll) * pixelsPerSecond; }
    double time(double x) const { return scroll + (x - trackLeft()) / pixelsPerSecond; }
    double visibleSeconds() const { return trackWidth() / pixelsPerSecond; }
    // The scale that shows the whole recording, and the largest one for a frame rate.
    double fitScale() const;
    double maxScale(double fps) const;
    double maxScroll() const;
    std::optional<TimelineRow> rowAt(double y) const;
};

// The part of a block under a point.
enum class HitPart { Body, StartEdge, EndEdge };

struct TimelineHit {
    enum class What { Nothing, Ruler, Track, Item, TrimStart, TrimEnd };
    What what = What::Nothing;
    TimelineRow row = TimelineRow::Ruler;
    size_t index = 0;
    HitPart part = HitPart::Body;
    bool operator==(const TimelineHit&) const = default;
};

// What lies at `point`: a trim handle (within the filmstrip and sound rows), an edge or the body
// of a block (edges win within kEdgeSlop, but never take more than a third of a narrow block),
// the ruler, an empty part of a row, or nothing (label column, below the rows).
TimelineHit hitTest(const TimelineLayout& layout, const TimelineItems& items, QPointF point);

// One picture of the filmstrip: the recording time it shows and where it goes. Tiles sit on a
// fixed grid of `tileWidth` pixels from time 0, so scrolling does not make them shimmer.
struct FilmTile {
    double time = 0;
    QRectF rect;
};
std::vector<FilmTile> filmTiles(const TimelineLayout& layout, double tileWidth);

// --- drag rules

// The range a block may use and the length it keeps at least.
struct DragRoom {
    double lo = 0;
    double hi = 0;
    double minimum = 0;
};

// `original` dragged by `delta` seconds at `part`: moving keeps the length and stops at the
// room's ends; an edge stops at the room's end and at `minimum` from the other edge. A block
// already outside its room or shorter than its minimum is not made worse.
TimeSpan dragSpan(TimeSpan original, HitPart part, double delta, const DragRoom& room);

// The trim after dragging one of its handles to `t`, by the model's rule: at least 0.1 s kept,
// within 0…duration.
std::pair<double, double> dragTrim(double trimStart, double trimEnd, bool startHandle, double t,
                                   double duration);

// --- scale and scroll

// The scale `factor` times `layout`'s, clamped to fit…max, with the scroll moved so that the
// time under `anchorX` stays under it. Returns {pixelsPerSecond, scroll}.
std::pair<double, double> zoomAround(const TimelineLayout& layout, double factor, double anchorX,
                                     double fps);
// A scroll that shows time t, paging when it has left the view (or is within `margin` pixels of
// its right edge); unchanged when t is well inside.
double scrollToShow(const TimelineLayout& layout, double t, double margin);

// The ruler's spacing in seconds of the finished video: the smallest "nice" step whose ticks
// are at least `minPixels` apart at `pixelsPerSecond`.
double rulerStep(double pixelsPerSecond, double minPixels);

}  // namespace quillo::views
