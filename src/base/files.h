#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "result.h"

namespace quillo {

// Writes `bytes` to `path` whole or not at all: a temporary file in the same folder is written
// and fsynced, renamed over `path`, and the folder is fsynced. A crash at any point leaves either
// the old file or the new one, never a mixture. The file gets mode 0644 unless `mode` says other.
Result<void> writeFileAtomically(const std::filesystem::path& path, std::string_view bytes,
                                 unsigned mode = 0644);

// Reads a whole file. Errors carry the system's text.
Result<std::string> readFile(const std::filesystem::path& path);

// Test hook: called after the temporary file is complete and synced, just before the rename,
// with the temporary file's path. Pass nullptr to remove. Not thread-safe; tests only.
void setBeforeRenameHookForTesting(std::function<void(const std::filesystem::path&)> hook);

}  // namespace quillo
