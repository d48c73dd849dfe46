#pragma once

// What the chat shows about the Codex engine.

namespace quillo::assistant::codex_texts {

inline constexpr const char* kStarting = "Starting Codex…";
inline constexpr const char* kMissing =
    "Couldn't find Codex. Install it (npm install -g @openai/codex) and sign in by running `codex` "
    "once, or switch the assistant to Claude Code in Settings › Assistant.";
// {reason}: why it stopped.
inline constexpr const char* kStopped =
    "Codex stopped: {reason}. Send a message to start it again.";
inline constexpr const char* kBusy =
    "Codex is still answering. Stop it or wait for its answer first.";
inline constexpr const char* kTurnFailed = "Codex hit an error.";
inline constexpr const char* kInterrupted = "Stopped.";
// {status}: the state the CLI reported for Quillo's server ("failed", "cancelled").
inline constexpr const char* kToolsMissing =
    "Quillo's tools didn't load in Codex ({status}), so it can only chat.";
inline constexpr const char* kResumeFailed =
    "Codex couldn't pick up the earlier conversation ({reason}), so this starts a new one.";
inline constexpr const char* kCantStart = "Codex couldn't be started: {reason}.";
// Reasons for kStopped.
inline constexpr const char* kExitStatus = "it exited with status {status}";
inline constexpr const char* kSignal = "it was ended by signal {signal}";
inline constexpr const char* kNoAnswer = "it didn't answer";

}  // namespace quillo::assistant::codex_texts
