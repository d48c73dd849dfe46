#pragma once

#include <string_view>

namespace quillo::assistant::texts {

// The login-shell probe's command: an interactive login shell reads the user's profile files, so
// PATH and the agent CLIs come out as the user's terminal sees them. Each answer is on a line of
// its own behind a marker; whatever the profile files print is not behind one.
inline constexpr std::string_view kProbeCommand =
    R"probe(printf '\n__PATH__%s\n__CODEX__%s\n__CLAUDE__%s\n' "$PATH" "$(command -v codex)" "$(command -v claude)"; which -a codex 2>/dev/null | sed 's/^/__ALL__/')probe";
inline constexpr std::string_view kPathMarker = "__PATH__";
inline constexpr std::string_view kCodexMarker = "__CODEX__";
inline constexpr std::string_view kClaudeMarker = "__CLAUDE__";
inline constexpr std::string_view kAllMarker = "__ALL__";

// The chat's note when the Codex chosen in Settings has gone; {path} and {other} are replaced.
inline constexpr std::string_view kChosenCodexGone =
    "The Codex chosen in Settings ({path}) isn't there anymore, so this uses {other}";

// When a file picked in Settings isn't a Codex command: the title and the advice.
inline constexpr std::string_view kNotACodexCommand = "That isn't a Codex command";
inline constexpr std::string_view kChooseCodexFile =
    "Choose the codex file itself, or an app that contains one.";

// Labels of the Codex install places in the Settings menu.
inline constexpr std::string_view kLabelStandalone = "standalone installer";
inline constexpr std::string_view kLabelNpm = "npm";
inline constexpr std::string_view kLabelVolta = "Volta";
inline constexpr std::string_view kLabelNvm = "nvm, Node {version}";
inline constexpr std::string_view kLabelSystem = "system-wide";
inline constexpr std::string_view kLabelShell = "on the login PATH";

}  // namespace quillo::assistant::texts
