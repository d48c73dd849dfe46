#pragma once

#include "tool_context.h"

// Handlers of the status, source, screenshot and recording tools. They call the studio's
// capture operations, which wait on this worker thread (for the user, the countdown, saving).
namespace quillo::agent::recording_tools {

// The longest wait the wait tool takes, in seconds.
inline constexpr double kWaitLimit = 30;

Result<Content> status(const ToolContext& context, const Arguments& args);
Result<Content> chooseSource(const ToolContext& context, const Arguments& args);
Result<Content> screenshot(const ToolContext& context, const Arguments& args);
Result<Content> start(const ToolContext& context, const Arguments& args);
Result<Content> stop(const ToolContext& context, const Arguments& args);
Result<Content> setPaused(const ToolContext& context, const Arguments& args);
Result<Content> wait(const ToolContext& context, const Arguments& args);
Result<Content> resizeWindow(const ToolContext& context, const Arguments& args);
Result<Content> shareWindow(const ToolContext& context, const Arguments& args);

}  // namespace quillo::agent::recording_tools
