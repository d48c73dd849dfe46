#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quillo::testing {

// Installs the npm packages pinned in `sources` (package.json and package-lock.json, plus the
// other `files` named) into `install` with `npm ci`, once per build tree: test processes run
// side by side, so one installs while the others wait, and a stamp written after a whole
// install (holding the lock file it installed) tells them it is there. A changed pin installs
// again. False, with npm's reason in `why`, when npm can't.
bool installNpmPackages(const std::filesystem::path& sources, const std::filesystem::path& install,
                        const std::vector<std::string>& files, std::string& why);

}  // namespace quillo::testing
