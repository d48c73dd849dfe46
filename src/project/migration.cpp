#include "migration.h"

#include <system_error>

#include "base/files.h"
#include "base/paths.h"

namespace quillo::project {

namespace fs = std::filesystem;

namespace {

// The path with "." and ".." resolved, symbolic links followed where they exist, and no
// trailing separator, so two spellings of one folder compare equal.
fs::path standardized(const fs::path& path) {
    std::error_code ec;
    fs::path result = fs::weakly_canonical(path, ec);
    if (ec) {
        result = path.lexically_normal();
    }
    std::string text = result.string();
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

Json readFormerPreferences(const fs::path& file) {
    auto text = readFile(file);
    if (!text) {
        return Json::object();
    }
    auto json = parseJson(*text);
    return json && json->is_object() ? json.value() : Json::object();
}

}  // namespace

PalloMigration::Places PalloMigration::Places::standard() {
    return {quillo::formerPreferencesFile(), quillo::formerSupportFolder(),
            quillo::formerDefaultLibrary(), supportFolder(), defaultLibraryRoot()};
}

bool PalloMigration::move(const fs::path& from, const fs::path& to) {
    std::error_code ec;
    if (!fs::exists(fs::symlink_status(from, ec)) || fs::exists(fs::symlink_status(to, ec))) {
        return false;
    }
    fs::create_directories(to.parent_path(), ec);
    if (ec) {
        return false;
    }
    // rename(2) either moves the whole item or nothing; across file systems it fails, and
    // then nothing is copied half-way.
    fs::rename(from, to, ec);
    return !ec;
}

void PalloMigration::run(PreferenceStore& preferences, const Places& places, bool selfTest) {
    if (selfTest) {
        return;
    }
    if (auto done = preferences.value(kDoneKey); done && done->is_boolean() && done->get<bool>()) {
        return;
    }

    Json former = readFormerPreferences(places.formerPreferences);
    if (!former.empty()) {
        (void)preferences.merge(former);
    }

    move(places.formerSupport, places.support);

    fs::path formerLibrary = places.formerDefaultLibrary;
    if (auto path = former.find("libraryPath");
        path != former.end() && path->is_string() && !path->get<std::string>().empty()) {
        formerLibrary = path->get<std::string>();
    }
    fs::path currentLibrary = formerLibrary;
    std::error_code ec;
    if (standardized(formerLibrary) == standardized(places.formerDefaultLibrary)) {
        if (move(formerLibrary, places.defaultLibrary)) {
            currentLibrary = places.defaultLibrary;
            (void)preferences.remove("libraryPath");
        } else if (fs::exists(formerLibrary, ec)) {
            // The recordings could not move (Quillo's folder exists already): keep showing
            // them where they are. A former folder that does not exist is not worth pointing at.
            (void)preferences.set("libraryPath", formerLibrary.string());
        }
    }

    if (auto tabs = preferences.value("openTabs");
        tabs && tabs->is_array() && currentLibrary != formerLibrary) {
        const std::string from = formerLibrary.string();
        Json updated = Json::array();
        for (const Json& tab : *tabs) {
            if (tab.is_string() && tab.get<std::string>().rfind(from, 0) == 0) {
                updated.push_back(currentLibrary.string() +
                                  tab.get<std::string>().substr(from.size()));
            } else {
                updated.push_back(tab);
            }
        }
        (void)preferences.set("openTabs", updated);
    }

    (void)preferences.set(kDoneKey, true);
}

}  // namespace quillo::project
