#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "base/json.h"
#include "base/result.h"

namespace quillo::project {

using Instant = std::chrono::system_clock::time_point;

// What was recorded: kind "window" or "display", the window or display number, the app or
// display name, and a detail such as the window title.
struct CaptureSource {
    std::string kind;
    uint32_t id = 0;
    std::string name;
    std::string detail;
    bool operator==(const CaptureSource&) const = default;
};

// "project.json": the project's title, creation instant, source and (once known) duration.
struct ProjectMetadata {
    static constexpr const char* kFileName = "project.json";

    int64_t version = 1;
    std::string title;
    std::string created;  // ISO 8601 internet date-time, e.g. "2024-11-14T16:20:34Z"
    CaptureSource source;
    std::optional<double> duration;

    // `created` read back as an instant; none when the text is not ISO 8601.
    std::optional<Instant> createdDate() const;

    bool operator==(const ProjectMetadata&) const = default;
};

// ISO 8601 text of an instant in UTC, whole seconds: "2024-11-14T16:20:34Z".
std::string iso8601(Instant instant);
// Parses "YYYY-MM-DDTHH:MM:SS", optional fraction, then "Z" or an offset "+HH:MM"/"+HHMM".
std::optional<Instant> parseISO8601(std::string_view text);
// The instant as a date in abbreviated style and a time in short style, in the user's locale
// and time zone ("Nov 14, 2024, 4:20 PM" in US English).
std::string localizedDateTime(Instant instant);

Json toJson(const CaptureSource& source);
Json toJson(const ProjectMetadata& metadata);
Result<ProjectMetadata> metadataFromJson(const Json& json);
std::string encodeMetadata(const ProjectMetadata& metadata);
Result<ProjectMetadata> decodeMetadata(std::string_view text);

}  // namespace quillo::project
