#include "log.h"

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>

#include "paths.h"

namespace quillo {

namespace {
std::mutex g_logMutex;

void write(const char* level, std::string_view logger, std::string_view text) {
    std::lock_guard lock(g_logMutex);
    std::fprintf(stderr, "%s [%.*s] %.*s\n", level, static_cast<int>(logger.size()), logger.data(),
                 static_cast<int>(text.size()), text.data());
}

constexpr long kMaxLogBytes = 5 * 1024 * 1024;

// The open log file. Its path is checked at every line, so a changed support folder (tests set
// QUILLO_SUPPORT) takes effect at once.
struct LogFile {
    std::mutex mutex;
    std::FILE* stream = nullptr;  // guarded by mutex
    std::filesystem::path path;   // guarded by mutex

    void close() {
        if (stream != nullptr) {
            std::fclose(stream);
            stream = nullptr;
        }
    }

    bool open(const std::filesystem::path& to) {
        close();
        std::error_code ignored;
        std::filesystem::create_directories(to.parent_path(), ignored);
        stream = std::fopen(to.c_str(), "ae");
        path = to;
        return stream != nullptr && std::fseek(stream, 0, SEEK_END) == 0;
    }
};

LogFile& logFile() {
    static auto* file = new LogFile();  // never destroyed: threads may log during exit
    return *file;
}

std::string timestamp() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[40];
    size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    std::snprintf(text + length, sizeof text - length, ".%03ld", now.tv_nsec / 1000000);
    return text;
}

}  // namespace

void logError(std::string_view logger, std::string_view text) { write("error", logger, text); }
void logInfo(std::string_view logger, std::string_view text) { write("info", logger, text); }

void logToFile(std::string_view logger, std::string_view text) {
    const std::filesystem::path path = supportFolder() / "quillo.log";
    const std::string line = timestamp() + " [" + std::string(logger) + "] " + std::string(text);
    LogFile& file = logFile();
    std::lock_guard lock(file.mutex);
    if ((file.stream == nullptr || file.path != path) && !file.open(path)) {
        return;
    }
    if (std::ftell(file.stream) + static_cast<long>(line.size()) >= kMaxLogBytes) {
        file.close();
        std::error_code ignored;
        std::filesystem::rename(path, path.string() + ".1", ignored);
        if (!file.open(path)) {
            return;
        }
    }
    std::fprintf(file.stream, "%s\n", line.c_str());
    std::fflush(file.stream);
}

}  // namespace quillo
