#pragma once

// The command line a conversation's Claude Code runs with.

#include <optional>
#include <string>
#include <vector>

#include "assistant/engine.h"

namespace quillo::assistant {

// The arguments after the program: stream-json both ways, only Quillo's MCP server (through the
// relay), the built-in tools (file edits only with `options.writes`), no settings but the local
// ones, the instructions, and the model, effort and the session to resume when set.
std::vector<std::string> claudeArguments(const EngineOptions& options,
                                         const std::optional<std::string>& resume);

}  // namespace quillo::assistant
