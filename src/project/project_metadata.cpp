#include "project_metadata.h"

#include <cctype>
#include <ctime>
#include <limits>
#include <memory>

#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

namespace quillo::project {

namespace {

const char* const kUnreadable = "The project file could not be read";

CaptureSource readSource(JsonReader& r) {
    CaptureSource source;
    source.kind = r.text("kind");
    int64_t id = r.integer("id");
    if (r.ok() && (id < 0 || id > std::numeric_limits<uint32_t>::max())) {
        r.fail("source.id", "must be a whole number from 0 to 4294967295");
    }
    source.id = static_cast<uint32_t>(id);
    source.name = r.text("name");
    source.detail = r.text("detail");
    return source;
}

ProjectMetadata readMetadata(JsonReader& r) {
    ProjectMetadata metadata;
    metadata.version = r.integer("version");
    metadata.title = r.text("title");
    metadata.created = r.text("created");
    std::optional<CaptureSource> source = r.optionalObject("source", readSource);
    if (!source && r.ok()) {
        r.fail("source", "is missing");
    }
    metadata.source = source.value_or(CaptureSource{});
    metadata.duration = r.optionalReal("duration");
    return metadata;
}

// Reads `count` digits at `pos`; advances `pos`.
std::optional<int> digits(std::string_view text, size_t& pos, size_t count) {
    if (pos + count > text.size()) {
        return std::nullopt;
    }
    int value = 0;
    for (size_t i = 0; i < count; ++i) {
        char c = text[pos + i];
        if (!std::isdigit(static_cast<unsigned char>(c))) {
            return std::nullopt;
        }
        value = value * 10 + (c - '0');
    }
    pos += count;
    return value;
}

bool expect(std::string_view text, size_t& pos, char c) {
    if (pos < text.size() && text[pos] == c) {
        ++pos;
        return true;
    }
    return false;
}

}  // namespace

std::optional<Instant> ProjectMetadata::createdDate() const { return parseISO8601(created); }

std::string iso8601(Instant instant) {
    std::time_t seconds =
        std::chrono::system_clock::to_time_t(std::chrono::floor<std::chrono::seconds>(instant));
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

std::optional<Instant> parseISO8601(std::string_view text) {
    size_t pos = 0;
    auto year = digits(text, pos, 4);
    if (!year || !expect(text, pos, '-'))
        return std::nullopt;
    auto month = digits(text, pos, 2);
    if (!month || !expect(text, pos, '-'))
        return std::nullopt;
    auto day = digits(text, pos, 2);
    if (!day || !(expect(text, pos, 'T') || expect(text, pos, 't')))
        return std::nullopt;
    auto hour = digits(text, pos, 2);
    if (!hour || !expect(text, pos, ':'))
        return std::nullopt;
    auto minute = digits(text, pos, 2);
    if (!minute || !expect(text, pos, ':'))
        return std::nullopt;
    auto second = digits(text, pos, 2);
    if (!second)
        return std::nullopt;
    if (*month < 1 || *month > 12 || *day < 1 || *day > 31 || *hour > 23 || *minute > 59 ||
        *second > 60) {
        return std::nullopt;
    }
    double fraction = 0;
    if (expect(text, pos, '.')) {
        double scale = 0.1;
        size_t first = pos;
        while (pos < text.size() && std::isdigit(static_cast<unsigned char>(text[pos]))) {
            fraction += (text[pos] - '0') * scale;
            scale /= 10;
            ++pos;
        }
        if (pos == first)
            return std::nullopt;
    }
    long offset = 0;
    if (expect(text, pos, 'Z') || expect(text, pos, 'z')) {
        offset = 0;
    } else if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
        int sign = text[pos] == '-' ? -1 : 1;
        ++pos;
        auto offsetHours = digits(text, pos, 2);
        if (!offsetHours)
            return std::nullopt;
        expect(text, pos, ':');
        auto offsetMinutes = digits(text, pos, 2);
        if (!offsetMinutes || *offsetHours > 23 || *offsetMinutes > 59)
            return std::nullopt;
        offset = sign * (*offsetHours * 3600L + *offsetMinutes * 60L);
    } else {
        return std::nullopt;
    }
    if (pos != text.size()) {
        return std::nullopt;
    }
    std::tm utc{};
    utc.tm_year = *year - 1900;
    utc.tm_mon = *month - 1;
    utc.tm_mday = *day;
    utc.tm_hour = *hour;
    utc.tm_min = *minute;
    utc.tm_sec = *second;
    std::time_t seconds = ::timegm(&utc) - offset;
    // An instant holds nanoseconds in 64 bits: about the years 1678 to 2262.
    constexpr std::time_t kLimit = 9'000'000'000;
    if (seconds > kLimit || seconds < -kLimit) {
        return std::nullopt;
    }
    auto instant = std::chrono::system_clock::from_time_t(seconds);
    return instant + std::chrono::duration_cast<std::chrono::system_clock::duration>(
                         std::chrono::duration<double>(fraction));
}

std::string localizedDateTime(Instant instant) {
    std::unique_ptr<icu::DateFormat> format(icu::DateFormat::createDateTimeInstance(
        icu::DateFormat::kMedium, icu::DateFormat::kShort, icu::Locale::getDefault()));
    if (!format) {
        return iso8601(instant);
    }
    double milliseconds = static_cast<double>(
        std::chrono::duration_cast<std::chrono::milliseconds>(instant.time_since_epoch()).count());
    icu::UnicodeString text;
    format->format(milliseconds, text);
    std::string result;
    text.toUTF8String(result);
    return result;
}

Json toJson(const CaptureSource& source) {
    return {
        {"kind", source.kind}, {"id", source.id}, {"name", source.name}, {"detail", source.detail}};
}

Json toJson(const ProjectMetadata& metadata) {
    Json json = {{"version", metadata.version},
                 {"title", metadata.title},
                 {"created", metadata.created},
                 {"source", toJson(metadata.source)}};
    putOptional(json, "duration", metadata.duration);
    return json;
}

Result<ProjectMetadata> metadataFromJson(const Json& json) {
    return JsonReader::decodeDocument<ProjectMetadata>(json, readMetadata, kUnreadable);
}

std::string encodeMetadata(const ProjectMetadata& metadata) {
    return toPrettyJson(toJson(metadata));
}

Result<ProjectMetadata> decodeMetadata(std::string_view text) {
    return JsonReader::decodeText<ProjectMetadata>(text, readMetadata, kUnreadable);
}

}  // namespace quillo::project
