#pragma once

#include <filesystem>
#include <iosfwd>

namespace quillo::app {

// `quillo inspect FOLDER`: prints a project's title, its recording's duration, the validated
// recipe's kept pieces and the finished video's duration to `out` and returns 0; or prints the
// error message as it stands to `err` and returns 1.
int inspectProject(const std::filesystem::path& folder, std::ostream& out, std::ostream& err);

}  // namespace quillo::app
