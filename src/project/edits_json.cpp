#include "edits_json.h"

namespace quillo::project {

namespace {

const char* const kUnreadable = "The edit recipe could not be read";

Json toJson(const FrameStyle& frame) {
    return {{"background", frame.background},
            {"padding", frame.padding},
            {"cornerRadius", frame.cornerRadius},
            {"shadow", frame.shadow}};
}

Json toJson(const CursorStyle& cursor) {
    Json json = {{"visible", cursor.visible},
                 {"size", cursor.size},
                 {"smoothing", cursor.smoothing},
                 {"hideWhenIdle", cursor.hideWhenIdle}};
    putOptional(json, "theme", cursor.theme);
    return json;
}

Json toJson(const Reframe& reframe) {
    return {{"width", reframe.width}, {"height", reframe.height}, {"follow", reframe.follow}};
}


Json toJson(const CameraStyle& camera) {
    return {{"layout", rawValue(camera.layout)},
            {"shape", rawValue(camera.shape)},
            {"size", camera.size},
            {"cornerRadius", camera.cornerRadius},
            {"mirror", camera.mirror},
            {"shadow", camera.shadow}};
}

ZoomSection readZoom(JsonReader& r) {
    ZoomSection zoom;
    zoom.start = r.real("start");
    zoom.end = r.real("end");
    zoom.scale = r.real("scale");
    zoom.x = r.real("x");
    zoom.y = r.real("y");
    zoom.follow = r.optionalBoolean("follow");
    return zoom;
}

TimeSegment readSegment(JsonReader& r) { return {r.real("start"), r.real("end"), r.real("speed")}; }

FrameStyle readFrame(JsonReader& r) {
    FrameStyle frame;
    frame.background = r.integer("background");
    frame.padding = r.real("padding");
    frame.cornerRadius = r.real("cornerRadius");
    frame.shadow = r.boolean("shadow");
    return frame;
}

CursorStyle readCursor(JsonReader& r) {
    CursorStyle cursor;
    cursor.visible = r.boolean("visible");
    cursor.size = r.real("size");
    cursor.smoothing = r.real("smoothing");
    cursor.hideWhenIdle = r.boolean("hideWhenIdle");
    cursor.theme = r.optionalText("theme");
    return cursor;
}

Reframe readReframe(JsonReader& r) {
    Reframe reframe;
    reframe.width = r.real("width");
    reframe.height = r.real("height");
    reframe.follow = r.boolean("follow");
    return reframe;
}

CaptionStyle readCaptions(JsonReader& r) {
    CaptionStyle captions;
    captions.visible = r.boolean("visible");
    captions.size = r.real("size");
    captions.position = r.rawValue<CaptionPosition>("position");
    captions.background = r.rawValue<CaptionBackground>("background");
    captions.maxCharacters = r.integer("maxCharacters");
    captions.highlightWords = r.boolean("highlightWords");
    return captions;
}

CameraStyle readCamera(JsonReader& r) {
    CameraStyle camera;
    camera.layout = r.rawValue<CameraLayout>("layout");
    camera.shape = r.rawValue<CameraShape>("shape");
    camera.size = r.real("size");
    camera.cornerRadius = r.real("cornerRadius");
    camera.mirror = r.boolean("mirror");
    camera.shadow = r.boolean("shadow");
    return camera;
}

Redaction readRedaction(JsonReader& r) {
    Redaction redaction;
    redaction.start = r.real("start");
    redaction.end = r.real("end");
    redaction.x = r.real("x");
    redaction.y = r.real("y");
    redaction.width = r.real("width");
    redaction.height = r.real("height");
    redaction.style = r.optionalRawValue<RedactionStyle>("style").value_or(RedactionStyle::Blur);
    redaction.strength = r.optionalReal("strength").value_or(0.6);
    redaction.color = r.optionalRealList("color");
    redaction.label = r.optionalText("label");
    return redaction;
}

Edits readEdits(JsonReader& r) {
    Edits edits;
    edits.version = r.integer("version");
    edits.trimStart = r.real("trimStart");
    edits.trimEnd = r.real("trimEnd");
    edits.zooms = r.list("zooms", readZoom);
    edits.frame = r.optionalObject("frame", readFrame);
    edits.segments = r.optionalList("segments", readSegment);
    edits.aspect = r.optionalRawValue<AspectRatio>("aspect");
    edits.clickHighlights = r.optionalBoolean("clickHighlights");
    edits.cursor = r.optionalObject("cursor", readCursor);
    edits.reframe = r.optionalObject("reframe", readReframe);
    edits.captions = r.optionalObject("captions", readCaptions);
    edits.camera = r.optionalObject("camera", readCamera);
    edits.redactions = r.optionalList("redactions", readRedaction);
    return edits;
}

}  // namespace

Json toJson(const CaptionStyle& captions) {
    return {{"visible", captions.visible},
            {"size", captions.size},
            {"position", rawValue(captions.position)},
            {"background", rawValue(captions.background)},
            {"maxCharacters", captions.maxCharacters},
            {"highlightWords", captions.highlightWords}};
}

Json toJson(const ZoomSection& zoom) {
    Json json = {{"start", zoom.start},
                 {"end", zoom.end},
                 {"scale", zoom.scale},
                 {"x", zoom.x},
                 {"y", zoom.y}};
    putOptional(json, "follow", zoom.follow);
    return json;
}

Json toJson(const TimeSegment& segment) {
    return {{"start", segment.start}, {"end", segment.end}, {"speed", segment.speed}};
}

Json toJson(const Redaction& redaction) {
    Json json = {{"start", redaction.start},
                 {"end", redaction.end},
                 {"x", redaction.x},
                 {"y", redaction.y},
                 {"width", redaction.width},
                 {"height", redaction.height},
                 {"style", rawValue(redaction.style)},
                 {"strength", redaction.strength}};
    putOptional(json, "color", redaction.color);
    putOptional(json, "label", redaction.label);
    return json;
}

Json toJson(const Edits& edits) {
    Json json = {{"version", edits.version},
                 {"trimStart", edits.trimStart},
                 {"trimEnd", edits.trimEnd},
                 {"zooms", toJsonList(edits.zooms)}};
    if (edits.frame) {
        json["frame"] = toJson(*edits.frame);
    }
    if (edits.segments) {
        json["segments"] = toJsonList(*edits.segments);
    }
    if (edits.aspect) {
        json["aspect"] = rawValue(*edits.aspect);
    }
    putOptional(json, "clickHighlights", edits.clickHighlights);
    if (edits.cursor) {
        json["cursor"] = toJson(*edits.cursor);
    }
    if (edits.reframe) {
        json["reframe"] = toJson(*edits.reframe);
    }
    if (edits.captions) {
        json["captions"] = toJson(*edits.captions);
    }
    if (edits.camera) {
        json["camera"] = toJson(*edits.camera);
    }
    if (edits.redactions) {
        json["redactions"] = toJsonList(*edits.redactions);
    }
    return json;
}

Result<Edits> editsFromJson(const Json& json) {
    return JsonReader::decodeDocument<Edits>(json, readEdits, kUnreadable);
}

std::string encodeEdits(const Edits& edits) { return toPrettyJson(toJson(edits)); }

Result<Edits> decodeEdits(std::string_view text) {
    return JsonReader::decodeText<Edits>(text, readEdits, kUnreadable);
}

}  // namespace quillo::project
