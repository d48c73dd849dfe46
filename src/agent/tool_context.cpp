#include "tool_context.h"

#include <turbojpeg.h>

#include "agent_tools.h"
#include "editor/editor_model.h"
#include "project/edits_json.h"
#include "render/image.h"

namespace quillo::agent {

Json jsonItem(const Json& object) { return AgentTools::jsonText(object); }

Json optionsJson(const RecordingOptions& options) {
    return {{"microphone", options.microphone},
            {"system_audio", options.systemAudio},
            {"countdown", options.countdown},
            {"smooth_cursor", options.smoothCursor},
            {"auto_polish", options.autoPolish},
            {"step_aside", options.stepAside},
            {"floating_controls", options.floatingControls}};
}

Result<std::string> encodeJPEG(const render::Image& image) {
    tjhandle handle = tjInitCompress();
    if (handle == nullptr) {
        return AppError("The frame could not be encoded.");
    }
    unsigned char* data = nullptr;
    unsigned long size = 0;
    int code = tjCompress2(handle, image.pixels.data(), image.width, image.stride(), image.height,
                           TJPF_BGRA, &data, &size, TJSAMP_420, 85, 0);
    std::string bytes;
    if (code == 0) {
        bytes.assign(reinterpret_cast<const char*>(data), size);
    }
    tjFree(data);
    tjDestroy(handle);
    if (code != 0) {
        return AppError("The frame could not be encoded.");
    }
    return bytes;
}

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
