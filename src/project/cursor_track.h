#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/geometry.h"
#include "base/json.h"
#include "base/result.h"

namespace quillo::project {

// One timed point: recording seconds, unit position from the top left. `c` is the cursor shape
// shown at that moment (pointer samples only).
struct CursorSample {
    double t = 0;
    double x = 0;
    double y = 0;
    std::optional<int64_t> c;
    bool operator==(const CursorSample&) const = default;
};

// A cursor picture met during the recording; its image is "cursor-{id}.png" in the folder.
struct CursorShape {
    int64_t id = 0;
    double width = 0;
    double height = 0;
    double hotX = 0;  // hot spot from the picture's left edge
    double hotY = 0;  // hot spot from the picture's top edge
    bool operator==(const CursorShape&) const = default;
};

// The separately recorded pointer, clicks, caret and cursor shapes of one recording
// ("cursor.json"). A plain value; samples are in time order.
struct CursorTrack {
    static constexpr const char* kFileName = "cursor.json";

    int64_t version = 1;
    std::vector<CursorSample> samples;
    std::vector<CursorSample> clicks;
    std::optional<bool> layered;
    // The pointer is part of the recorded picture (the desktop could not leave it out), so
    // no second one is drawn over it.
    std::optional<bool> pointerInPicture;
    std::optional<double> pixelsPerPoint;
    std::optional<std::vector<CursorShape>> shapes;
    std::optional<std::vector<CursorSample>> typing;

    // The pointer at recording time t, interpolated between samples and held at the ends;
    // none without samples.
    std::optional<Point> position(double t) const;
    // The shape id of the first sample at or after t (the last sample's after the end).
    std::optional<int64_t> shape(double t) const;

    // The pointer averaged over the `window` seconds centred on t (the mean of the recorded,
    // interpolated path over that span); position(t) for a window of 0. None without samples.
    std::optional<Point> smoothed(double t, double window) const;

    // The image file of shape `id` inside a project folder.
    static std::filesystem::path shapeImageName(int64_t id);

    bool operator==(const CursorTrack&) const = default;
};

Json toJson(const CursorSample& sample);
Json toJson(const CursorShape& shape);
Json toJson(const CursorTrack& track);
Result<CursorTrack> cursorTrackFromJson(const Json& json);
std::string encodeCursorTrack(const CursorTrack& track);
Result<CursorTrack> decodeCursorTrack(std::string_view text);

// Reads "cursor.json" from a project folder: none when the file is absent, an error when it is
// there but unreadable.
Result<std::optional<CursorTrack>> loadCursorTrack(const std::filesystem::path& folder);

}  // namespace quillo::project
