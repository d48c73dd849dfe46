#pragma once

// The real agent CLIs for the assistant's tests, installed from npm at the versions pinned in
// tests/assistant/npm, and an environment in which they send nothing off this machine.

#include <filesystem>
#include <map>
#include <string>

namespace quillo::assistant {

inline const std::filesystem::path kCliSources = QUILLO_CLI_NPM_DIR;
inline const std::filesystem::path kCliInstall = QUILLO_CLI_INSTALL_DIR;
inline const std::filesystem::path kClaudeCli = kCliInstall / "node_modules" / ".bin" / "claude";
inline const std::filesystem::path kCodexCli = kCliInstall / "node_modules" / ".bin" / "codex";

// Installs the pinned CLIs once per build tree; false (with npm's reason in `why`) when npm
// can't.
bool installAgentClis(std::string& why);

// `base` with HOME at `home`, every proxy pointing at a dead loopback port, the CLIs' telemetry,
// update checks and other nonessential traffic turned off, and no credentials.
std::map<std::string, std::string> offlineEnvironment(std::map<std::string, std::string> base,
                                                      const std::filesystem::path& home);

}  // namespace quillo::assistant
