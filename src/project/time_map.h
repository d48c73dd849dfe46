#pragma once

#include <vector>

#include "edits.h"

namespace quillo::project {

// Output time (seconds of the finished video) to recording time, over a recipe's kept pieces.
// Immutable; safe to share between threads.
class TimeMap {
public:
    struct Entry {
        double output = 0;  // output time at which the piece begins
        TimeSegment piece;
    };

    explicit TimeMap(const std::vector<TimeSegment>& pieces);
    explicit TimeMap(const Edits& edits) : TimeMap(edits.pieces()) {}

    const std::vector<Entry>& entries() const { return m_entries; }
    // The recording instant shown at output time t; never past the last piece's end. With no
    // pieces, t itself.
    double source(double t) const;

private:
    std::vector<Entry> m_entries;
};

}  // namespace quillo::project
