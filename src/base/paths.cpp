#include "paths.h"

#include <cstdlib>
#include <fstream>
#include <pwd.h>
#include <unistd.h>

namespace quillo {

namespace fs = std::filesystem;

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') {
        return std::nullopt;
    }
    return std::string(value);
}

fs::path homeFolder() {
    if (auto home = environmentValue("HOME")) {
        return *home;
    }
    if (const passwd* entry = ::getpwuid(::getuid()); entry != nullptr && entry->pw_dir) {
        return entry->pw_dir;
    }
    return "/";
}

namespace {

fs::path xdgFolder(const char* variable, const char* fallback) {
    // The base directory specification ignores relative paths in these variables.
    if (auto value = environmentValue(variable); value && fs::path(*value).is_absolute()) {
        return *value;
    }
    return homeFolder() / fallback;
}

}  // namespace

fs::path dataHome() { return xdgFolder("XDG_DATA_HOME", ".local/share"); }

fs::path configHome() { return xdgFolder("XDG_CONFIG_HOME", ".config"); }

fs::path videosFolder() {
    // user-dirs.dirs holds shell assignments such as XDG_VIDEOS_DIR="$HOME/Videos"; only
    // "$HOME/..." and absolute paths are allowed there.
    std::ifstream file(configHome() / "user-dirs.dirs");
    std::string line;
    const std::string prefix = "XDG_VIDEOS_DIR=\"";
    while (std::getline(file, line)) {
        if (line.rfind(prefix, 0) != 0 || line.size() < prefix.size() + 1 || line.back() != '"') {
            continue;
        }
        std::string value = line.substr(prefix.size(), line.size() - prefix.size() - 1);
        if (value.rfind("$HOME", 0) == 0) {
            std::string rest = value.substr(5);
            while (!rest.empty() && rest.front() == '/') {
                rest.erase(0, 1);
            }
            return rest.empty() ? homeFolder() : homeFolder() / rest;
        }
        if (fs::path(value).is_absolute()) {
            return value;
        }
    }
    return homeFolder() / "Videos";
}

fs::path supportFolder() {
    if (auto value = environmentValue("QUILLO_SUPPORT")) {
        return *value;
    }
    return dataHome() / "Quillo";
}

fs::path defaultLibraryRoot() { return videosFolder() / "Quillo"; }

fs::path libraryRoot(const std::optional<fs::path>& caller,
                     const std::optional<std::string>& libraryPathPreference) {
    if (caller && !caller->empty()) {
        return *caller;
    }
    if (auto value = environmentValue("QUILLO_LIBRARY")) {
        return *value;
    }
    if (libraryPathPreference && !libraryPathPreference->empty()) {
        return *libraryPathPreference;
    }
    return defaultLibraryRoot();
}

fs::path preferencesFile() { return configHome() / "Quillo" / "preferences.json"; }

fs::path formerPreferencesFile() { return configHome() / "Pallo" / "preferences.json"; }

fs::path formerSupportFolder() { return dataHome() / "Pallo"; }

fs::path formerDefaultLibrary() { return videosFolder() / "Pallo"; }

}  // namespace quillo
