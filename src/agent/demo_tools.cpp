// The demo step and marker tools.

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
#include "input_tools.h"
#include "key_names.h"
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

// One demo step: resume, mark, glide, rest, act, type, press, hold, pause again. The waits run on
// this worker thread, so the main queue and the recording go on.
Result<Content> demoStep(const ToolContext& context, const Arguments& args) {
    Studio& studio = *context.studio;
    TRY_ASSIGN(label, args.optionalString("label"));
    TRY_ASSIGN(click, args.optionalString("click"));
    if (click && *click != "left" && *click != "double" && *click != "right" && *click != "none") {
        return AppError("click must be left, double, right, or none.");
    }
    TRY_ASSIGN(text, args.optionalString("text"));
    TRY_ASSIGN(keyName, args.optionalString("key"));
    std::optional<uint32_t> key;
    if (keyName) {
        TRY_ASSIGN(keysym, input_tools::keyKeysym(*keyName));
        key = keysym;
    }
    TRY_ASSIGN(modifiers, input_tools::modifierKeysyms(args));
    TRY_ASSIGN(paceName, args.optionalString("pace"));
    DemoPace pace = studio.demoPace();
    if (paceName) {
        auto parsed = fromRawValue<DemoPace>(*paceName);
        if (!parsed) {
            return AppError("pace must be calm, normal, or brisk.");
        }
        pace = *parsed;
    }
    const DemoTiming timing = agent::timing(pace);
    TRY_ASSIGN(after, args.optionalNumber("after"));
    if (after && !(*after >= 0 && *after <= 30)) {
        return AppError("after must be between 0 and 30 seconds.");
    }
    TRY_ASSIGN(pauseAfter, args.optionalBoolean("pause_after"));
    TRY_ASSIGN(size, input_tools::screenshotSize(studio));
    TRY_ASSIGN(at, input_tools::screenshotPoint(args, size, "x", "y"));
    Json status = studio.captureStatus();
    auto sleep = [](double seconds) {
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    };

    const bool recording = status["state"] == "recording";
    Json answer = {{"recording", recording}, {"pace", rawValue(pace)}};
    if (recording && status["paused"] == true) {
        TRY_ASSIGN(resumed, studio.setPaused(false));
        (void)resumed;
    }
    if (label && recording) {
        if (auto now = studio.recordingNow()) {
            auto project = studio.recording(now->first);
            if (project) {
                TRY_ASSIGN(list, markers::add(*label, now->second, project->directory));
                (void)list;
                answer["marker"] = now->second;
            }
        }
    }
    TRY_ASSIGN(moved, studio.movePointer(at, timing.move));
    sleep(timing.hold);
    if (click != "none") {
        int button = click == "right" ? 3 : 1;
        TRY_ASSIGN(clicked, studio.click(at, button, click == "double" ? 2 : 1, modifiers));
        (void)clicked;
    }
    if (text && !text->empty()) {
        double delay = typingDelay(std::nullopt, timing.wpm, input_tools::decodeLength(*text));
        TRY_ASSIGN(typed, studio.typeText(*text, delay));
        (void)typed;
    }
    if (key) {
        TRY_ASSIGN(pressed,
                   studio.pressKey(*key, click == "none" ? modifiers : std::vector<uint32_t>{}));
        (void)pressed;
    }
    sleep(after.value_or(timing.after));
    if (recording && pauseAfter.value_or(true)) {
        TRY_ASSIGN(paused, studio.setPaused(true));
        answer["paused"] = paused["paused"];
    }
    answer["cursor"] = moved.value("cursor", Json());
    return Content{jsonItem(answer)};
}

}  // namespace

void addDemoTools(const AddTool& add, const ToolContext& context) {
    using namespace schema;
    const Json x = number("Pixels from the left of the screenshot.");
    const Json y = number("Pixels from the top of the screenshot.");
    const std::shared_ptr<Studio>& studio = context.studio;
    auto withEditor = [context](const Arguments& args, const auto& work) {
        return context.withEditor(args, work);
    };
    auto withProject = [context](const std::string& which, const auto& work) {
        return context.withProject(which, work);
    };
    const Json id = recordingId();

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
        {"x", "y"}, [context](const Arguments& args) { return demoStep(context, args); });
    add("retake_step",
        "Cuts a failed attempt at the current step: everything since the last marker is removed "
        "from the video and the recording pauses, so you can put the app back. Then redo the "
        "step with demo_step and no label; the step's marker stays where it began.",
        Json::object(), {}, [studio](const Arguments&) -> Result<Content> {
            TRY_ASSIGN(retaken, studio->retakeStep());
            return Content{jsonItem(retaken)};
        });
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
                return Content{jsonItem({{"markers", list.size()}})};
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
                return Content{jsonItem({{"markers", list.size()}})};
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
                return Content{jsonItem({{"markers", items},
                                         {"chapters", chapterItems},
                                         {"text", markers::text(chapters, duration)},
                                         {"youTubeReady", markers::youTubeReady(chapters)}})};
            });
        });
}

}  // namespace quillo::agent::families
