#pragma once

#include "tool_context.h"

// Handlers of the caption tools. Each takes the recording's "id"; tracks live in the
// recording's "captions.json", their look in the recipe's captions style.
namespace quillo::agent::caption_tools {

// Transcribes on this worker thread (through the studio's caption jobs, so a transcription
// started elsewhere for the same recording is refused), saves the track and shows captions.
Result<Content> generate(const ToolContext& context, const Arguments& args);
Result<Content> get(const ToolContext& context, const Arguments& args);
// Replaces every segment; a segment whose times are unchanged keeps its word timings.
Result<Content> set(const ToolContext& context, const Arguments& args);
Result<Content> setStyle(const ToolContext& context, const Arguments& args);
// Writes an SRT or VTT file timed to the finished video.
Result<Content> exportFile(const ToolContext& context, const Arguments& args);

}  // namespace quillo::agent::caption_tools
