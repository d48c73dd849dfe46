#include "time_map.h"

#include <algorithm>

namespace quillo::project {

namespace {
// Pieces this short or shorter are dropped: they would last less than a frame at any rate.
constexpr double kShortestPiece = 0.001;
}  // namespace

std::vector<TimeSegment> Edits::pieces() const {
    std::vector<TimeSegment> sorted = sortedByStart(timing());
    std::vector<TimeSegment> result;
    double cursor = trimStart;
    for (const TimeSegment& segment : sorted) {
        if (!(trimStart < segment.end && segment.start < trimEnd)) {
            continue;
        }
        double lo = std::max(segment.start, trimStart);
        double hi = std::min(segment.end, trimEnd);
        if (cursor < lo) {
            result.push_back({cursor, lo, 1});
        }
        if (segment.speed != 0) {
            result.push_back({lo, hi, segment.speed});
        }
        cursor = std::max(cursor, hi);
    }
    if (cursor < trimEnd) {
        result.push_back({cursor, trimEnd, 1});
    }
    std::erase_if(result,
                  [](const TimeSegment& piece) { return !(piece.length() > kShortestPiece); });
    return result;
}

double Edits::outputDuration() const {
    double total = 0;
    for (const TimeSegment& piece : pieces()) {
        total += piece.length() / piece.speed;
    }
    return total;
}

double Edits::outputTime(double t) const {
    double total = 0;
    for (const TimeSegment& piece : pieces()) {
        if (piece.start > t) {
            break;
        }
        total += (std::min(piece.end, t) - piece.start) / piece.speed;
    }
    return total;
}

TimeMap::TimeMap(const std::vector<TimeSegment>& pieces) {
    double output = 0;
    m_entries.reserve(pieces.size());
    for (const TimeSegment& piece : pieces) {
        m_entries.push_back({output, piece});
        output += piece.length() / piece.speed;
    }
}

double TimeMap::source(double t) const {
    if (m_entries.empty()) {
        return t;
    }
    // The last entry starting at or before t (with a microsecond of slack, so a frame time
    // summed from earlier pieces lands in the next piece); the first when none does.
    auto after = std::upper_bound(m_entries.begin(), m_entries.end(), t + kTimeSlack,
                                  [](double time, const Entry& e) { return time < e.output; });
    const Entry& entry = after == m_entries.begin() ? m_entries.front() : *(after - 1);
    return std::min(entry.piece.start + (t - entry.output) * entry.piece.speed, entry.piece.end);
}

}  // namespace quillo::project
