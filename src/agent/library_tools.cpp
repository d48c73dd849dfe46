// The library tools: listing, details, opening, renaming and deleting recordings.

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

}  // namespace

void addLibraryTools(const AddTool& add, const ToolContext& context) {
    using namespace schema;
    const std::shared_ptr<Studio>& studio = context.studio;
    auto withEditor = [context](const Arguments& args, const auto& work) {
        return context.withEditor(args, work);
    };
    auto withProject = [context](const std::string& which, const auto& work) {
        return context.withProject(which, work);
    };
    auto edit = [context](const Arguments& args, const auto& change) {
        return context.edit(args, change);
    };
    const Json id = recordingId();

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
            return Content{jsonItem({{"recordings", list}})};
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
                if (editor.cursorTrack() && editor.cursorTrack()->pointerInPicture) {
                    details["pointerInPicture"] = true;
                }
                details.update(clicksAndTyping(editor.cursorTrack()));
                return Content{jsonItem(details)};
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
            return Content{AgentTools::text("Opened the recording in the editor.")};
        });
    add("rename_recording", "Renames a recording.", {{"id", id}, {"title", string("New title.")}},
        {"id", "title"}, [studio, withProject](const Arguments& args) -> Result<Content> {
            TRY_ASSIGN(which, args.string("id"));
            TRY_ASSIGN(title, args.string("title"));
            return withProject(which, [&](project::LocalProject& project) -> Result<Content> {
                TRY_ASSIGN(renamed, project::ProjectLibrary::rename(project, title));
                if (!renamed) {
                    return Content{AgentTools::text("The title was empty; nothing changed.")};
                }
                studio->libraryChanged();
                return Content{
                    jsonItem({{"id", renamed->id()}, {"title", renamed->metadata.title}})};
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
                studio->libraryChanged();
                return Content{
                    AgentTools::text("Moved “" + project.metadata.title + "” to the Trash.")};
            });
        });
}

}  // namespace quillo::agent::families
