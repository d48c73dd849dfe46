#include "timeline_layout.h"

#include <algorithm>
#include <cmath>

namespace quillo::views {

namespace {

constexpr std::array<double, kTimelineRowCount> kRowHeights = {26, 46, 34, 24, 24, 24, 24, 26};

// The block of `spans` whose edge or body is under x, preferring edges.
std::optional<std::pair<size_t, HitPart>> spanAt(const TimelineLayout& layout,
                                                 const std::vector<TimeSpan>& spans, double x) {
    std::optional<std::pair<size_t, HitPart>> best;
    double bestDistance = TimelineLayout::kEdgeSlop + 1;
    for (size_t i = 0; i < spans.size(); ++i) {
        double left = layout.x(spans[i].start);
        double right = layout.x(spans[i].end);
        // Inside a narrow block the edges take at most a third each, so its body stays reachable.
        double inner = std::min(TimelineLayout::kEdgeSlop, (right - left) / 3);
        double toStart = x - left;
        double toEnd = right - x;
        if (toStart >= -TimelineLayout::kEdgeSlop && toStart <= inner &&
            std::abs(toStart) < bestDistance) {
            best = {{i, HitPart::StartEdge}};
            bestDistance = std::abs(toStart);
        }
        if (toEnd >= -TimelineLayout::kEdgeSlop && toEnd <= inner &&
            std::abs(toEnd) < bestDistance) {
            best = {{i, HitPart::EndEdge}};
            bestDistance = std::abs(toEnd);
        }
    }
    if (best) {
        return best;
    }
    // Later blocks are painted on top (redactions may overlap), so they win.
    for (size_t i = spans.size(); i-- > 0;) {
        if (x >= layout.x(spans[i].start) && x < layout.x(spans[i].end)) {
            return {{i, HitPart::Body}};
        }
    }
    return std::nullopt;
}

std::optional<size_t> markerAt(const TimelineLayout& layout, const TimelineItems& items, double x) {
    for (size_t i = items.markers.size(); i-- > 0;) {
        double pole = layout.x(items.markers[i].start);
        double label = i < items.markerLabelWidths.size() ? items.markerLabelWidths[i] : 0;
        if (x >= pole - TimelineLayout::kMarkerSlop && x <= pole + std::max(label, 0.0) + 2) {
            return i;
        }
    }
    return std::nullopt;
}

}  // namespace

const std::vector<TimeSpan>* TimelineItems::row(TimelineRow row) const {
    switch (row) {
        case TimelineRow::Zooms:
            return &zooms;
        case TimelineRow::Segments:
            return &segments;
        case TimelineRow::Redactions:
            return &redactions;
        case TimelineRow::Captions:
            return &captions;
        case TimelineRow::Markers:
            return &markers;
        default:
            return nullptr;
    }
}

std::array<QRectF, kTimelineRowCount> TimelineLayout::stackRows(double width) {
    std::array<QRectF, kTimelineRowCount> rows;
    double y = 0;
    for (size_t i = 0; i < kTimelineRowCount; ++i) {
        rows[i] = QRectF(0, y, width, kRowHeights[i]);
        y += kRowHeights[i] + (i == 0 ? 0 : kRowGap);
    }
    return rows;
}

double TimelineLayout::rowsHeight() {
    auto rows = stackRows(0);
    return rows.back().bottom() + kRowGap;
}

double TimelineLayout::fitScale() const {
    return duration > 0 && trackWidth() > 0 ? trackWidth() / duration : 1;
}

double TimelineLayout::maxScale(double fps) const {
    return std::max(fitScale(), kMaxPixelsPerFrame * (fps > 0 ? fps : 30));
}

double TimelineLayout::maxScroll() const { return std::max(0.0, duration - visibleSeconds()); }

std::optional<TimelineRow> TimelineLayout::rowAt(double y) const {
    for (size_t i = 0; i < kTimelineRowCount; ++i) {
        // The gaps belong to the row above, so no point between rows falls through.
        double bottom = i + 1 < kTimelineRowCount ? rows[i + 1].top() : rows[i].bottom();
        if (y >= rows[i].top() && y < bottom) {
            return static_cast<TimelineRow>(i);
        }
    }
    return std::nullopt;
}

TimelineHit hitTest(const TimelineLayout& layout, const TimelineItems& items, QPointF point) {
    using What = TimelineHit::What;
    auto row = layout.rowAt(point.y());
    if (!row || point.x() < layout.trackLeft() || point.x() >= layout.width) {
        return {};
    }
    double x = point.x();
    if (*row == TimelineRow::Frames || *row == TimelineRow::Sound) {
        double toStart = std::abs(x - layout.x(items.trimStart));
        double toEnd = std::abs(x - layout.x(items.trimEnd));
        if (std::min(toStart, toEnd) <= TimelineLayout::kEdgeSlop + 1) {
            return {toStart <= toEnd ? What::TrimStart : What::TrimEnd, *row};
        }
        return {What::Track, *row};
    }
    if (*row == TimelineRow::Ruler) {
        return {What::Ruler, *row};
    }
    if (*row == TimelineRow::Markers) {
        if (auto marker = markerAt(layout, items, x)) {
            return {What::Item, *row, *marker, HitPart::Body};
        }
        return {What::Track, *row};
    }
    if (const auto* spans = items.row(*row)) {
        if (auto found = spanAt(layout, *spans, x)) {
            return {What::Item, *row, found->first, found->second};
        }
    }
    return {What::Track, *row};
}

std::vector<FilmTile> filmTiles(const TimelineLayout& layout, double tileWidth) {
    std::vector<FilmTile> tiles;
    if (tileWidth <= 0 || layout.duration <= 0 || layout.trackWidth() <= 0) {
        return tiles;
    }
    double tileSeconds = tileWidth / layout.pixelsPerSecond;
    const QRectF& row = layout.rect(TimelineRow::Frames);
    double end = std::min(layout.duration, layout.scroll + layout.visibleSeconds());
    auto first = static_cast<int64_t>(std::floor(layout.scroll / tileSeconds));
    for (int64_t k = std::max<int64_t>(first, 0); k * tileSeconds < end; ++k) {
        double start = k * tileSeconds;
        // The middle of the tile's time, but never past the recording's last frame.
        double t = std::min(start + tileSeconds / 2, std::max(0.0, layout.duration - 0.001));
        double right = std::min(layout.x(start + tileSeconds), layout.x(layout.duration));
        tiles.push_back(
            {t, QRectF(QPointF(layout.x(start), row.top()), QPointF(right, row.bottom()))});
    }
    return tiles;
}

TimeSpan dragSpan(TimeSpan original, HitPart part, double delta, const DragRoom& room) {
    TimeSpan span = original;
    switch (part) {
        case HitPart::Body: {
            double lo = std::min(room.lo, original.start);
            double hi = std::max(room.hi, original.end);
            double shift = std::clamp(delta, lo - original.start, hi - original.end);
            span.start += shift;
            span.end += shift;
            break;
        }
        case HitPart::StartEdge: {
            double lo = std::min(room.lo, original.start);
            double hi = std::max(original.end - room.minimum, original.start);
            span.start = std::clamp(original.start + delta, lo, hi);
            break;
        }
        case HitPart::EndEdge: {
            double lo = std::min(original.start + room.minimum, original.end);
            double hi = std::max(room.hi, original.end);
            span.end = std::clamp(original.end + delta, lo, hi);
            break;
        }
    }
    return span;
}

std::pair<double, double> dragTrim(double trimStart, double trimEnd, bool startHandle, double t,
                                   double duration) {
    if (startHandle) {
        return {std::min(std::max(t, 0.0), trimEnd - 0.1), trimEnd};
    }
    return {trimStart, std::max(std::min(t, duration), trimStart + 0.1)};
}

std::pair<double, double> zoomAround(const TimelineLayout& layout, double factor, double anchorX,
                                     double fps) {
    double scale =
        std::clamp(layout.pixelsPerSecond * factor, layout.fitScale(), layout.maxScale(fps));
    double anchor = layout.time(anchorX);
    TimelineLayout next = layout;
    next.pixelsPerSecond = scale;
    double scroll = anchor - (anchorX - layout.trackLeft()) / scale;
    return {scale, std::clamp(scroll, 0.0, next.maxScroll())};
}

double scrollToShow(const TimelineLayout& layout, double t, double margin) {
    double left = layout.scroll;
    double right = layout.scroll + layout.visibleSeconds();
    double marginSeconds = std::min(margin / layout.pixelsPerSecond, layout.visibleSeconds() / 4);
    if (t >= left && t <= right - marginSeconds) {
        return layout.scroll;
    }
    // Page so the time lands a little in from the left edge, as players do.
    double scroll = t - marginSeconds;
    return std::clamp(scroll, 0.0, layout.maxScroll());
}

double rulerStep(double pixelsPerSecond, double minPixels) {
    static constexpr double kSteps[] = {0.1, 0.2, 0.5, 1,   2,   5,    10,  15,
                                        30,  60,  120, 300, 600, 1800, 3600};
    for (double step : kSteps) {
        if (step * pixelsPerSecond >= minPixels) {
            return step;
        }
    }
    return 7200;
}

}  // namespace quillo::views
