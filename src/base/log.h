#pragma once

#include <string_view>

namespace quillo {

// Diagnostic lines on standard error, tagged with a logger name under "app.quillo". Never the
// place for user-facing messages (those travel as AppError). Safe from any thread.
void logError(std::string_view logger, std::string_view text);
void logInfo(std::string_view logger, std::string_view text);

// Appends a timestamped line to the log file, supportFolder()/quillo.log, and never to the
// terminal: for chatter of libraries that users should not see but a bug report may need. When
// the file passes about 5 MB it becomes quillo.log.1 (replacing the one before) and a new file
// begins. A file that cannot be written drops the line. Safe from any thread.
void logToFile(std::string_view logger, std::string_view text);

}  // namespace quillo
