#include "cursor_motion.h"

#include <algorithm>
#include <cmath>

namespace quillo::render {

using project::CursorSample;
using project::CursorTrack;

namespace {

constexpr double kIdleDelay = 1.5;
constexpr double kIdleFade = 0.4;
// Pointer movement below this (unit distance) counts as resting: sensor jitter.
constexpr double kRestDistance = 0.001;
constexpr double kCaretAge = 1.5;
constexpr double kCaretDrift = 0.02;
constexpr double kClickWindow = 0.4;
constexpr double kRawWindow = 0.01;

double distance(Point a, Point b) { return std::hypot(a.x - b.x, a.y - b.y); }

// The last entry of a time-ordered list at or before t.
const CursorSample* lastAtOrBefore(const std::vector<CursorSample>& list, double t) {
    auto it = std::upper_bound(list.begin(), list.end(), t,
                               [](double time, const CursorSample& s) { return time < s.t; });
    return it == list.begin() ? nullptr : &*std::prev(it);
}

// Seconds from t to the nearest click, or infinity.
double nearestClick(const CursorTrack& track, double t) {
    auto it = std::lower_bound(track.clicks.begin(), track.clicks.end(), t,
                               [](const CursorSample& s, double time) { return s.t < time; });
    double best = INFINITY;
    if (it != track.clicks.end()) {
        best = it->t - t;
    }
    if (it != track.clicks.begin()) {
        best = std::min(best, t - std::prev(it)->t);
    }
    return best;
}

}  // namespace

std::optional<Point> glide(const CursorTrack& track, double t, double smoothing) {
    return track.smoothed(t, std::max(smoothing, 0.0));
}

double idleOpacity(const CursorTrack& track, double t) {
    auto here = track.position(t);
    if (!here) {
        return 1;
    }
    // The last moment of activity: a click, or the pointer being elsewhere than now.
    double active = -INFINITY;
    if (const CursorSample* click = lastAtOrBefore(track.clicks, t)) {
        active = click->t;
    }
    auto it = std::upper_bound(track.samples.begin(), track.samples.end(), t,
                               [](double time, const CursorSample& s) { return time < s.t; });
    if (it != track.samples.end() && it != track.samples.begin() &&
        distance(Point{it->x, it->y}, *here) > kRestDistance) {
        return 1;  // moving towards the next sample
    }
    // Walk back at most as far as the fade reaches.
    while (it != track.samples.begin()) {
        --it;
        if (it->t < t - kIdleDelay - kIdleFade || it->t <= active) {
            break;
        }
        if (distance(Point{it->x, it->y}, *here) > kRestDistance) {
            active = std::max(active, it->t);
            break;
        }
    }
    if (it == track.samples.begin() && active == -INFINITY && !track.samples.empty() &&
        track.samples.front().t > t - kIdleDelay - kIdleFade) {
        active = track.samples.front().t;  // the recording has barely begun
    }
    double rest = t - active;
    return std::clamp(1 - (rest - kIdleDelay) / kIdleFade, 0.0, 1.0);
}

std::optional<Point> focus(const CursorTrack& track, double t, double smoothing) {
    auto pointer = track.position(t);
    if (!pointer) {
        return std::nullopt;
    }
    if (track.typing) {
        if (const CursorSample* caret = lastAtOrBefore(*track.typing, t)) {
            auto then = track.position(caret->t);
            if (t - caret->t < kCaretAge && then && distance(*then, *pointer) < kCaretDrift) {
                return Point{caret->x, caret->y};
            }
        }
    }
    double half = std::max(smoothing, 0.0);
    double click = nearestClick(track, t);
    if (click < kClickWindow) {
        half *= click / kClickWindow;
    }
    if (half <= kRawWindow) {
        return pointer;
    }
    return track.smoothed(t, 2 * half);
}

std::vector<ClickRing> clickRings(const CursorTrack& track, double t) {
    std::vector<ClickRing> rings;
    auto it = std::lower_bound(track.clicks.begin(), track.clicks.end(), t - kClickRingSeconds,
                               [](const CursorSample& s, double time) { return s.t < time; });
    for (; it != track.clicks.end() && it->t <= t; ++it) {
        rings.push_back({Point{it->x, it->y}, (t - it->t) / kClickRingSeconds});
    }
    return rings;
}

std::vector<Point> recentPath(const CursorTrack& track, double t, int count) {
    std::vector<Point> path;
    auto it = std::upper_bound(track.samples.begin(), track.samples.end(), t,
                               [](double time, const CursorSample& s) { return time < s.t; });
    while (it != track.samples.begin() && static_cast<int>(path.size()) < count) {
        --it;
        path.push_back({it->x, it->y});
    }
    return path;
}

}  // namespace quillo::render
