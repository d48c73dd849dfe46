#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/cancel_token.h"
#include "base/geometry.h"
#include "base/result.h"
#include "media/movie_reader.h"
#include "project/edits.h"
#include "sensitive_patterns.h"

namespace quillo::redaction {

// Private text read in one frame; `box` is a unit rectangle of the frame (origin top left).
struct SensitiveFinding {
    SensitiveKind kind = SensitiveKind::Email;
    std::string text;
    Rect box;
    bool operator==(const SensitiveFinding&) const = default;
};

// A finding at a movie time.
struct Sighting {
    double time = 0;
    SensitiveKind kind = SensitiveKind::Email;
    std::string text;
    Rect box;
};

// The same private text seen in one place from `first` to `last`; `box` covers every sighting.
struct SensitiveSpan {
    SensitiveKind kind = SensitiveKind::Email;
    std::string text;
    double first = 0;
    double last = 0;
    Rect box;
};

// Turning sightings into redactions; pure functions, tested on their own.
namespace sensitive_scan {

inline constexpr double kInterval = 0.5;
// Frames are read no larger than this on either side (keeping their shape).
inline constexpr int kLargestSide = 1600;

// `box` grown on every side by 35% of its height in pixels plus 2 pixels, clipped to the frame.
// Unchanged when the frame size is unknown (a side ≤ 0).
Rect padded(const Rect& box, double frameWidth, double frameHeight);

// Sightings joined into spans, in time order: a sighting joins an open span of the same kind
// and text (white space ignored) when it comes at most 2.5 intervals after the span's last one
// and lies near (within one box height of) the span's latest box.
std::vector<SensitiveSpan> merge(std::vector<Sighting> sightings, double interval = kInterval);

// A blur for each span from one interval before its first sighting to one after its last
// (clipped to the recording), over its padded box, labelled with the kind; sorted by start.
std::vector<project::Redaction> proposals(const std::vector<SensitiveSpan>& spans, double duration,
                                          double frameWidth, double frameHeight,
                                          double interval = kInterval);

}  // namespace sensitive_scan

// What the last scan did, for measurement.
struct SensitiveScanStatistics {
    size_t framesSampled = 0;
    size_t recognitions = 0;    // recognition runs, whole frames and bands
    size_t wholeFrames = 0;     // of those, the ones over the whole frame
    double rowsRecognised = 0;  // recognised rows over the rows of all sampled frames, 0–1
};

// Reads text on screen with Tesseract (LSTM, English, no dictionary) and finds private text in
// it. The engines are made on first use and kept: making one takes a good part of a second.
// One scanner is used by one thread at a time.
class SensitiveScanner {
public:
    using Progress = std::function<void(double fraction)>;

    // `engines` recognition engines run side by side during scans (at least 1). `incremental`
    // off recognises every sampled frame whole; for comparison only.
    explicit SensitiveScanner(int engines = 2, bool incremental = true);
    ~SensitiveScanner();
    SensitiveScanner(const SensitiveScanner&) = delete;
    SensitiveScanner& operator=(const SensitiveScanner&) = delete;

    // The private text in one frame (BGRA or Gray8). Error: "Text recognition could not be
    // started." when the English recognition data is missing.
    Result<std::vector<SensitiveFinding>> recognize(const media::VideoFrame& frame);

    // Proposed redactions for `start … end` of a movie: frames at `start` and every `interval`
    // up to `end`, each read for private text. A frame that did not change since the previous
    // sample reuses its findings; one that changed in some rows has only those text lines read
    // again, and is read whole when text read before in those rows is no longer found there.
    // Reports progress 0–1 from the calling thread. When `cancel` is set it stops soon with "The
    // scan was stopped." (detail "cancelled") and returns nothing.
    Result<std::vector<project::Redaction>> scan(const std::filesystem::path& movie, double start,
                                                 double end, double interval,
                                                 const Progress& progress,
                                                 const CancelToken& cancel);

    const SensitiveScanStatistics& statistics() const { return m_statistics; }

private:
    class Engine;
    Result<Engine*> engine(size_t index);

    size_t m_engineCount;
    bool m_incremental;
    std::vector<std::unique_ptr<Engine>> m_engines;
    SensitiveScanStatistics m_statistics;
};

}  // namespace quillo::redaction
