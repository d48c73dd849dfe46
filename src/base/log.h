#pragma once

#include <string_view>

namespace quillo {

// Diagnostic lines on standard error, tagged with a logger name under "app.quillo". Never the
// place for user-facing messages (those travel as AppError). Safe from any thread.
void logError(std::string_view logger, std::string_view text);
void logInfo(std::string_view logger, std::string_view text);

}  // namespace quillo
