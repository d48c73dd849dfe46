#include "dead_time.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <thread>

#include "editor_texts.h"
#include "media/movie_reader.h"

namespace quillo::editor {
namespace dead_time {

namespace {

constexpr double kSlack = 0.000001;

bool insideFrame(const Point& p) { return p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1; }

// Loudness is the root mean square of the sound mixed to one channel at 16 kHz, on a linear
// scale where full scale is 1 (a full-scale sine reads 0.707). The idle limit 0.01 is then about
// -40 dBFS: room noise and a quiet fan stay under it, speech and typing sounds do not.
constexpr int kSoundRate = 16000;

Result<std::vector<double>> loudness(const std::filesystem::path& movie, double start, size_t count,
                                     const std::function<bool()>& stopped) {
    std::vector<double> sums(count, 0.0);
    std::vector<size_t> samples(count, 0);
    const double end = start + static_cast<double>(count) * kStep;
    size_t position = 0;  // samples delivered so far, counted from `start`
    auto read = media::MovieReader::readSound(
        movie, {kSoundRate, 1}, start, end, [&](const float* data, size_t frames) {
            for (size_t i = 0; i < frames; ++i, ++position) {
                size_t index = static_cast<size_t>(position / (kSoundRate * kStep));
                if (index >= count) {
                    return false;
                }
                sums[index] += static_cast<double>(data[i]) * data[i];
                ++samples[index];
            }
            return !stopped();
        });
    if (!read) {
        return read.error();
    }
    std::vector<double> levels(count, 0.0);
    for (size_t i = 0; i < count; ++i) {
        levels[i] = samples[i] ? std::sqrt(sums[i] / static_cast<double>(samples[i])) : 0.0;
    }
    return levels;
}

// Screen change on the step grid: frames every 0.2 s from `start`, each compared with the one
// before; the change between frames k−1 and k belongs to the two steps between their times.
// Frames are compared as luma only: a screen's changes show in brightness.
Result<std::vector<double>> screenChange(const std::filesystem::path& movie, double start,
                                         double end, size_t count, const Progress& progress,
                                         const CancelToken& cancel) {
    std::vector<double> change(count, 0.0);
    if (count == 0) {
        return change;
    }
    auto reader = media::MovieReader::open(movie, media::DecodeMode::Fast);
    if (!reader) {
        return reader.error();
    }
    const media::FrameFormat format{kFrameWidth, 0, media::PixelFormat::Gray8};
    const double interval = 1.0 / kFramesPerSecond;
    const size_t stepsPerFrame = static_cast<size_t>(std::lround(interval / kStep));
    const size_t frames = (count + stepsPerFrame - 1) / stepsPerFrame;
    std::vector<uint8_t> previous;
    for (size_t k = 0; k <= frames; ++k) {
        if (cancel.isCancelled()) {
            return AppError("Cancelled.", "cancelled");
        }
        // The last request stays just inside the range; the movie's last frame covers the rest.
        double t = std::min(start + static_cast<double>(k) * interval, end);
        auto frame = (*reader)->frame(t, format);
        if (!frame) {
            return frame.error();
        }
        if (k > 0) {
            double fraction = changedFraction(previous, frame->pixels);
            for (size_t i = (k - 1) * stepsPerFrame; i < std::min(k * stepsPerFrame, count); ++i) {
                change[i] = fraction;
            }
        }
        previous = std::move(frame->pixels);
        if (progress) {
            progress(static_cast<double>(k) / static_cast<double>(frames));
        }
    }
    return change;
}

}  // namespace

size_t stepCount(double start, double end, double step) {
    double n = std::ceil((end - start) / step - kSlack);
    return n > 0 ? static_cast<size_t>(n) : 0;
}

std::vector<bool> inputActivity(const project::CursorTrack* track, double start, double step,
                                size_t count, double threshold) {
    std::vector<bool> input(count, false);
    if (track == nullptr) {
        return input;
    }
    for (size_t i = 0; i < count; ++i) {
        double t = start + static_cast<double>(i) * step;
        auto a = track->position(t);
        auto b = track->position(t + step);
        if (a && b && (insideFrame(*a) || insideFrame(*b)) &&
            std::hypot(b->x - a->x, b->y - a->y) > threshold) {
            input[i] = true;
        }
    }
    auto mark = [&](const project::CursorSample& event, bool needsFrame) {
        if (needsFrame && !insideFrame({event.x, event.y})) {
            return;
        }
        double index = std::floor((event.t - start) / step);
        if (index >= 0 && index < static_cast<double>(count)) {
            input[static_cast<size_t>(index)] = true;
        }
    };
    for (const auto& click : track->clicks) {
        mark(click, true);
    }
    if (track->typing) {
        for (const auto& typed : *track->typing) {
            mark(typed, false);
        }
    }
    return input;
}

double changedFraction(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b,
                       int threshold) {
    if (a.empty() || a.size() != b.size()) {
        return 1.0;
    }
    size_t changed = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        changed += std::abs(static_cast<int>(a[i]) - static_cast<int>(b[i])) > threshold;
    }
    return static_cast<double>(changed) / static_cast<double>(a.size());
}

std::vector<bool> idle(const ActivityTimeline& timeline, double screenThreshold,
                       double quietThreshold) {
    std::vector<bool> result(timeline.count(), false);
    for (size_t i = 0; i < result.size(); ++i) {
        result[i] = !timeline.input[i] && timeline.screen[i] < screenThreshold &&
                    timeline.loudness[i] < quietThreshold;
    }
    return result;
}

std::vector<std::pair<double, double>> stretches(
    const std::vector<bool>& idleSteps, double start, double step, std::pair<double, double> range,
    double minimumLength, double padding, const std::vector<project::TimeSegment>& avoiding) {
    std::vector<std::pair<double, double>> result;
    size_t i = 0;
    while (i < idleSteps.size()) {
        if (!idleSteps[i]) {
            ++i;
            continue;
        }
        size_t j = i;
        while (j < idleSteps.size() && idleSteps[j]) {
            ++j;
        }
        double a = std::max(start + static_cast<double>(i) * step, range.first);
        double b = std::min(start + static_cast<double>(j) * step, range.second);
        i = j;
        if (b - a < minimumLength - kSlack) {
            continue;
        }
        double s = std::fabs(a - range.first) <= kSlack ? a : a + padding;
        double e = std::fabs(b - range.second) <= kSlack ? b : b - padding;
        for (const project::TimeSegment& segment : avoiding) {
            if (s < segment.end && segment.start < e) {
                if (segment.start - s >= kShortest) {
                    result.emplace_back(s, segment.start);
                }
                s = std::max(s, segment.end);
            }
        }
        if (e - s >= kShortest) {
            result.emplace_back(s, e);
        }
    }
    return result;
}

std::vector<Segment> segments(const ActivityTimeline& timeline, const project::Edits& edits,
                              const DeadTimeOptions& options) {
    std::vector<project::TimeSegment> avoiding = project::sortedByStart(edits.timing());
    auto found =
        stretches(idle(timeline), timeline.start, timeline.step, {edits.trimStart, edits.trimEnd},
                  options.minimumLength, DeadTimeOptions::kPadding, avoiding);
    std::vector<Segment> proposals;
    const double speed = std::min(options.speed, 8.0);
    for (const auto& [s, e] : found) {
        double applied = std::max(speed, 2.0);
        if (options.action == DeadTimeAction::Cut ||
            (options.action == DeadTimeAction::Auto && e - s > DeadTimeOptions::kCutAfter)) {
            applied = 0;
        }
        proposals.push_back({s, e, applied});
    }
    return proposals;
}

project::Edits merge(const std::vector<Segment>& proposals, const project::Edits& edits) {
    project::Edits merged = edits;
    std::vector<project::TimeSegment> list = edits.timing();
    for (const Segment& p : proposals) {
        list.push_back({p.start, p.end, p.speed});
    }
    project::sortByStart(list);
    merged.segments = std::move(list);
    return merged;
}

Result<ActivityTimeline> analyze(const std::filesystem::path& movie,
                                 const project::CursorTrack* track, double start, double end,
                                 const Progress& progress, const CancelToken& cancel) {
    ActivityTimeline timeline;
    timeline.start = start;
    timeline.step = kStep;
    size_t count = stepCount(start, end);
    timeline.input = inputActivity(track, start, kStep, count);

    // The sound is decoded on a second thread beside the pictures; both read the file on their
    // own handles.
    std::optional<Result<std::vector<double>>> sound;
    CancelToken screenFailed;
    std::thread soundThread([&] {
        sound = loudness(movie, start, count,
                         [&] { return cancel.isCancelled() || screenFailed.isCancelled(); });
    });
    auto screen = screenChange(movie, start, end, count, progress, cancel);
    if (!screen) {
        screenFailed.cancel();  // the sound is of no use now
    }
    soundThread.join();
    if (!screen) {
        return screen.error();
    }
    if (cancel.isCancelled()) {
        return AppError("Cancelled.", "cancelled");
    }
    if (!*sound) {
        return sound->error();
    }
    timeline.screen = std::move(screen.value());
    timeline.loudness = std::move(sound->value());
    return timeline;
}

}  // namespace dead_time

std::string DeadTimeResult::summary() const {
    if (segments.empty()) {
        return texts::kNoDeadTime;
    }
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%.1f", saved);
    return std::string("Removed ") + seconds + " s in " + std::to_string(segments.size()) +
           (segments.size() == 1 ? " place" : " places");
}

}  // namespace quillo::editor
