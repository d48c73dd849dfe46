#include "cursor_track.h"

#include <algorithm>
#include <system_error>

#include "base/files.h"

namespace quillo::project {

namespace {

const char* const kUnreadable = "The cursor track could not be read";

// The first sample whose time is not less than t.
std::vector<CursorSample>::const_iterator firstAtOrAfter(const std::vector<CursorSample>& samples,
                                                         double t) {
    return std::lower_bound(samples.begin(), samples.end(), t,
                            [](const CursorSample& s, double time) { return s.t < time; });
}

CursorSample readSample(JsonReader& r) {
    CursorSample sample;
    sample.t = r.real("t");
    sample.x = r.real("x");
    sample.y = r.real("y");
    sample.c = r.optionalInteger("c");
    return sample;
}

CursorShape readShape(JsonReader& r) {
    CursorShape shape;
    shape.id = r.integer("id");
    shape.width = r.real("width");
    shape.height = r.real("height");
    shape.hotX = r.real("hotX");
    shape.hotY = r.real("hotY");
    return shape;
}

CursorTrack readTrack(JsonReader& r) {
    CursorTrack track;
    track.version = r.integer("version");
    track.samples = r.list("samples", readSample);
    track.clicks = r.list("clicks", readSample);
    track.layered = r.optionalBoolean("layered");
    track.pointerInPicture = r.optionalBoolean("pointerInPicture");
    track.pixelsPerPoint = r.optionalReal("pixelsPerPoint");
    track.shapes = r.optionalList("shapes", readShape);
    track.typing = r.optionalList("typing", readSample);
    return track;
}

}  // namespace

Json toJson(const CursorSample& sample) {
    Json json = {{"t", sample.t}, {"x", sample.x}, {"y", sample.y}};
    putOptional(json, "c", sample.c);
    return json;
}

Json toJson(const CursorShape& shape) {
    return {{"id", shape.id},
            {"width", shape.width},
            {"height", shape.height},
            {"hotX", shape.hotX},
            {"hotY", shape.hotY}};
}

std::optional<Point> CursorTrack::position(double t) const {
    if (samples.empty()) {
        return std::nullopt;
    }
    auto it = firstAtOrAfter(samples, t);
    if (it == samples.begin()) {
        return Point{it->x, it->y};
    }
    if (it == samples.end()) {
        return Point{samples.back().x, samples.back().y};
    }
    const CursorSample& before = *(it - 1);
    const CursorSample& after = *it;
    double fraction = before.t < after.t ? (t - before.t) / (after.t - before.t) : 0;
    return Point{before.x + (after.x - before.x) * fraction,
                 before.y + (after.y - before.y) * fraction};
}

std::optional<Point> CursorTrack::smoothed(double t, double window) const {
    if (samples.empty()) {
        return std::nullopt;
    }
    if (!(window > 0)) {
        return position(t);
    }
    // The path is piecewise linear between samples, so integrating it with the trapezoid rule
    // over the sample times inside the window (and the window's ends) is exact.
    double a = t - window / 2;
    double b = t + window / 2;
    Point previous = *position(a);
    double previousTime = a;
    double sumX = 0;
    double sumY = 0;
    auto add = [&](double time) {
        Point p = *position(time);
        double dt = time - previousTime;
        sumX += (previous.x + p.x) / 2 * dt;
        sumY += (previous.y + p.y) / 2 * dt;
        previous = p;
        previousTime = time;
    };
    for (auto it = firstAtOrAfter(samples, a); it != samples.end() && it->t < b; ++it) {
        if (it->t > previousTime) {
            add(it->t);
        }
    }
    add(b);
    return Point{sumX / window, sumY / window};
}

std::optional<int64_t> CursorTrack::shape(double t) const {
    if (samples.empty()) {
        return std::nullopt;
    }
    auto it = firstAtOrAfter(samples, t);
    return it == samples.end() ? samples.back().c : it->c;
}

std::filesystem::path CursorTrack::shapeImageName(int64_t id) {
    return "cursor-" + std::to_string(id) + ".png";
}

Json toJson(const CursorTrack& track) {
    Json json = {{"version", track.version},
                 {"samples", toJsonList(track.samples)},
                 {"clicks", toJsonList(track.clicks)}};
    putOptional(json, "layered", track.layered);
    putOptional(json, "pointerInPicture", track.pointerInPicture);
    putOptional(json, "pixelsPerPoint", track.pixelsPerPoint);
    if (track.shapes) {
        json["shapes"] = toJsonList(*track.shapes);
    }
    if (track.typing) {
        json["typing"] = toJsonList(*track.typing);
    }
    return json;
}

Result<CursorTrack> cursorTrackFromJson(const Json& json) {
    return JsonReader::decodeDocument<CursorTrack>(json, readTrack, kUnreadable);
}

std::string encodeCursorTrack(const CursorTrack& track) { return toPrettyJson(toJson(track)); }

Result<CursorTrack> decodeCursorTrack(std::string_view text) {
    return JsonReader::decodeText<CursorTrack>(text, readTrack, kUnreadable);
}

Result<std::optional<CursorTrack>> loadCursorTrack(const std::filesystem::path& folder) {
    std::filesystem::path file = folder / CursorTrack::kFileName;
    std::error_code ec;
    if (!std::filesystem::exists(file, ec)) {
        return std::optional<CursorTrack>();
    }
    auto text = readFile(file);
    if (!text) {
        return text.error();
    }
    auto track = decodeCursorTrack(*text);
    if (!track) {
        return track.error();
    }
    return std::optional<CursorTrack>(std::move(track.value()));
}

}  // namespace quillo::project
