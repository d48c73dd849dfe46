#include "auto_zoom.h"

#include <algorithm>

namespace quillo::editor {

namespace {

constexpr double kLeadIn = 0.7;
constexpr double kHold = 1.5;
constexpr double kMinimumSpan = 2.0;
constexpr double kBurstGap = 2.5;
constexpr double kMergeGap = 0.4;
constexpr double kShortest = 0.6;

bool insideCut(double t, const std::vector<project::TimeSegment>& segments) {
    return std::any_of(segments.begin(), segments.end(), [t](const project::TimeSegment& s) {
        return s.isCut() && s.start <= t && t < s.end;
    });
}

}  // namespace

std::vector<project::ZoomSection> autoZooms(const project::CursorTrack& track, double rangeStart,
                                            double rangeEnd,
                                            const std::vector<project::TimeSegment>& segments,
                                            double scale) {
    std::vector<project::CursorSample> events;
    auto keep = [&](const project::CursorSample& e) {
        if (e.t >= rangeStart && e.t <= rangeEnd && e.x >= 0 && e.x <= 1 && e.y >= 0 && e.y <= 1 &&
            !insideCut(e.t, segments)) {
            events.push_back(e);
        }
    };
    std::for_each(track.clicks.begin(), track.clicks.end(), keep);
    if (track.typing) {
        std::for_each(track.typing->begin(), track.typing->end(), keep);
    }
    std::stable_sort(events.begin(), events.end(),
                     [](const auto& a, const auto& b) { return a.t < b.t; });

    // Bursts: each event closer than kBurstGap to the burst's latest event joins it.
    std::vector<std::vector<project::CursorSample>> bursts;
    for (const project::CursorSample& event : events) {
        if (bursts.empty() || !(event.t - bursts.back().back().t < kBurstGap)) {
            bursts.emplace_back();
        }
        bursts.back().push_back(event);
    }

    std::vector<project::ZoomSection> zooms;
    const bool follow = !track.samples.empty();
    for (const auto& burst : bursts) {
        double start = std::max(burst.front().t - kLeadIn, rangeStart);
        double end = std::min(std::max(burst.back().t + kHold, start + kMinimumSpan), rangeEnd);
        // Merging comes before the length check, so a short burst may still lengthen the zoom
        // before it.
        if (!zooms.empty() && start < zooms.back().end + kMergeGap) {
            zooms.back().end = std::max(zooms.back().end, end);
            continue;
        }
        if (end - start < kShortest) {
            continue;
        }
        double sumX = 0;
        double sumY = 0;
        for (const auto& e : burst) {
            sumX += e.x;
            sumY += e.y;
        }
        zooms.push_back({start, end, scale, sumX / static_cast<double>(burst.size()),
                         sumY / static_cast<double>(burst.size()), follow});
    }
    return zooms;
}

}  // namespace quillo::editor
