#pragma once

// The tool table is built family by family; each family's file adds its tools:
// recording_tools.cpp (status, source, looking, input, recording, self-test), library_tools.cpp,
// editing_tools.cpp (recipe, zooms, cuts, style, undo, camera, redactions), output_tools.cpp
// (frames, export, dead time, sensitive text), caption_tools.cpp, demo_tools.cpp.

#include <functional>
#include <string>
#include <vector>

#include "agent_texts.h"
#include "agent_tools.h"
#include "tool_context.h"

namespace quillo::agent::families {

using AddTool = std::function<void(std::string name, std::string description, Json properties,
                                   std::vector<std::string> required, AgentTools::Handler)>;

void addCaptureTools(const AddTool& add, const ToolContext& context);
void addLibraryTools(const AddTool& add, const ToolContext& context);
void addEditingTools(const AddTool& add, const ToolContext& context);
void addOutputTools(const AddTool& add, const ToolContext& context);
void addCaptionTools(const AddTool& add, const ToolContext& context);
void addDemoTools(const AddTool& add, const ToolContext& context);

// The "id" argument of the tools that work on a saved recording.
inline Json recordingId() { return schema::string("Recording id from list_recordings."); }

// Removes item `index` of a list the agent numbered; `missing` says why when there is none.
template <class T>
Result<void> eraseAt(std::vector<T>& list, int64_t index, const std::string& missing) {
    if (index < 0 || index >= static_cast<int64_t>(list.size())) {
        return AppError(missing);
    }
    list.erase(list.begin() + index);
    return {};
}

}  // namespace quillo::agent::families
