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

// The screenshot's size now; without a shared source the error says to choose one.
Result<Size> screenshotSize(Studio& studio);
// The point of arguments `xName` and `yName`, which must lie inside the screenshot.
Result<Point> screenshotPoint(const Arguments& args, Size size, const std::string& xName,
                              const std::string& yName);
// The keysyms of the "modifiers" argument's names.
Result<std::vector<uint32_t>> modifierKeysyms(const Arguments& args);
// The keysym of a press_key name; the error lists the names.
Result<uint32_t> keyKeysym(const std::string& name);

// The characters of UTF-8 text.
size_t decodeLength(const std::string& text);

}  // namespace quillo::agent::input_tools
