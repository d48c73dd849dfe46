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
#include "tool_families.h"

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

}  // namespace

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
    const ToolContext context{m_studio};
    auto add = [this](std::string name, std::string description, Json properties,
                      std::vector<std::string> required, Handler handler) {
        m_tools.push_back({std::move(name), std::move(description), std::move(properties),
                           std::move(required), std::move(handler)});
    };
    // In the order agents see them in tools/list.
    families::addCaptureTools(add, context);
    families::addLibraryTools(add, context);
    families::addEditingTools(add, context);
    families::addOutputTools(add, context);
    families::addCaptionTools(add, context);
    families::addDemoTools(add, context);
}

}  // namespace quillo::agent
