#include "agent_tools.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <mutex>
#include <thread>

#include "agent_texts.h"
#include "base/cancel_token.h"
#include "caption_tools.h"
#include "captions/caption_renderer.h"
#include "demo_markers.h"
#include "editor/auto_zoom.h"
#include "editor/dead_time.h"
#include "editor/dead_time_options.h"
#include "editor/editor_model.h"
#include "editor/editor_texts.h"
#include "media/movie_info.h"
#include "project/cursor_track.h"
#include "project/edits_json.h"
#include "recording_tools.h"
#include "redaction/redaction.h"
#include "redaction/sensitive_scanner.h"
#include "render/export_preset.h"
#include "render/exporter.h"
#include "tool_context.h"

namespace quillo::agent {

namespace fs = std::filesystem;
using editor::EditorModel;
using project::Edits;

namespace {

std::string base64(const std::string& bytes) {
    static const char* alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 2 < bytes.size(); i += 3) {
        uint32_t n = (static_cast<uint8_t>(bytes[i]) << 16) |
                     (static_cast<uint8_t>(bytes[i + 1]) << 8) | static_cast<uint8_t>(bytes[i + 2]);
        out += alphabet[(n >> 18) & 63];
        out += alphabet[(n >> 12) & 63];
        out += alphabet[(n >> 6) & 63];
        out += alphabet[n & 63];
    }
    if (i < bytes.size()) {
        uint32_t n = static_cast<uint8_t>(bytes[i]) << 16;
        if (i + 1 < bytes.size()) {
            n |= static_cast<uint8_t>(bytes[i + 1]) << 8;
        }
        out += alphabet[(n >> 18) & 63];
        out += alphabet[(n >> 12) & 63];
        out += i + 1 < bytes.size() ? alphabet[(n >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::vector<std::string> presetIds() {
    std::vector<std::string> ids;
    for (const auto& [preset, raw] : EnumTable<render::ExportPreset>::cases) {
        if (preset != render::ExportPreset::X) {
            ids.emplace_back(raw);
        }
    }
    return ids;
}

std::string presetList() {
    std::string text;
    for (const auto& [preset, raw] : EnumTable<render::ExportPreset>::cases) {
        if (!text.empty()) {
            text += "; ";
        }
        text += std::string(raw) + " (" + render::presetDetail(preset) + ")";
    }
    return text + ".";
}

Json clicksAndTyping(const std::optional<project::CursorTrack>& track) {
    Json clicks = Json::array();
    Json typing = Json::array();
    if (track) {
        for (const auto& click : track->clicks) {
            clicks.push_back(click.t);
        }
        for (const auto& caret : track->typing.value_or(std::vector<project::CursorSample>{})) {
            typing.push_back(caret.t);
        }
    }
    return {{"clicks", clicks}, {"typing", typing}};
}

// Removes item `index` of a list the agent numbered; `missing` says why when there is none.
template <class T>
Result<void> eraseAt(std::vector<T>& list, int64_t index, const std::string& missing) {
    if (index < 0 || index >= static_cast<int64_t>(list.size())) {
        return AppError(missing);
    }
    list.erase(list.begin() + index);
    return {};
}

Result<Content> setOptions(Studio& studio, const Arguments& args) {
    TRY_ASSIGN(microphone, args.optionalBoolean("microphone"));
    TRY_ASSIGN(systemAudio, args.optionalBoolean("system_audio"));
    TRY_ASSIGN(countdown, args.optionalInteger("countdown"));
    TRY_ASSIGN(smoothCursor, args.optionalBoolean("smooth_cursor"));
    TRY_ASSIGN(autoPolish, args.optionalBoolean("auto_polish"));
    TRY_ASSIGN(stepAside, args.optionalBoolean("step_aside"));
    TRY_ASSIGN(floatingControls, args.optionalBoolean("floating_controls"));
    if (countdown && *countdown != 0 && *countdown != 3 && *countdown != 5 && *countdown != 10) {
        return AppError(texts::kCountdownChoices);
    }
    Result<Content> result = AppError("");
    studio.onMain([&] {
        RecordingOptions options = studio.options();
        options.microphone = microphone.value_or(options.microphone);
        options.systemAudio = systemAudio.value_or(options.systemAudio);
        options.countdown = countdown.value_or(options.countdown);
        options.smoothCursor = smoothCursor.value_or(options.smoothCursor);
        options.autoPolish = autoPolish.value_or(options.autoPolish);
        options.stepAside = stepAside.value_or(options.stepAside);
        options.floatingControls = floatingControls.value_or(options.floatingControls);
        auto stored = studio.setOptions(options);
        result = stored ? Result<Content>(Content{jsonItem({{"options", optionsJson(options)}})})
                        : Result<Content>(stored.error());
    });
    return result;
}

// Scans the recording's kept stretch (trim in to trim out) on this worker thread.
Result<Content> findSensitiveInfo(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(apply, args.optionalBoolean("apply"));
    fs::path movie;
    double start = 0;
    double end = 0;
    auto found = context.withEditor(args, [&](EditorModel& editor) -> Result<Content> {
        movie = editor.project().recordingFile();
        start = editor.edits().trimStart;
        end = editor.edits().trimEnd;
        return Content{};
    });
    if (!found) {
        return found.error();
    }
    redaction::SensitiveScanner scanner;
    TRY_ASSIGN(proposals,
               scanner.scan(movie, start, end, redaction::sensitive_scan::kInterval, nullptr, {}));
    Json list = Json::array();
    for (const project::Redaction& proposal : proposals) {
        list.push_back(project::toJson(proposal));
    }
    if (!apply.value_or(false) || proposals.empty()) {
        return Content{jsonItem({{"proposals", list}, {"applied", false}})};
    }
    auto added = context.edit(args, [&](Edits& edits, EditorModel&) -> Result<void> {
        std::vector<project::Redaction> redactions = edits.redactionList();
        redactions.insert(redactions.end(), proposals.begin(), proposals.end());
        project::sortByStart(redactions);
        edits.redactions = redactions;
        return {};
    });
    if (!added) {
        return added.error();
    }
    return Content{jsonItem({{"proposals", list}, {"applied", true}})};
}

}  // namespace

// Analysed recordings by id, so asking twice does not analyse twice. Any thread.
class DeadTimeCache {
public:
    std::shared_ptr<const editor::ActivityTimeline> find(const std::string& id) {
        std::lock_guard lock(m_mutex);
        auto it = m_timelines.find(id);
        return it == m_timelines.end() ? nullptr : it->second;
    }
    std::shared_ptr<const editor::ActivityTimeline> keep(const std::string& id,
                                                         editor::ActivityTimeline timeline) {
        auto shared = std::make_shared<const editor::ActivityTimeline>(std::move(timeline));
        std::lock_guard lock(m_mutex);
        m_timelines[id] = shared;
        return shared;
    }

private:
    std::mutex m_mutex;
    std::map<std::string, std::shared_ptr<const editor::ActivityTimeline>> m_timelines;
};

Json AgentTools::text(const std::string& value) { return {{"type", "text"}, {"text", value}}; }

Json AgentTools::jsonText(const Json& object) { return text(toCompactJson(object)); }

Json AgentTools::jpeg(const std::string& bytes) {
    return {{"type", "image"}, {"data", base64(bytes)}, {"mimeType", "image/jpeg"}};
}

AgentTools::AgentTools(std::shared_ptr<Studio> studio) : m_studio(std::move(studio)) {
    // Exports and rendered frames made through the tools draw redactions and captions.
    redaction::registerDrawing();
    captions::registerBurnIn();
    build();
}

Json AgentTools::definitions() const {
    static const std::vector<std::string> readOnly = {
        "get_status",    "screenshot",   "ui_elements",   "list_recordings",
        "get_recording", "render_frame", "find_dead_time"};
    Json list = Json::array();
    for (const Tool& tool : m_tools) {
        bool reads = std::find(readOnly.begin(), readOnly.end(), tool.name) != readOnly.end();
        list.push_back(
            {{"name", tool.name},
             {"description", tool.description},
             {"inputSchema",
              {{"type", "object"}, {"properties", tool.properties}, {"required", tool.required}}},
             {"annotations",
              {{"readOnlyHint", reads},
               {"destructiveHint", tool.name == "delete_recording"},
               {"openWorldHint", false}}}});
    }
    return list;
}

Json AgentTools::call(const std::string& name, const Json& arguments) {
    auto it = std::find_if(m_tools.begin(), m_tools.end(),
                           [&](const Tool& tool) { return tool.name == name; });
    if (it == m_tools.end()) {
        return {{"content", {text("Unknown tool " + name + ".")}}, {"isError", true}};
    }
    const Arguments args(arguments.is_object() ? arguments : Json::object());
    Result<Content> result = it->handler(args);
    if (!result) {
        return {{"content", {text(result.error().message)}}, {"isError", true}};
    }
    return {{"content", *result}, {"isError", false}};
}

void AgentTools::build() {
    using namespace schema;
    std::shared_ptr<Studio> studio = m_studio;

    const ToolContext context{studio};
    auto withEditor = [context](const Arguments& args, const auto& work) {
        return context.withEditor(args, work);
    };
    auto withProject = [context](const std::string& which, const auto& work) {
        return context.withProject(which, work);
    };
    auto edit = [context](const Arguments& args, const auto& change) {
        return context.edit(args, change);
    };
    auto noSource = [](const Arguments&) -> Result<Content> { return AppError(texts::kNoSource); };
    auto add = [this](std::string name, std::string description, Json properties,
                      std::vector<std::string> required, Handler handler) {
        m_tools.push_back({std::move(name), std::move(description), std::move(properties),
                           std::move(required), std::move(handler)});
    };
    const Json id = string("Recording id from list_recordings.");
    const Json seconds = number("Seconds.");

    // --- status, source and looking
    add("get_status",
        "Recording state, the shared source and its screenshot size, Interact and permission "
        "state, recording options, and the recording open in the editor.",
        Json::object(), {},
        [context](const Arguments& args) { return recording_tools::status(context, args); });
    add("choose_source",
        "Opens the sharing picker so the user can pick the window or display to work with, "
        "then waits for their choice.",
        {{"kind", string("What to share.", {"window", "display"})},
         {"wait_seconds", number("How long to wait for the user (default 45).")}},
        {"kind"},
        [context](const Arguments& args) { return recording_tools::chooseSource(context, args); });
    add("screenshot",
        "A current image of the shared window or display. Input tools take pixel coordinates "
        "in this image.",
        Json::object(), {},
        [context](const Arguments& args) { return recording_tools::screenshot(context, args); });
    add("ui_elements",
        "Buttons, links, fields, menus, and text in the shared source with their frames in "
        "screenshot pixels: click the center of an element to hit it exactly.",
        {{"limit", integer("Most elements to list (default 200).")},
         {"filter", string("Only elements whose role or label contains this text.")}},
        {}, noSource);

    // --- input
    const Json x = number("Pixels from the left of the screenshot.");
    const Json y = number("Pixels from the top of the screenshot.");
    add("click", "Clicks at a point in the shared source, in the background.",
        {{"x", x},
         {"y", y},
         {"button", string("Mouse button (default left).", {"left", "right"})},
         {"count", integer("2 for a double-click (default 1).")},
         {"modifiers", modifiers()}},
        {"x", "y"}, noSource);
    add("move_pointer",
        "Moves the visible AI cursor and hovers in the shared app without moving the desktop "
        "mouse. Text inputs show an I-beam.",
        {{"x", x}, {"y", y}, {"duration", number("Move duration in seconds, 0–3 (default 0.25).")}},
        {"x", "y"}, noSource);
    add("drag",
        "Presses at one point, drags to another, and releases (sliders, selections, "
        "reordering).",
        {{"from_x", number("Pixels from the left of the screenshot.")},
         {"from_y", number("Pixels from the top of the screenshot.")},
         {"to_x", number("Pixels from the left of the screenshot.")},
         {"to_y", number("Pixels from the top of the screenshot.")},
         {"steps", integer("Intermediate moves (default 20).")}},
        {"from_x", "from_y", "to_x", "to_y"}, noSource);
    add("scroll",
        "Scrolls whatever is under a point. Positive delta_y scrolls down (reveals content "
        "below); positive delta_x scrolls right.",
        {{"x", x},
         {"y", y},
         {"delta_y", number("Pixels to scroll down (negative scrolls up).")},
         {"delta_x", number("Pixels to scroll right (negative scrolls left).")}},
        {"x", "y", "delta_y", "delta_x"}, noSource);
    add("type_text",
        "Types text into the app (into whatever was last clicked). Use \\n for Return. Quick by "
        "default; give wpm or delay_ms to type at a human pace on camera.",
        {{"text", string("Text to type.")},
         {"wpm", number("Typing speed in words per minute, 5–300 (e.g. 40 calm, 60 normal).")},
         {"delay_ms", number("Milliseconds between characters, 0–1000 (overrides wpm).")}},
        {"text"}, noSource);
    add("press_key",
        "Presses a key, optionally with modifiers (e.g. key \"l\" with [\"command\"], or "
        "\"escape\", \"return\", \"tab\", \"down\").",
        {{"key", string(std::string("A letter, digit, or one of: ") + texts::kNamedKeys)},
         {"modifiers", modifiers()}},
        {"key"}, noSource);
    add("resize_window",
        "Resizes the shared window (window sources only) so takes have a "
        "consistent size.",
        {{"width", number("Points.")}, {"height", number("Points.")}}, {"width", "height"},
        [context](const Arguments& args) { return recording_tools::resizeWindow(context, args); });

    // --- recording
    add("set_options", "Recording options. Only the ones given change.",
        {{"microphone", boolean("Record the microphone.")},
         {"system_audio", boolean("Record app and system sound.")},
         {"countdown", integer("Seconds of countdown before recording: 0, 3, 5, or 10.")},
         {"smooth_cursor",
          boolean("Record the cursor separately so the editor can smooth and resize it.")},
         {"auto_polish",
          boolean("Give new recordings automatic zooms, click highlights, and a backdrop.")},
         {"step_aside", boolean("Switch to the recorded app when recording starts.")},
         {"floating_controls", boolean("Show the floating stop/pause pill while recording.")}},
        {}, [studio](const Arguments& args) { return setOptions(*studio, args); });
    add("start_recording",
        "Starts recording the shared source (after the countdown) and returns once it's "
        "rolling.",
        Json::object(), {},
        [context](const Arguments& args) { return recording_tools::start(context, args); });
    add("stop_recording",
        "Stops recording, waits for the video to be saved, and returns the new recording.",
        Json::object(), {},
        [context](const Arguments& args) { return recording_tools::stop(context, args); });
    add("set_paused",
        "Pauses or resumes the recording. Paused stretches are cut from the video "
        "automatically.",
        {{"paused", boolean("True to pause, false to resume.")}}, {"paused"},
        [context](const Arguments& args) { return recording_tools::setPaused(context, args); });
    add("wait",
        "Waits, on camera when recording, so viewers can follow or the app can finish "
        "something. At most " +
            std::to_string(static_cast<int>(recording_tools::kWaitLimit)) + " seconds.",
        {{"seconds", number("How long")}}, {"seconds"},
        [context](const Arguments& args) { return recording_tools::wait(context, args); });

    // --- library
    add("list_recordings", "Saved recordings, newest first.", Json::object(), {},
        [studio](const Arguments&) -> Result<Content> {
            auto projects = studio->library().load();
            if (!projects) {
                return projects.error();
            }
            Json list = Json::array();
            for (const auto& project : *projects) {
                Json item = {{"id", project.id()},
                             {"title", project.metadata.title},
                             {"created", project.metadata.created}};
                if (project.metadata.duration) {
                    item["duration"] = *project.metadata.duration;
                }
                list.push_back(item);
            }
            return Content{jsonText({{"recordings", list}})};
        });
    add("get_recording",
        "A recording's details: duration, size, its full edit recipe, and when the clicks and "
        "typing happened.",
        {{"id", id}}, {"id"}, [withEditor](const Arguments& args) {
            return withEditor(args, [](EditorModel& editor) -> Result<Content> {
                Json details = {
                    {"id", editor.project().id()},
                    {"title", editor.project().metadata.title},
                    {"duration", editor.duration()},
                    {"size",
                     {{"width", editor.videoSize().width}, {"height", editor.videoSize().height}}},
                    {"edits", project::toJson(editor.edits())},
                    {"finishedDuration", editor.edits().outputDuration()},
                    {"cursor", editor.cursorTrack().has_value()},
                    {"camera", fs::exists(editor.project().file(project::LocalProject::kCamera))}};
                details.update(clicksAndTyping(editor.cursorTrack()));
                return Content{jsonText(details)};
            });
        });
    add("open_recording", "Shows a recording in Quillo's editor.", {{"id", id}}, {"id"},
        [studio](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(which, args.string("id"));
            Result<void> opened;
            studio->onMain([&] { opened = studio->open(which); });
            if (!opened) {
                return opened.error();
            }
            return Content{text("Opened the recording in the editor.")};
        });
    add("rename_recording", "Renames a recording.", {{"id", id}, {"title", string("New title.")}},
        {"id", "title"}, [studio, withProject](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(which, args.string("id"));
            TRY_ASSIGN(title, args.string("title"));
            return withProject(which, [&](project::LocalProject& project) -> Result<Content> {
                TRY_ASSIGN(renamed, project::ProjectLibrary::rename(project, title));
                if (!renamed) {
                    return Content{text("The title was empty; nothing changed.")};
                }
                studio->forget(which);
                return Content{
                    jsonText({{"id", renamed->id()}, {"title", renamed->metadata.title}})};
            });
        });
    add("delete_recording", "Moves a recording to the Trash (recoverable from your file manager).",
        {{"id", id}}, {"id"}, [studio, withProject](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(which, args.string("id"));
            return withProject(which, [&](project::LocalProject& project) -> Result<Content> {
                studio->forget(which);
                if (auto trashed = project::ProjectLibrary::moveToTrash(project); !trashed) {
                    return trashed.error();
                }
                return Content{text("Moved “" + project.metadata.title + "” to the Trash.")};
            });
        });

    // --- editing
    add("set_edits",
        "Replaces a recording's whole edit recipe (the `edits` object from get_recording). "
        "Validated; rejected recipes change nothing.",
        {{"id", id},
         {"edits",
          {{"type", "object"},
           {"description",
            "trimStart, trimEnd, zooms [{start,end,scale 1–4,x,y,follow}], segments "
            "[{start,end,speed (0 = cut, 1.5–16 = speed-up)}], aspect (\"16:9\", \"4:3\", "
            "\"1:1\", \"9:16\"), frame {background 0–5, padding 0–0.25, cornerRadius 0–0.1, "
            "shadow}, clickHighlights, cursor {visible,size,smoothing,hideWhenIdle,theme "
            "(\"violet\", \"midnight\", \"paper\", \"sketch\", or animated \"neon\", \"prism\", "
            "\"gold\"; omit for the system cursor)}, version 1."}}}},
        {"id", "edits"}, [edit](const Arguments& args) -> Result<Content> {
            if (!args.raw("edits").is_object()) {
                return Arguments::invalid("edits");
            }
            TRY_ASSIGN(recipe, project::editsFromJson(args.raw("edits")));
            return edit(args, [&](Edits& edits, EditorModel&) -> Result<void> {
                edits = recipe;
                return {};
            });
        });
    add("trim", "Sets where the video starts and ends.",
        {{"id", id}, {"start", seconds}, {"end", seconds}}, {"id", "start", "end"},
        [edit](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(start, args.number("start"));
            TRY_ASSIGN(end, args.number("end"));
            return edit(args, [&](Edits& edits, EditorModel&) -> Result<void> {
                edits.trimStart = start;
                edits.trimEnd = end;
                return {};
            });
        });
    add("add_zoom",
        "Adds a zoom. It eases in and out over its first and last half second; with follow it "
        "tracks the cursor (or the text caret while typing).",
        {{"id", id},
         {"start", seconds},
         {"end", seconds},
         {"scale", number("Magnification 1–4 (default 2).")},
         {"x", number("Focus 0–1 from the left (default 0.5).")},
         {"y", number("Focus 0–1 from the top (default 0.5).")},
         {"follow", boolean("Follow the cursor instead of a fixed focus.")}},
        {"id", "start", "end", "follow"}, [edit](const Arguments& args) -> Result<Content> {
            project::ZoomSection zoom;
            TRY_ASSIGN(start, args.number("start"));
            TRY_ASSIGN(end, args.number("end"));
            TRY_ASSIGN(scale, args.optionalNumber("scale"));
            TRY_ASSIGN(fx, args.optionalNumber("x"));
            TRY_ASSIGN(fy, args.optionalNumber("y"));
            TRY_ASSIGN(follow, args.optionalBoolean("follow"));
            zoom.start = start;
            zoom.end = end;
            zoom.scale = scale.value_or(2);
            zoom.x = fx.value_or(0.5);
            zoom.y = fy.value_or(0.5);
            zoom.follow = follow;
            return edit(args, [&](Edits& edits, EditorModel&) -> Result<void> {
                edits.zooms.push_back(zoom);
                project::sortByStart(edits.zooms);
                return {};
            });
        });
    add("update_zoom", "Changes a zoom (index from get_recording). Only the fields given change.",
        {{"id", id},
         {"index", integer("Zoom index.")},
         {"start", seconds},
         {"end", seconds},
         {"scale", number("Magnification 1–4.")},
         {"x", number("Focus 0–1 from the left.")},
         {"y", number("Focus 0–1 from the top.")},
         {"follow", boolean("Follow the cursor.")}},
        {"id", "index"}, [edit](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(index, args.integer("index"));
            TRY_ASSIGN(start, args.optionalNumber("start"));
            TRY_ASSIGN(end, args.optionalNumber("end"));
            TRY_ASSIGN(scale, args.optionalNumber("scale"));
            TRY_ASSIGN(fx, args.optionalNumber("x"));
            TRY_ASSIGN(fy, args.optionalNumber("y"));
            TRY_ASSIGN(follow, args.optionalBoolean("follow"));
            return edit(args, [&](Edits& edits, EditorModel&) -> Result<void> {
                if (index < 0 || index >= static_cast<int64_t>(edits.zooms.size())) {
                    return AppError(texts::noZoom(index));
                }
                auto& zoom = edits.zooms[static_cast<size_t>(index)];
                zoom.start = start.value_or(zoom.start);
                zoom.end = end.value_or(zoom.end);
                zoom.scale = scale.value_or(zoom.scale);
                zoom.x = fx.value_or(zoom.x);
                zoom.y = fy.value_or(zoom.y);
                if (follow) {
                    zoom.follow = *follow;
                }
                project::sortByStart(edits.zooms);
                return {};
            });
        });
    add("remove_zoom", "Removes a zoom by index.", {{"id", id}, {"index", integer("Zoom index.")}},
        {"id", "index"}, [edit](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(index, args.integer("index"));
            return edit(args, [&](Edits& edits, EditorModel&) -> Result<void> {
                return eraseAt(edits.zooms, index, texts::noZoom(index));
            });
        });
    add("auto_zoom",
        "Replaces all zooms with automatic ones around the recorded clicks and typing.",
        {{"id", id}, {"scale", number("Magnification (default 1.8).")}}, {"id"},
        [edit](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(scale, args.optionalNumber("scale"));
            return edit(args, [&](Edits& edits, EditorModel& editor) -> Result<void> {
                if (!editor.cursorTrack()) {
                    return AppError(texts::kNoCursorData);
                }
                edits.zooms =
                    editor::autoZooms(*editor.cursorTrack(), edits.trimStart, edits.trimEnd,
                                      edits.timing(), scale.value_or(editor::kAutoZoomScale));
                return {};
            });
        });
    add("add_segment", "Cuts a stretch (speed 0) or speeds it up (speed 1.5–16).",
        {{"id", id},
         {"start", seconds},
         {"end", seconds},
         {"speed", number("0 cuts; 1.5–16 speeds up.")}},
        {"id", "start", "end", "speed"}, [edit](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(start, args.number("start"));
            TRY_ASSIGN(end, args.number("end"));
            TRY_ASSIGN(speed, args.number("speed"));
            return edit(args, [&](Edits& edits, EditorModel&) -> Result<void> {
                std::vector<project::TimeSegment> segments = edits.timing();
                segments.push_back({start, end, speed});
                project::sortByStart(segments);
                edits.segments = segments;
                return {};
            });
        });
    add("remove_segment", "Removes a cut or speed-up by index.",
        {{"id", id}, {"index", integer("Segment index.")}}, {"id", "index"},
        [edit](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(index, args.integer("index"));
            return edit(args, [&](Edits& edits, EditorModel&) -> Result<void> {
                std::vector<project::TimeSegment> segments = edits.timing();
                if (auto erased = eraseAt(segments, index, texts::noSegment(index)); !erased) {
                    return erased;
                }
                edits.segments = segments.empty() ? std::nullopt : std::optional(segments);
                return {};
            });
        });
    std::vector<std::string> aspects;
    for (const auto& [aspect, raw] : EnumTable<project::AspectRatio>::cases) {
        aspects.emplace_back(raw);
    }
    add("set_style",
        "The look: backdrop, canvas shape, click highlights, and cursor. Only the fields given "
        "change.",
        {{"id", id},
         {"backdrop", boolean("Show the gradient backdrop frame.")},
         {"background",
          integer("Backdrop colors: 0 Violet, 1 Ocean, 2 Sunset, 3 Forest, 4 Graphite, 5 Paper.")},
         {"padding", number("Backdrop padding 0–0.25 of the short edge.")},
         {"corner_radius", number("Backdrop corner radius 0–0.1 of the short edge.")},
         {"shadow", boolean("Drop shadow.")},
         {"aspect", string("Canvas shape.", aspects)},
         {"click_highlights", boolean("Rings where clicks happened.")},
         {"cursor_visible", boolean("Draw the cursor (smooth-cursor recordings).")},
         {"cursor_size", number("Cursor size multiplier (default 1.4).")},
         {"cursor_smoothing", number("0 (raw) – 1 seconds.")},
         {"cursor_hide_when_idle", boolean("Fade the cursor out when it rests.")},
         {"cursor_theme",
          string("Cursor style: system (the recorded cursor) or a theme; neon, prism, and gold "
                 "are animated.",
                 {"system", "violet", "midnight", "paper", "sketch", "neon", "prism", "gold"})}},
        {"id"}, [edit](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(backdrop, args.optionalBoolean("backdrop"));
            TRY_ASSIGN(background, args.optionalInteger("background"));
            TRY_ASSIGN(padding, args.optionalNumber("padding"));
            TRY_ASSIGN(radius, args.optionalNumber("corner_radius"));
            TRY_ASSIGN(shadow, args.optionalBoolean("shadow"));
            TRY_ASSIGN(aspect, args.optionalString("aspect"));
            TRY_ASSIGN(highlights, args.optionalBoolean("click_highlights"));
            TRY_ASSIGN(visible, args.optionalBoolean("cursor_visible"));
            TRY_ASSIGN(size, args.optionalNumber("cursor_size"));
            TRY_ASSIGN(smoothing, args.optionalNumber("cursor_smoothing"));
            TRY_ASSIGN(idle, args.optionalBoolean("cursor_hide_when_idle"));
            TRY_ASSIGN(theme, args.optionalString("cursor_theme"));
            std::optional<project::AspectRatio> shape;
            if (aspect) {
                shape = fromRawValue<project::AspectRatio>(*aspect);
                if (!shape) {
                    return Arguments::invalid("aspect");
                }
            }
            return edit(args, [&](Edits& edits, EditorModel&) -> Result<void> {
                bool framed = backdrop.value_or(edits.frame.has_value()) ||
                              (!backdrop && (background || padding || radius || shadow));
                if (!framed) {
                    edits.frame.reset();
                } else {
                    project::FrameStyle frame = edits.frame.value_or(project::FrameStyle{});
                    frame.background = background.value_or(frame.background);
                    frame.padding = padding.value_or(frame.padding);
                    frame.cornerRadius = radius.value_or(frame.cornerRadius);
                    frame.shadow = shadow.value_or(frame.shadow);
                    edits.frame = frame;
                }
                if (shape) {
                    edits.aspect = *shape;
                }
                if (highlights) {
                    edits.clickHighlights = *highlights;
                }
                if (visible || size || smoothing || idle || theme) {
                    project::CursorStyle cursor = edits.cursor.value_or(project::CursorStyle{});
                    cursor.visible = visible.value_or(cursor.visible);
                    cursor.size = size.value_or(cursor.size);
                    cursor.smoothing = smoothing.value_or(cursor.smoothing);
                    cursor.hideWhenIdle = idle.value_or(cursor.hideWhenIdle);
                    if (theme) {
                        cursor.theme = *theme == "system" ? std::nullopt : std::optional(*theme);
                    }
                    edits.cursor = cursor;
                }
                return {};
            });
        });
    add("undo", "Undoes the last edit to a recording.", {{"id", id}}, {"id"},
        [withEditor](const Arguments& args) {
            return withEditor(args, [](EditorModel& editor) -> Result<Content> {
                if (!editor.canUndo()) {
                    return AppError(texts::kNothingToUndo);
                }
                editor.undo();
                return Content{jsonText({{"edits", project::toJson(editor.edits())}})};
            });
        });
    add("redo", "Redoes the last undone edit.", {{"id", id}}, {"id"},
        [withEditor](const Arguments& args) {
            return withEditor(args, [](EditorModel& editor) -> Result<Content> {
                if (!editor.canRedo()) {
                    return AppError(texts::kNothingToRedo);
                }
                editor.redo();
                return Content{jsonText({{"edits", project::toJson(editor.edits())}})};
            });
        });
    add("render_frame",
        "The finished video's frame at a moment (zooms, backdrop, cursor, and highlights "
        "applied), to check an edit.",
        {{"id", id}, {"time", number("Seconds on the recording's timeline.")}}, {"id", "time"},
        [withEditor](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(time, args.number("time"));
            fs::path folder;
            Edits edits;
            double duration = 0;
            auto found = withEditor(args, [&](EditorModel& editor) -> Result<Content> {
                folder = editor.project().directory;
                edits = editor.edits();
                duration = editor.duration();
                return Content{};
            });
            if (!found) {
                return found.error();
            }
            // Rendering runs here on the tool's own thread, not on the main queue.
            TRY_ASSIGN(plan, render::renderPlan(folder, edits, 1280.0));
            TRY_ASSIGN(frame, render::renderFrame(plan, std::clamp(time, 0.0, duration)));
            TRY_ASSIGN(bytes, encodeJPEG(frame));
            return Content{jpeg(bytes)};
        });
    add("export",
        "Renders the finished video and returns its file path. Waits until it's done. A preset "
        "sets shape, size, format, and frame rate for a platform without changing the "
        "recording's edits: " +
            presetList(),
        {{"id", id},
         {"preset",
          string("Platform preset (default custom, which uses format and size).", presetIds())},
         {"reframe",
          boolean("For reels, linkedin_square, and linkedin_portrait: true (default) crops to "
                  "fill the canvas and follows the pointer or text caret; false fits the whole "
                  "recording on a backdrop.")},
         {"format", string("File type (default mp4). Ignored with a preset.", {"mp4", "gif"})},
         {"size", string("Resolution (default original). GIFs are capped at 960 px. Ignored "
                         "with a preset.",
                         {"original", "1080p", "720p"})},
         {"path", string("Where to save (default: the library's Exports folder).")}},
        {"id"}, [studio, context, withEditor](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(presetText, args.optionalString("preset"));
            TRY_ASSIGN(reframe, args.optionalBoolean("reframe"));
            TRY_ASSIGN(formatText, args.optionalString("format"));
            TRY_ASSIGN(sizeText, args.optionalString("size"));
            TRY_ASSIGN(path, args.optionalString("path"));
            auto preset = fromRawValue<render::ExportPreset>(presetText.value_or("custom"));
            if (!preset) {
                return Arguments::invalid("preset");
            }
            render::ExportFormat format = render::ExportFormat::MP4;
            if (formatText && *formatText != "mp4" && *formatText != "gif") {
                return Arguments::invalid("format");
            }
            if (formatText == "gif") {
                format = render::ExportFormat::GIF;
            }
            render::ExportSize size = render::ExportSize::Original;
            if (sizeText) {
                if (*sizeText == "1080p") {
                    size = render::ExportSize::P1080;
                } else if (*sizeText == "720p") {
                    size = render::ExportSize::P720;
                } else if (*sizeText != "original") {
                    return Arguments::invalid("size");
                }
            }
            fs::path folder;
            render::ExportSpec spec;
            std::string title;
            EditorModel* editor = nullptr;
            auto found = withEditor(args, [&](EditorModel& model) -> Result<Content> {
                if (model.exporting()) {
                    return AppError(texts::kExportRunning);
                }
                folder = model.project().directory;
                title = model.project().metadata.title;
                spec = render::exportSpec(*preset, model.edits(), model.videoSize(),
                                          reframe.value_or(true), format, size);
                model.setExporting(true);
                editor = &model;
                return Content{};
            });
            if (!found) {
                return found.error();
            }
            auto destination =
                render::exportDestination(path ? std::optional<fs::path>(*path) : std::nullopt,
                                          studio->library().root(), spec.fileName(title));
            if (!destination) {
                studio->onMain([&] { editor->setExporting(false); });
                return destination.error();
            }
            auto done = render::exportRecording(folder, spec, *destination, nullptr, {});
            studio->onMain([&] { editor->setExporting(false); });
            if (!done) {
                return done.error();
            }
            return Content{jsonText({{"path", destination->string()}})};
        });

    // --- dead time, captions, camera, redaction
    // Dead time: the recording is analysed once (on this worker thread) and the timeline kept.
    auto deadTimeOptions = [](const Arguments& args) -> Result<editor::DeadTimeOptions> {
        editor::DeadTimeOptions options;
        TRY_ASSIGN(minimum, args.optionalNumber("min_seconds"));
        TRY_ASSIGN(action, args.optionalString("action"));
        TRY_ASSIGN(speed, args.optionalNumber("speed"));
        if (minimum && !(*minimum >= 0.5 && *minimum <= 60)) {
            return AppError("min_seconds must be between 0.5 and 60.");
        }
        if (speed && !(*speed >= 2 && *speed <= 8)) {
            return AppError("speed must be between 2 and 8.");
        }
        if (action) {
            auto parsed = fromRawValue<editor::DeadTimeAction>(*action);
            if (!parsed) {
                return AppError("action must be auto, speed_up, or cut.");
            }
            options.action = *parsed;
        }
        options.minimumLength = minimum.value_or(options.minimumLength);
        options.speed = speed.value_or(options.speed);
        return options;
    };
    auto timelines = std::make_shared<DeadTimeCache>();
    auto deadTime = [withEditor, deadTimeOptions, timelines](const Arguments& args,
                                                             bool apply) -> Result<Content> {
        TRY_ASSIGN(options, deadTimeOptions(args));
        TRY_ASSIGN(which, args.string("id"));
        fs::path movie;
        std::optional<project::CursorTrack> track;
        double duration = 0;
        auto found = withEditor(args, [&](EditorModel& editor) -> Result<Content> {
            movie = editor.project().recordingFile();
            track = editor.cursorTrack();
            duration = editor.duration();
            return Content{};
        });
        if (!found) {
            return found.error();
        }
        std::shared_ptr<const editor::ActivityTimeline> timeline = timelines->find(which);
        if (!timeline) {
            TRY_ASSIGN(analysed, editor::dead_time::analyze(movie, track ? &*track : nullptr, 0,
                                                            duration, nullptr, CancelToken{}));
            timeline = timelines->keep(which, std::move(analysed));
        }
        return withEditor(args, [&](EditorModel& editor) -> Result<Content> {
            editor::DeadTimeResult result;
            result.segments = editor::dead_time::segments(*timeline, editor.edits(), options);
            Json stretches = Json::array();
            for (const auto& segment : result.segments) {
                stretches.push_back({{"start", segment.start},
                                     {"end", segment.end},
                                     {"speed", segment.speed},
                                     {"action", segment.speed == 0 ? "cut" : "speed up"}});
            }
            if (apply && !result.segments.empty()) {
                if (editor.exporting()) {
                    return AppError(texts::kExportRunning);
                }
                const Edits before = editor.edits();
                Edits candidate = editor::dead_time::merge(result.segments, before);
                if (!(candidate.outputDuration() > 0.5)) {
                    return AppError(editor::texts::kWholeClipIdle);
                }
                if (!editor.commit(candidate)) {
                    return AppError(editor.status());
                }
                result.saved = before.outputDuration() - candidate.outputDuration();
            }
            Json answer = {{"rule", options.rule()}, {"stretches", stretches}};
            if (apply) {
                answer["summary"] = result.summary();
                answer["duration"] = editor.edits().outputDuration();
            }
            return Content{jsonText(answer)};
        });
    };
    const Json deadTimeArguments = {
        {"id", id},
        {"min_seconds", number("How long everything must be idle to count (default 1.5, 0.5–60).")},
        {"action", string("auto speeds stretches up and cuts any longer than " +
                              std::to_string(static_cast<int>(editor::DeadTimeOptions::kCutAfter)) +
                              " s (default).",
                          {"auto", "speed_up", "cut"})},
        {"speed", number("Speed-up for sped-up stretches, 2–8 (default 4).")}};
    add("find_dead_time",
        "Lists idle stretches inside the clip (no pointer movement, clicks, typing, sound, or "
        "visible screen change) and what remove_dead_time would do with each. Changes nothing. "
        "The first call analyzes the video, which takes a few seconds per minute.",
        deadTimeArguments, {"id"},
        [deadTime](const Arguments& args) { return deadTime(args, false); });
    add("remove_dead_time",
        "Speeds up or cuts the idle stretches find_dead_time lists, as one undoable edit. "
        "Existing cuts and speed-ups are kept; stretches are fitted around them.",
        deadTimeArguments, {"id"},
        [deadTime](const Arguments& args) { return deadTime(args, true); });
    add("generate_captions",
        "Transcribes the recording's speech on this computer (nothing is uploaded) into timed "
        "captions and turns them on. Replaces existing captions. Waits until done; long "
        "recordings or a first-time language model download can take a while.",
        {{"id", id},
         {"language", string("Locale identifier such as en_US or de_DE (default: the user's "
                             "caption language, else the system's).")}},
        {"id"},
        [context](const Arguments& args) { return caption_tools::generate(context, args); });
    add("get_captions",
        "The recording's captions (index, start, end, text; seconds on the recording's "
        "timeline) and their style.",
        {{"id", id}}, {"id"},
        [context](const Arguments& args) { return caption_tools::get(context, args); });
    add("set_captions",
        "Replaces all captions. Times are seconds on the recording's timeline, in order, not "
        "overlapping. Lines whose times are unchanged keep their word timings.",
        {{"id", id},
         {"segments",
          {{"type", "array"},
           {"description", "The captions."},
           {"items",
            {{"type", "object"},
             {"properties",
              {{"start", seconds}, {"end", seconds}, {"text", string("What's said.")}}},
             {"required", {"start", "end", "text"}}}}}}},
        {"id", "segments"},
        [context](const Arguments& args) { return caption_tools::set(context, args); });
    add("set_caption_style", "How captions look in the video. Only the fields given change.",
        {{"id", id},
         {"visible", boolean("Burn captions into the video.")},
         {"size", number("Text size multiplier, 0.5–2.5 (default 1).")},
         {"position", string("Where captions sit on the canvas.", {"bottom", "top"})},
         {"background", string("A dark rounded backdrop behind the text, or none (shadowed "
                               "text).",
                               {"pill", "none"})},
         {"max_characters", integer("Characters per line, 12–80; captions show at most two "
                                    "lines at a time.")},
         {"highlight_words", boolean("Highlight each word as it's spoken.")}},
        {"id"},
        [context](const Arguments& args) { return caption_tools::setStyle(context, args); });
    add("export_captions",
        "Writes the captions as a subtitle file timed to the finished video (trim, cuts, and "
        "speed-ups applied) and returns its path.",
        {{"id", id},
         {"format", string("Subtitle format (default srt).", {"srt", "vtt"})},
         {"path", string("Where to save (default: the library's Exports folder).")}},
        {"id"},
        [context](const Arguments& args) { return caption_tools::exportFile(context, args); });
    std::vector<std::string> layouts;
    for (const auto& [layout, raw] : EnumTable<project::CameraLayout>::cases) {
        layouts.emplace_back(raw);
    }
    add("set_camera",
        "Lays out the webcam recorded with a recording (see `camera` in get_recording). Only the "
        "fields given change; the camera is never zoomed.",
        {{"id", id},
         {"layout", string("Where the camera goes: off, a corner bubble, side by side, or on its "
                           "own.",
                           layouts)},
         {"shape", string("Camera shape.", {"circle", "rounded"})},
         {"size", number("0.1–0.5: corner bubbles are this fraction of the canvas's short "
                         "edge; side by side, of its width.")},
         {"corner_radius", number("Rounded shape's corner radius, 0–0.5 of its short edge.")},
         {"mirror", boolean("Flip the camera horizontally.")},
         {"shadow", boolean("Soft shadow under the camera.")}},
        {"id"}, [edit](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(layout, args.optionalString("layout"));
            TRY_ASSIGN(shape, args.optionalString("shape"));
            TRY_ASSIGN(size, args.optionalNumber("size"));
            TRY_ASSIGN(radius, args.optionalNumber("corner_radius"));
            TRY_ASSIGN(mirror, args.optionalBoolean("mirror"));
            TRY_ASSIGN(shadow, args.optionalBoolean("shadow"));
            std::optional<project::CameraLayout> where;
            std::optional<project::CameraShape> form;
            if (layout && !(where = fromRawValue<project::CameraLayout>(*layout))) {
                return Arguments::invalid("layout");
            }
            if (shape && !(form = fromRawValue<project::CameraShape>(*shape))) {
                return Arguments::invalid("shape");
            }
            return edit(args, [&](Edits& edits, EditorModel&) -> Result<void> {
                project::CameraStyle camera = edits.camera.value_or(project::CameraStyle{});
                camera.layout = where.value_or(camera.layout);
                camera.shape = form.value_or(camera.shape);
                camera.size = size.value_or(camera.size);
                camera.cornerRadius = radius.value_or(camera.cornerRadius);
                camera.mirror = mirror.value_or(camera.mirror);
                camera.shadow = shadow.value_or(camera.shadow);
                edits.camera = camera;
                return {};
            });
        });
    add("add_redaction",
        "Hides an area of the recording for a stretch of time (blur, pixelate, or a solid box). "
        "It moves and scales with zooms and never covers the cursor.",
        {{"id", id},
         {"start", seconds},
         {"end", seconds},
         {"x", number("Left edge, 0–1 from the left.")},
         {"y", number("Top edge, 0–1 from the top.")},
         {"width", number("0–1 of the frame width.")},
         {"height", number("0–1 of the frame height.")},
         {"style", string("How to hide it (default blur).", {"blur", "pixelate", "box"})},
         {"strength", number("Blur amount or block size, 0–1 (default 0.6).")},
         {"color", string("Box color as #RRGGBB (default black).")}},
        {"id", "start", "end", "x", "y", "width", "height"},
        [edit](const Arguments& args) -> Result<Content> {
            project::Redaction redaction;
            TRY_ASSIGN(start, args.number("start"));
            TRY_ASSIGN(end, args.number("end"));
            TRY_ASSIGN(rx, args.number("x"));
            TRY_ASSIGN(ry, args.number("y"));
            TRY_ASSIGN(width, args.number("width"));
            TRY_ASSIGN(height, args.number("height"));
            TRY_ASSIGN(style, args.optionalString("style"));
            TRY_ASSIGN(strength, args.optionalNumber("strength"));
            TRY_ASSIGN(colour, args.optionalString("color"));
            redaction.start = start;
            redaction.end = end;
            redaction.x = rx;
            redaction.y = ry;
            redaction.width = width;
            redaction.height = height;
            redaction.strength = strength.value_or(0.6);
            if (style) {
                auto parsed = fromRawValue<project::RedactionStyle>(*style);
                if (!parsed) {
                    return Arguments::invalid("style");
                }
                redaction.style = *parsed;
            }
            if (colour) {
                unsigned rgb = 0;
                if (colour->size() != 7 || (*colour)[0] != '#' ||
                    std::sscanf(colour->c_str() + 1, "%6x", &rgb) != 1) {
                    return Arguments::invalid("color");
                }
                redaction.color = std::vector<double>{
                    ((rgb >> 16) & 255) / 255.0, ((rgb >> 8) & 255) / 255.0, (rgb & 255) / 255.0};
            }
            return edit(args, [&](Edits& edits, EditorModel&) -> Result<void> {
                std::vector<project::Redaction> list = edits.redactionList();
                list.push_back(redaction);
                project::sortByStart(list);
                edits.redactions = list;
                return {};
            });
        });
    add("remove_redaction", "Removes a redaction by index (from get_recording's edits.redactions).",
        {{"id", id}, {"index", integer("Redaction index.")}}, {"id", "index"},
        [edit](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(index, args.integer("index"));
            return edit(args, [&](Edits& edits, EditorModel&) -> Result<void> {
                std::vector<project::Redaction> list = edits.redactionList();
                if (auto erased = eraseAt(list, index, texts::noRedaction(index)); !erased) {
                    return erased;
                }
                edits.redactions = list.empty() ? std::nullopt : std::optional(list);
                return {};
            });
        });
    add("find_sensitive_info",
        "Reads the text in the clip on-device and proposes redactions for emails, API keys and "
        "tokens, card numbers, phone numbers, and IP addresses. With apply, adds them too. "
        "Takes a while for long clips.",
        {{"id", id},
         {"apply", boolean("Add the proposed redactions (default false: only report them).")}},
        {"id"}, [context](const Arguments& args) { return findSensitiveInfo(context, args); });

    // --- demo steps and markers
    add("demo_step",
        "Plays one demo step in a single call, so your thinking time between calls stays out of "
        "the video: resumes a paused recording, marks the step with its label, glides the AI "
        "cursor to x, y, rests, clicks, types text at a human pace, presses a key, holds the "
        "result, and pauses the recording again. Also works without recording, for rehearsals.",
        {{"label", string("Step title, added as a marker while recording. Leave it out when "
                          "redoing a step.")},
         {"x", x},
         {"y", y},
         {"click", string("What to do at x, y (default left; none only hovers).",
                          {"left", "double", "right", "none"})},
         {"text", string("Text to type after the click. Use \\n for Return.")},
         {"key", string("A key to press last, like return or tab.")},
         {"modifiers", modifiers()},
         {"pace",
          string("Timing (default: the demo pace from Settings).", {"calm", "normal", "brisk"})},
         {"after", number("Seconds to hold on the result (default from the pace, at most 30).")},
         {"pause_after", boolean("Pause the recording once the step is done (default true).")}},
        {"x", "y"}, noSource);
    add("retake_step",
        "Cuts a failed attempt at the current step: everything since the last marker is removed "
        "from the video and the recording pauses, so you can put the app back. Then redo the "
        "step with demo_step and no label; the step's marker stays where it began.",
        Json::object(), {}, noSource);
    add("add_marker",
        "Labels a moment, like the start of a demo step. While recording it marks now; for a "
        "saved recording give its id and a time. Markers become chapters (get_markers).",
        {{"label", string("Short title, like \"Add a contact\".")},
         {"id", string("Recording id (default: the recording in progress).")},
         {"time", number("Seconds on the recording's timeline (default now).")}},
        {"label"}, [withProject, studio](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(label, args.string("label"));
            TRY_ASSIGN(which, args.optionalString("id"));
            TRY_ASSIGN(at, args.optionalNumber("time"));
            if (!which) {
                // While recording, the mark goes into the recording under way, at now.
                auto now = studio->recordingNow();
                if (!now) {
                    return AppError(texts::kNoRecordingInProgress);
                }
                which = now->first;
                at = at.value_or(now->second);
            }
            if (!at) {
                return Arguments::invalid("time");
            }
            double time = *at;
            return withProject(*which, [&](project::LocalProject& project) -> Result<Content> {
                TRY_ASSIGN(list, markers::add(label, time, project.directory));
                return Content{jsonText({{"markers", list.size()}})};
            });
        });
    add("remove_marker", "Removes a marker by index (from get_markers).",
        {{"id", id}, {"index", integer("Marker index.")}}, {"id", "index"},
        [withProject](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(which, args.string("id"));
            TRY_ASSIGN(index, args.integer("index"));
            return withProject(which, [&](project::LocalProject& project) -> Result<Content> {
                auto list = markers::load(project.directory);
                if (auto erased = eraseAt(list, index, texts::noMarker(index)); !erased) {
                    return erased.error();
                }
                if (auto saved = markers::save(list, project.directory); !saved) {
                    return saved.error();
                }
                return Content{jsonText({{"markers", list.size()}})};
            });
        });
    add("get_markers",
        "A recording's markers, where each lands in the finished video (after trims and cuts), "
        "and YouTube chapters: the first at 0:00, each at least 10 s, short steps merged.",
        {{"id", id}}, {"id"}, [withEditor](const Arguments& args) {
            return withEditor(args, [](EditorModel& editor) -> Result<Content> {
                const Edits& edits = editor.edits();
                const double duration = edits.outputDuration();
                std::vector<DemoMarker> list = markers::load(editor.project().directory);
                Json items = Json::array();
                for (size_t i = 0; i < list.size(); ++i) {
                    items.push_back({{"index", i},
                                     {"label", list[i].label},
                                     {"time", list[i].time},
                                     {"finishedTime", edits.outputTime(list[i].time)}});
                }
                std::vector<Chapter> chapters = markers::chapters(list, &edits, duration);
                Json chapterItems = Json::array();
                for (const Chapter& chapter : chapters) {
                    chapterItems.push_back(
                        {{"start", chapter.start},
                         {"timestamp", markers::timestamp(chapter.start, duration >= 3600)},
                         {"title", chapter.title}});
                }
                return Content{jsonText({{"markers", items},
                                         {"chapters", chapterItems},
                                         {"text", markers::text(chapters, duration)},
                                         {"youTubeReady", markers::youTubeReady(chapters)}})};
            });
        });

    // --- self-test
    add("share_window",
        "Self-test only: shares an on-screen window by its app's process id and/or title, "
        "without the sharing picker.",
        {{"pid", integer("Owning process id.")}, {"title", string("Part of the window's title.")}},
        {},
        [context](const Arguments& args) { return recording_tools::shareWindow(context, args); });
}

}  // namespace quillo::agent
