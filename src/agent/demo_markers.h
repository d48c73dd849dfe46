#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "base/result.h"
#include "project/edits.h"

namespace quillo::agent {

// A labelled moment of a recording, seconds from its start.
struct DemoMarker {
    std::string label;
    double time = 0;
    bool operator==(const DemoMarker&) const = default;
};

// A chapter of the finished video: whole seconds from its start and a title.
struct Chapter {
    int64_t start = 0;
    std::string title;
    bool operator==(const Chapter&) const = default;
};

// Markers of a recording ("markers.json" in its folder) and the chapters they make.
namespace markers {

inline constexpr const char* kFileName = "markers.json";

// The markers of a project folder in time order; none when the file is absent or unreadable.
std::vector<DemoMarker> load(const std::filesystem::path& folder);
Result<void> save(const std::vector<DemoMarker>& list, const std::filesystem::path& folder);
// Validates, inserts in time order and saves. Errors: "A marker needs a label.", "Marker times
// are seconds from the start of the recording."
Result<std::vector<DemoMarker>> add(const std::string& label, double time,
                                    const std::filesystem::path& folder);

// Chapters of the finished video: markers mapped through the recipe (trim, cuts, speed-ups),
// an "Intro" before a late first marker, chapters shorter than `minimum` seconds merged.
std::vector<Chapter> chapters(std::vector<DemoMarker> list, const project::Edits* edits,
                              double duration, int64_t minimum = 10);
// "m:ss", or "h:mm:ss" when `hours`.
std::string timestamp(int64_t seconds, bool hours);
// One line per chapter: timestamp, space, title.
std::string text(const std::vector<Chapter>& list, double duration);
// At least three chapters, the first at 0.
bool youTubeReady(const std::vector<Chapter>& list);

}  // namespace markers

// The pause between typed characters, in seconds: from `delayMs`, else from `wpm` (five
// characters a word), else the default of 12 ms; a text of n characters never takes longer
// than 90 s at a slow pace.
double typingDelay(std::optional<double> delayMs, std::optional<double> wpm, size_t characters);

}  // namespace quillo::agent
