#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/enum_table.h"
#include "base/result.h"
#include "image.h"
#include "project/cursor_track.h"

namespace quillo::render {

// What a recorded pointer shape is, so a theme can stand in for it: arrows and hands get the
// theme's art, everything else (text beams, resize arrows) stays as recorded.
enum class ShapeRole { Arrow, Hand, Other };
ShapeRole roleOf(const project::CursorShape& shape);

// One drawn cursor theme, loaded from "themes.json" and the PNGs beside it.
struct CursorTheme {
    enum class Animation { None, Pulse, Sparkle };

    // A picture with its tip, in the picture's pixels.
    struct Art {
        Image image;
        double hotX = 0;
        double hotY = 0;
    };

    std::string id;
    std::string name;
    Animation animation = Animation::None;
    bool hueShift = false;  // the colours cycle with time
    Art arrow;
    std::optional<Art> hand;
    std::optional<Image> sparkle;
    std::optional<Image> thumbnail;

    // The art standing in for a shape of `role`: the arrow, the hand (else the arrow), or none.
    const Art* art(ShapeRole role) const;

    // The themes shipped with the application, loaded once; empty when the files are missing.
    static const std::vector<CursorTheme>& all();
    static const CursorTheme* named(std::string_view id);

    // Reads a themes file and its images.
    static Result<std::vector<CursorTheme>> load(const std::filesystem::path& themesFile);
};

// The folder of the application's resources: $QUILLO_RESOURCES, "resources" beside the
// executable, "../share/quillo" from it, or the build tree's.
std::filesystem::path resourceFolder();

}  // namespace quillo::render

namespace quillo {

template <>
struct EnumTable<render::CursorTheme::Animation> {
    using E = render::CursorTheme::Animation;
    static constexpr std::pair<E, std::string_view> cases[] = {
        {E::None, "none"}, {E::Pulse, "pulse"}, {E::Sparkle, "sparkle"}};
};

}  // namespace quillo
