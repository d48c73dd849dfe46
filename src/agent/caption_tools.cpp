#include "caption_tools.h"

#include <cmath>
#include <future>

#include "agent_texts.h"
#include "base/files.h"
#include "captions/caption_jobs.h"
#include "captions/caption_track.h"
#include "editor/editor_model.h"
#include "project/edits_json.h"
#include "render/export_preset.h"
#include "tool_families.h"

namespace quillo::agent::caption_tools {

namespace fs = std::filesystem;
using captions::CaptionSegment;
using captions::CaptionTrack;
using editor::EditorModel;

namespace {

// The track of a recording: none when it has no captions file, an error when it can't be read.
Result<std::optional<CaptionTrack>> loadTrack(const fs::path& folder) {
    std::error_code error;
    if (!fs::exists(folder / CaptionTrack::kFileName, error)) {
        return std::optional<CaptionTrack>();
    }
    auto track = CaptionTrack::load(folder);
    if (!track) {
        return track.error();
    }
    return std::optional<CaptionTrack>(std::move(*track));
}

Json describe(const std::optional<CaptionTrack>& track, const project::Edits& edits) {
    Json list = Json::array();
    if (track) {
        for (size_t i = 0; i < track->segments.size(); ++i) {
            const CaptionSegment& segment = track->segments[i];
            list.push_back({{"index", i},
                            {"start", segment.start},
                            {"end", segment.end},
                            {"text", segment.text}});
        }
    }
    Json result = {{"captions", list},
                   {"style", project::toJson(edits.captions.value_or(project::CaptionStyle{}))},
                   {"visible", edits.captions.has_value() && edits.captions->visible}};
    if (track) {
        result["locale"] = track->locale;
        result["engine"] = track->engine;
    }
    return result;
}

// Makes the recipe show captions, keeping a style the user already chose.
bool showCaptions(EditorModel& editor) {
    project::Edits candidate = editor.edits();
    project::CaptionStyle style = candidate.captions.value_or(project::CaptionStyle{});
    if (candidate.captions && style.visible) {
        return true;
    }
    style.visible = true;
    candidate.captions = style;
    return editor.commit(std::move(candidate), editor::Rebuild::No);
}

Result<std::vector<CaptionSegment>> readSegments(const Arguments& args) {
    const Json& raw = args.raw("segments");
    if (!raw.is_array()) {
        return Arguments::invalid("segments");
    }
    std::vector<CaptionSegment> segments;
    for (const Json& item : raw) {
        if (!item.is_object() || !item.contains("start") || !item["start"].is_number() ||
            !item.contains("end") || !item["end"].is_number() || !item.contains("text") ||
            !item["text"].is_string()) {
            return Arguments::invalid("segments");
        }
        CaptionSegment segment;
        segment.start = item["start"].get<double>();
        segment.end = item["end"].get<double>();
        segment.text = item["text"].get<std::string>();
        segments.push_back(std::move(segment));
    }
    return segments;
}

}  // namespace

Result<Content> generate(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(id, args.string("id"));
    TRY_ASSIGN(language, args.optionalString("language"));
    std::string locale = language.value_or(context.studio->captionLanguage());
    fs::path movie;
    fs::path folder;
    auto found = context.withProject(id, [&](project::LocalProject& project) -> Result<Content> {
        movie = project.recordingFile();
        folder = project.directory;
        return Content{};
    });
    if (!found) {
        return found.error();
    }
    std::promise<Result<CaptionTrack>> finished;
    auto started = context.studio->captionJobs().start(
        id, movie, folder, locale,
        [&finished](const Result<CaptionTrack>& track) { finished.set_value(track); });
    if (!started) {
        return started.error();
    }
    Result<CaptionTrack> track = finished.get_future().get();
    if (!track) {
        return track.error();
    }
    return context.withEditor(args, [&](EditorModel& editor) -> Result<Content> {
        if (!showCaptions(editor)) {
            return AppError(editor.status());
        }
        return Content{jsonItem(describe(*track, editor.edits()))};
    });
}

Result<Content> get(const ToolContext& context, const Arguments& args) {
    return context.withEditor(args, [&](EditorModel& editor) -> Result<Content> {
        TRY_ASSIGN(track, loadTrack(editor.project().directory));
        return Content{jsonItem(describe(track, editor.edits()))};
    });
}

Result<Content> set(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(segments, readSegments(args));
    return context.withEditor(args, [&](EditorModel& editor) -> Result<Content> {
        const fs::path folder = editor.project().directory;
        TRY_ASSIGN(old, loadTrack(folder));
        CaptionTrack track;
        if (old) {
            track.locale = old->locale;
            track.engine = old->engine;
        }
        for (CaptionSegment& given : segments) {
            CaptionSegment segment = given;
            if (old) {
                for (const CaptionSegment& before : old->segments) {
                    if (std::abs(before.start - given.start) < 1e-3 &&
                        std::abs(before.end - given.end) < 1e-3) {
                        segment = before;
                        segment.setText(given.text);
                        break;
                    }
                }
            }
            track.segments.push_back(std::move(segment));
        }
        if (auto valid = track.validate(editor.duration()); !valid) {
            return valid.error();
        }
        if (auto saved = track.save(folder); !saved) {
            return saved.error();
        }
        if (!showCaptions(editor)) {
            return AppError(editor.status());
        }
        return Content{jsonItem(describe(track, editor.edits()))};
    });
}

Result<Content> setStyle(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(visible, args.optionalBoolean("visible"));
    TRY_ASSIGN(size, args.optionalNumber("size"));
    TRY_ASSIGN(position, args.optionalString("position"));
    TRY_ASSIGN(background, args.optionalString("background"));
    TRY_ASSIGN(maxCharacters, args.optionalInteger("max_characters"));
    TRY_ASSIGN(highlight, args.optionalBoolean("highlight_words"));
    std::optional<project::CaptionPosition> where;
    if (position && !(where = fromRawValue<project::CaptionPosition>(*position))) {
        return Arguments::invalid("position");
    }
    std::optional<project::CaptionBackground> behind;
    if (background && !(behind = fromRawValue<project::CaptionBackground>(*background))) {
        return Arguments::invalid("background");
    }
    return context.edit(args, [&](project::Edits& edits, EditorModel&) -> Result<void> {
        project::CaptionStyle style = edits.captions.value_or(project::CaptionStyle{});
        style.visible = visible.value_or(style.visible);
        style.size = size.value_or(style.size);
        style.position = where.value_or(style.position);
        style.background = behind.value_or(style.background);
        style.maxCharacters = maxCharacters.value_or(style.maxCharacters);
        style.highlightWords = highlight.value_or(style.highlightWords);
        edits.captions = style.clamped();
        return {};
    });
}

Result<Content> exportFile(const ToolContext& context, const Arguments& args) {
    TRY_ASSIGN(format, args.optionalString("format"));
    TRY_ASSIGN(path, args.optionalString("path"));
    captions::SubtitleFormat kind = captions::SubtitleFormat::Srt;
    if (format == "vtt") {
        kind = captions::SubtitleFormat::Vtt;
    } else if (format && *format != "srt") {
        return Arguments::invalid("format");
    }
    std::string text;
    std::string title;
    auto made = context.withEditor(args, [&](EditorModel& editor) -> Result<Content> {
        TRY_ASSIGN(track, loadTrack(editor.project().directory));
        if (!track || track->segments.empty()) {
            return AppError(texts::kNoCaptions);
        }
        text = track->subtitles(kind, editor.edits());
        title = editor.project().metadata.title;
        return Content{};
    });
    if (!made) {
        return made.error();
    }
    std::string name = (title.empty() ? "Captions" : title) +
                       (kind == captions::SubtitleFormat::Srt ? ".srt" : ".vtt");
    auto destination =
        render::exportDestination(path ? std::optional<fs::path>(*path) : std::nullopt,
                                  context.studio->library().root(), name);
    if (!destination) {
        return destination.error();
    }
    if (auto written = writeFileAtomically(*destination, text); !written) {
        return AppError("The subtitles could not be written.", written.error().message);
    }
    return Content{jsonItem({{"path", destination->string()}})};
}

}  // namespace quillo::agent::caption_tools

namespace quillo::agent::families {

namespace fs = std::filesystem;
using editor::EditorModel;
using project::Edits;

void addCaptionTools(const AddTool& add, const ToolContext& context) {
    using namespace schema;
    const Json id = recordingId();
    const Json seconds = number("Seconds.");

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
}

}  // namespace quillo::agent::families
