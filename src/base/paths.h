#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quillo {

// The value of environment variable `name`; unset and empty both read as none.
std::optional<std::string> environmentValue(const char* name);

// $HOME, or the password database's home folder when HOME is unset.
std::filesystem::path homeFolder();
// $XDG_DATA_HOME when it is an absolute path, else ~/.local/share.
std::filesystem::path dataHome();
// $XDG_CONFIG_HOME when it is an absolute path, else ~/.config.
std::filesystem::path configHome();
// The user's videos folder as xdg-user-dir reports it (XDG_VIDEOS_DIR in user-dirs.dirs),
// else ~/Videos.
std::filesystem::path videosFolder();

// The application's own files (caches, mcp.json): $QUILLO_SUPPORT, else dataHome()/Quillo.
std::filesystem::path supportFolder();
// Where recordings live when nothing else is chosen: videosFolder()/Quillo.
std::filesystem::path defaultLibraryRoot();
// The library folder: the caller's choice, then $QUILLO_LIBRARY, then the "libraryPath"
// preference when set, then defaultLibraryRoot(). Paths are used as they stand.
std::filesystem::path libraryRoot(const std::optional<std::filesystem::path>& caller,
                                  const std::optional<std::string>& libraryPathPreference);
// The preferences file: configHome()/Quillo/preferences.json.
std::filesystem::path preferencesFile();

// Places of the product's former version, read once by the library migration.
std::filesystem::path formerPreferencesFile();  // configHome()/Pallo/preferences.json
std::filesystem::path formerSupportFolder();    // dataHome()/Pallo
std::filesystem::path formerDefaultLibrary();   // videosFolder()/Pallo

}  // namespace quillo
