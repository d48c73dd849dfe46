// The tools that render and analyse: frames, export, dead time and sensitive text.

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

namespace {

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

}  // namespace

void addOutputTools(const AddTool& add, const ToolContext& context) {
    using namespace schema;
    const std::shared_ptr<Studio>& studio = context.studio;
    auto withEditor = [context](const Arguments& args, const auto& work) {
        return context.withEditor(args, work);
    };
    auto edit = [context](const Arguments& args, const auto& change) {
        return context.edit(args, change);
    };
    const Json id = recordingId();
    const Json seconds = number("Seconds.");

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
            return Content{AgentTools::jpeg(bytes)};
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
            return Content{jsonItem({{"path", destination->string()}})};
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
            return Content{jsonItem(answer)};
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
    add("find_sensitive_info",
        "Reads the text in the clip on-device and proposes redactions for emails, API keys and "
        "tokens, card numbers, phone numbers, and IP addresses. With apply, adds them too. "
        "Takes a while for long clips.",
        {{"id", id},
         {"apply", boolean("Add the proposed redactions (default false: only report them).")}},
        {"id"}, [context](const Arguments& args) { return findSensitiveInfo(context, args); });
}

}  // namespace quillo::agent::families
