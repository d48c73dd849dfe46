#pragma once

// What the chat says about Claude Code: its status line, notes and failures.

#include <string>
#include <string_view>

namespace quillo::assistant::claude_texts {

// The vendor's documented shell installer, shown to the user (never run by Quillo).
inline constexpr std::string_view kInstallCommand =
    "curl -fsSL https://claude.ai/install.sh | bash";

inline std::string notFound() {
    return "Couldn't find Claude Code. Install it (" + std::string(kInstallCommand) +
           ") and sign in by running `claude` once, or switch the assistant to Codex in Settings "
           "› Assistant.";
}

inline constexpr std::string_view kStarting = "Starting Claude Code…";
inline constexpr std::string_view kHitError = "Claude Code hit an error.";
inline constexpr std::string_view kStopped = "Stopped.";

// `status` is the MCP server's state as Claude Code reports it ("failed", "pending", …).
inline std::string toolsNotLoaded(std::string_view status) {
    return "Quillo's tools didn't load in Claude Code (" + std::string(status) +
           "), so it can only chat.";
}

inline std::string stopped(std::string_view reason) {
    return "Claude Code stopped: " + std::string(reason) + ". Send a message to start it again.";
}

}  // namespace quillo::assistant::claude_texts
