// The editing tools: the recipe, trim, zooms, cuts and speed-ups, style, undo, camera and
// redactions.

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
#include "tool_families.h"

namespace quillo::agent::families {

namespace fs = std::filesystem;
using editor::EditorModel;
using project::Edits;

void addEditingTools(const AddTool& add, const ToolContext& context) {
    using namespace schema;
    auto withEditor = [context](const Arguments& args, const auto& work) {
        return context.withEditor(args, work);
    };
    auto edit = [context](const Arguments& args, const auto& change) {
        return context.edit(args, change);
    };
    const Json id = recordingId();
    const Json seconds = number("Seconds.");

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
                return Content{jsonItem({{"edits", project::toJson(editor.edits())}})};
            });
        });
    add("redo", "Redoes the last undone edit.", {{"id", id}}, {"id"},
        [withEditor](const Arguments& args) {
            return withEditor(args, [](EditorModel& editor) -> Result<Content> {
                if (!editor.canRedo()) {
                    return AppError(texts::kNothingToRedo);
                }
                editor.redo();
                return Content{jsonItem({{"edits", project::toJson(editor.edits())}})};
            });
        });
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
}

}  // namespace quillo::agent::families
