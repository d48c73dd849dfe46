#pragma once

#include <filesystem>
#include <ostream>

namespace quillo::app {

// `quillo --toggle-recording`, for a desktop shortcut where the desktop offers no global
// shortcuts to apps: stops the running Quillo's recording, or starts one (starting Quillo when
// it isn't running). Prints what happened; 0 on success.
int toggleRecording(const std::filesystem::path& infoFile, std::ostream& out, std::ostream& err);

}  // namespace quillo::app
