#include "log.h"

#include <cstdio>
#include <mutex>
#include <string>

namespace quillo {

namespace {
std::mutex g_logMutex;

void write(const char* level, std::string_view logger, std::string_view text) {
    std::lock_guard lock(g_logMutex);
    std::fprintf(stderr, "%s [%.*s] %.*s\n", level, static_cast<int>(logger.size()), logger.data(),
                 static_cast<int>(text.size()), text.data());
}
}  // namespace

void logError(std::string_view logger, std::string_view text) { write("error", logger, text); }
void logInfo(std::string_view logger, std::string_view text) { write("info", logger, text); }

}  // namespace quillo
