#include "tool_context.h"

#include "agent_tools.h"
#include "editor/editor_model.h"
#include "project/edits_json.h"

namespace quillo::agent {

Json jsonItem(const Json& object) { return AgentTools::jsonText(object); }

Result<Content> ToolContext::withEditor(
    const Arguments& args, const std::function<Result<Content>(editor::EditorModel&)>& work) const {
    TRY_ASSIGN(id, args.string("id"));
    Result<Content> result = AppError("");
    studio->onMain([&] {
        auto editor = studio->editor(id);
        result = editor ? work(**editor) : Result<Content>(editor.error());
    });
    return result;
}

Result<Content> ToolContext::withProject(
    const std::string& id,
    const std::function<Result<Content>(project::LocalProject&)>& work) const {
    Result<Content> result = AppError("");
    studio->onMain([&] {
        auto project = studio->recording(id);
        result = project ? work(*project) : Result<Content>(project.error());
    });
    return result;
}

Result<Content> ToolContext::edit(
    const Arguments& args,
    const std::function<Result<void>(project::Edits&, editor::EditorModel&)>& change) const {
    return withEditor(args, [&](editor::EditorModel& editor) -> Result<Content> {
        project::Edits candidate = editor.edits();
        if (auto changed = change(candidate, editor); !changed) {
            return changed.error();
        }
        if (!editor.commit(std::move(candidate))) {
            return AppError(editor.status());
        }
        return Content{jsonItem({{"edits", project::toJson(editor.edits())},
                                 {"duration", editor.edits().outputDuration()}})};
    });
}

}  // namespace quillo::agent
