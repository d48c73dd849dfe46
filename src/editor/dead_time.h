#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/cancel_token.h"
#include "base/result.h"
#include "dead_time_options.h"
#include "project/cursor_track.h"
#include "project/edits.h"

namespace quillo::editor {

// Activity of one recording on a grid of 0.1-second steps from `start` (recording seconds):
// whether the user did something (pointer, click, typing), how much of the picture changed,
// and how loud the sound was. The three lists have one entry a step.
struct ActivityTimeline {
    double start = 0;
    double step = 0.1;
    std::vector<bool> input;
    std::vector<double> screen;    // fraction of picture bytes that changed, 0–1
    std::vector<double> loudness;  // RMS level, full scale 1 (see dead_time.cpp)

    size_t count() const { return input.size(); }
};

// Finding stretches in which nothing happens: no input, no sound, no change on screen.
namespace dead_time {

inline constexpr double kStep = 0.1;
inline constexpr double kFramesPerSecond = 5;
inline constexpr int kFrameWidth = 160;
inline constexpr int kChangeThreshold = 24;
inline constexpr double kShortest = 0.3;
inline constexpr double kScreenIdle = 0.002;
inline constexpr double kQuietIdle = 0.01;
inline constexpr double kPointerThreshold = 0.003;

// One proposal: a range of recording time and the speed for it (0 cuts it).
struct Segment {
    double start = 0;
    double end = 0;
    double speed = 0;
    bool operator==(const Segment&) const = default;
};

// The number of steps in `start … end`.
size_t stepCount(double start, double end, double step = kStep);

// Which steps saw pointer movement (over `threshold` in unit fractions, with one end inside the
// frame), a click inside the frame, or typing anywhere. All false without a track.
std::vector<bool> inputActivity(const project::CursorTrack* track, double start, double step,
                                size_t count, double threshold = kPointerThreshold);

// The fraction of bytes whose values differ by more than `threshold`; 1 for pictures of
// different sizes or empty ones.
double changedFraction(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b,
                       int threshold = kChangeThreshold);

// Steps where nothing happens.
std::vector<bool> idle(const ActivityTimeline& timeline, double screenThreshold = kScreenIdle,
                       double quietThreshold = kQuietIdle);

// Idle runs of at least `minimumLength` inside `range`, padded inwards by `padding` (except at
// the range's ends), fitted around the `avoiding` segments, none shorter than 0.3 s.
std::vector<std::pair<double, double>> stretches(const std::vector<bool>& idleSteps, double start,
                                                 double step, std::pair<double, double> range,
                                                 double minimumLength, double padding,
                                                 const std::vector<project::TimeSegment>& avoiding);

// The proposals for a recipe's kept range from an analysed timeline.
std::vector<Segment> segments(const ActivityTimeline& timeline, const project::Edits& edits,
                              const DeadTimeOptions& options);

// The recipe with `proposals` added to its segments (then sorted by start).
project::Edits merge(const std::vector<Segment>& proposals, const project::Edits& edits);

using Progress = std::function<void(double fraction)>;

// Analyses `start … end` of a movie: screen change from 5 frames a second scaled to 160 pixels
// wide, loudness of its sound, and input from the cursor track when there is one. Reports
// progress 0–1 from the calling thread; stops soon after `cancel` is set (with an error whose
// detail is "cancelled").
Result<ActivityTimeline> analyze(const std::filesystem::path& movie,
                                 const project::CursorTrack* track, double start, double end,
                                 const Progress& progress, const CancelToken& cancel);

}  // namespace dead_time

// What one removal did: the proposals applied and the seconds the finished video got shorter.
struct DeadTimeResult {
    std::vector<dead_time::Segment> segments;
    double saved = 0;

    // "Removed 12.3 s in 4 places", or "No dead time found".
    std::string summary() const;
};

}  // namespace quillo::editor
