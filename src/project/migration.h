#pragma once

#include <filesystem>

#include "base/preference_store.h"

namespace quillo::project {

// The one-time move of the former product's settings, support folder and library into
// Quillo's places, run at start-up before the library is first listed. Every failure is
// silent; the "migratedFromPallo" flag is set either way, so it is tried once.
class PalloMigration {
public:
    struct Places {
        std::filesystem::path formerPreferences;  // the former settings file
        std::filesystem::path formerSupport;
        std::filesystem::path formerDefaultLibrary;
        std::filesystem::path support;         // Quillo's support folder
        std::filesystem::path defaultLibrary;  // Quillo's default library root

        // The places on this machine (paths.h).
        static Places standard();
    };

    static constexpr const char* kDoneKey = "migratedFromPallo";

    // Runs the migration into `preferences` unless `selfTest` or already done.
    static void run(PreferenceStore& preferences, const Places& places, bool selfTest);

    // Moves `from` to `to` only when `from` exists and `to` does not, creating `to`'s parent
    // first. True only when the move happened; otherwise both places are left as they were.
    static bool move(const std::filesystem::path& from, const std::filesystem::path& to);
};

}  // namespace quillo::project
