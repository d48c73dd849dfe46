#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/json.h"
#include "base/result.h"
#include "studio.h"
#include "tool_arguments.h"

namespace quillo::editor {
class EditorModel;
}
namespace quillo::render {
struct Image;
}

namespace quillo::agent {

// Propagates a failed Result from inside a handler.
#define TRY_ASSIGN(name, expression)  \
    auto name##Result = (expression); \
    if (!name##Result) {              \
        return name##Result.error();  \
    }                                 \
    auto name = std::move(*name##Result)

using Content = std::vector<Json>;  // a tool result's text and image items

// Text item holding a JSON object.
Json jsonItem(const Json& object);

// The recording options as the tools name them (get_status, set_options).
Json optionsJson(const RecordingOptions& options);

// JPEG bytes (quality 85) of a BGRA picture, for image items.
Result<std::string> encodeJPEG(const render::Image& image);

// How handlers reach the studio's models: on the main queue, by recording id.
struct ToolContext {
    std::shared_ptr<Studio> studio;

    // Runs `work` with the recording's ("id") editor on the main queue.
    Result<Content> withEditor(
        const Arguments& args,
        const std::function<Result<Content>(editor::EditorModel&)>& work) const;
    // Runs `work` with the recording's project folder on the main queue.
    Result<Content> withProject(
        const std::string& id,
        const std::function<Result<Content>(project::LocalProject&)>& work) const;
    // Changes the recipe through the editor's one commit step; the editor's message on refusal.
    // Answers with the new recipe and the finished length.
    Result<Content> edit(
        const Arguments& args,
        const std::function<Result<void>(project::Edits&, editor::EditorModel&)>& change) const;
};

}  // namespace quillo::agent
