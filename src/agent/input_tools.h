#pragma once

#include "tool_context.h"

// Handlers of the input tools: points in screenshot pixels (origin top left), checked against
// the screenshot's size before anything is posted; the input goes to the shared app through the
// agent's own pointer and keyboard.
namespace quillo::agent::input_tools {

Result<Content> click(const ToolContext& context, const Arguments& args);
Result<Content> movePointer(const ToolContext& context, const Arguments& args);
Result<Content> drag(const ToolContext& context, const Arguments& args);
Result<Content> scroll(const ToolContext& context, const Arguments& args);
Result<Content> typeText(const ToolContext& context, const Arguments& args);
Result<Content> pressKey(const ToolContext& context, const Arguments& args);

Result<Content> uiElements(const ToolContext& context, const Arguments& args);

// The characters of UTF-8 text.
size_t decodeLength(const std::string& text);

}  // namespace quillo::agent::input_tools
