#pragma once

#include <filesystem>
#include <string>

namespace quillo::agent {

// The official MCP SDK client's sources (package.json, lock, the scripts) and the build tree's
// copy of them with node_modules.
inline const std::filesystem::path kSdkSources = QUILLO_SDK_TEST_DIR;
inline const std::filesystem::path kSdkInstall = QUILLO_SDK_INSTALL_DIR;

// Copies the scripts and installs the pinned client once per build tree; false (with npm's
// reason in `why`) when npm can't.
bool installSdkClient(std::string& why);

// Runs `node SCRIPT ARGUMENTS` in the install folder; its output, then "exit N".
std::string runSdkScript(const std::string& script, const std::string& arguments);

}  // namespace quillo::agent
