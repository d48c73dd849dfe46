#include "cursor_theme.h"

#include <algorithm>
#include <system_error>
#include <unistd.h>

#include "base/files.h"
#include "base/json.h"
#include "base/log.h"
#include "base/paths.h"

namespace quillo::render {

namespace fs = std::filesystem;

ShapeRole roleOf(const project::CursorShape& shape) {
    if (!(shape.width > 0 && shape.height > 0)) {
        return ShapeRole::Other;
    }
    double aspect = shape.width / shape.height;
    double hx = shape.hotX / shape.width;
    double hy = shape.hotY / shape.height;
    if (aspect < 0.95 && hx < 0.3 && hy < 0.3) {
        return ShapeRole::Arrow;
    }
    if (hy < 0.4 && hx >= 0.25 && hx <= 0.6 && aspect >= 0.75 && aspect <= 1.3) {
        return ShapeRole::Hand;
    }
    return ShapeRole::Other;
}

const CursorTheme::Art* CursorTheme::art(ShapeRole role) const {
    switch (role) {
        case ShapeRole::Arrow:
            return &arrow;
        case ShapeRole::Hand:
            return hand ? &*hand : &arrow;
        case ShapeRole::Other:
            return nullptr;
    }
    return nullptr;
}

namespace {

struct ThemeEntry {
    std::string id;
    std::string name;
    CursorTheme::Animation animation = CursorTheme::Animation::None;
    bool hueShift = false;
    double arrowX = 0, arrowY = 0;
    std::optional<std::pair<double, double>> hand;
    bool sparkle = false;
};

std::pair<double, double> tip(JsonReader& reader) {
    return {reader.real("hotX"), reader.real("hotY")};
}

ThemeEntry decodeEntry(JsonReader& reader) {
    ThemeEntry entry;
    entry.id = reader.text("id");
    entry.name = reader.text("name");
    entry.animation = reader.rawValue<CursorTheme::Animation>("animation");
    entry.hueShift = reader.optionalBoolean("hueShift").value_or(false);
    auto arrow = reader.optionalObject("arrow", tip);
    if (!arrow) {
        reader.fail("arrow", "is missing");
    } else {
        std::tie(entry.arrowX, entry.arrowY) = *arrow;
    }
    entry.hand = reader.optionalObject("hand", tip);
    entry.sparkle = reader.optionalBoolean("sparkle").value_or(false);
    return entry;
}

}  // namespace

Result<std::vector<CursorTheme>> CursorTheme::load(const fs::path& themesFile) {
    auto text = readFile(themesFile);
    if (!text) {
        return text.error();
    }
    auto json = parseJson(*text);
    if (!json) {
        return json.error();
    }
    if (!json->is_array()) {
        return AppError("The cursor themes could not be read.", "themes.json is not a list");
    }
    const fs::path folder = themesFile.parent_path();
    std::vector<CursorTheme> themes;
    for (const Json& item : *json) {
        auto entry = JsonReader::decodeDocument(item, decodeEntry, "The cursor themes");
        if (!entry) {
            return entry.error();
        }
        CursorTheme theme;
        theme.id = entry->id;
        theme.name = entry->name;
        theme.animation = entry->animation;
        theme.hueShift = entry->hueShift;
        auto arrow = loadPNG(folder / (theme.id + "-arrow.png"));
        if (!arrow) {
            return arrow.error();
        }
        theme.arrow = {std::move(*arrow), entry->arrowX, entry->arrowY};
        if (entry->hand) {
            auto hand = loadPNG(folder / (theme.id + "-hand.png"));
            if (!hand) {
                return hand.error();
            }
            theme.hand = Art{std::move(*hand), entry->hand->first, entry->hand->second};
        }
        if (entry->sparkle) {
            auto sparkle = loadPNG(folder / (theme.id + "-sparkle.png"));
            if (!sparkle) {
                return sparkle.error();
            }
            theme.sparkle = std::move(*sparkle);
        }
        if (auto thumbnail = loadPNG(folder / (theme.id + "-thumbnail.png"))) {
            theme.thumbnail = std::move(*thumbnail);
        }
        themes.push_back(std::move(theme));
    }
    return themes;
}

const std::vector<CursorTheme>& CursorTheme::all() {
    static const std::vector<CursorTheme> themes = [] {
        fs::path file = resourceFolder() / "cursors" / "themes.json";
        auto loaded = load(file);
        if (!loaded) {
            logError("render",
                     "cursor themes: " + loaded.error().message + " " + loaded.error().detail);
            return std::vector<CursorTheme>{};
        }
        return std::move(*loaded);
    }();
    return themes;
}

const CursorTheme* CursorTheme::named(std::string_view id) {
    const auto& themes = all();
    auto it = std::find_if(themes.begin(), themes.end(),
                           [&](const CursorTheme& theme) { return theme.id == id; });
    return it == themes.end() ? nullptr : &*it;
}

fs::path resourceFolder() {
    if (auto configured = environmentValue("QUILLO_RESOURCES")) {
        return *configured;
    }
    std::error_code error;
    fs::path executable = fs::read_symlink("/proc/self/exe", error);
    if (!error) {
        for (fs::path candidate : {executable.parent_path() / "resources",
                                   executable.parent_path().parent_path() / "share" / "quillo"}) {
            if (fs::exists(candidate / "cursors" / "themes.json", error)) {
                return candidate;
            }
        }
    }
    return QUILLO_BUILD_RESOURCES;
}

}  // namespace quillo::render
