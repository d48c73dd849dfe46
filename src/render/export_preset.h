#pragma once

#include <string_view>
#include <utility>

#include "base/enum_table.h"

namespace quillo::render {

// Platform presets of the export panel and the export tool, in the order they are offered.
enum class ExportPreset {
    YouTube1080p,
    YouTube4K,
    Reels,
    X,
    LinkedInSquare,
    LinkedInPortrait,
    DocsGif,
    Custom,
};

// The preset a new user starts with: Custom, which uses the chosen format and size.
inline constexpr ExportPreset kDefaultExportPreset = ExportPreset::Custom;

}  // namespace quillo::render

namespace quillo {

template <>
struct EnumTable<render::ExportPreset> {
    using E = render::ExportPreset;
    static constexpr std::pair<E, std::string_view> cases[] = {
        {E::YouTube1080p, "youtube_1080p"},
        {E::YouTube4K, "youtube_4k"},
        {E::Reels, "reels"},
        {E::X, "x"},
        {E::LinkedInSquare, "linkedin_square"},
        {E::LinkedInPortrait, "linkedin_portrait"},
        {E::DocsGif, "docs_gif"},
        {E::Custom, "custom"},
    };
};

}  // namespace quillo
