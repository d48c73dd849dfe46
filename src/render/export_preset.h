#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/enum_table.h"
#include "base/geometry.h"
#include "base/result.h"
#include "project/edits.h"

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

enum class ExportFormat { MP4, GIF };
// The Custom preset's size choice, by the largest side of the output.
enum class ExportSize { Original, P1080, P720 };

enum class ExportCodec { H264, HEVC, GIF, Chosen };

// One row of the preset table. Sized presets have a shape and a pixel size.
struct PresetInfo {
    std::string_view title;
    std::optional<std::string_view> suffix;
    std::optional<Size> size;  // pixels; its shape is the preset's shape
    std::optional<int> fps;
    ExportCodec codec;
};

const PresetInfo& presetInfo(ExportPreset preset);
// The picker's subtitle: "MP4 · 1920×1080 · 60 fps", "GIF · up to 960 px · 12 fps", …
std::string presetDetail(ExportPreset preset);
// Whether the picker offers the reframe choice: sized presets no wider than tall.
bool offersReframe(ExportPreset preset);
// The largest output side of a Custom size; none for Original.
std::optional<double> largestSide(ExportSize size);

// One export job.
struct ExportSpec {
    project::Edits edits;  // the recipe to render, reframed for the preset
    ExportFormat format = ExportFormat::MP4;
    std::optional<double> maxDimension;
    std::optional<Size> size;
    std::optional<int> fps;  // frame-rate cap; the GIF's frame rate
    bool hevc = false;
    std::optional<std::string> suffix;

    std::string fileExtension() const { return format == ExportFormat::GIF ? "gif" : "mp4"; }
    // "{base} — {suffix}.{extension}", without the suffix part when there is none.
    std::string fileName(const std::string& base) const;
    // The explicit size, else the recipe's canvas for `source` held to maxDimension, even sides.
    Size outputSize(Size source) const;
};

// The export job for a recipe: sized presets set the recipe's reframe to their shape
// (`follow`: crop and follow the action, else fit), and portrait or square presets that fit
// a picture of another shape add `backdrop` when the recipe has no frame. Custom uses `format`
// and `size` (GIFs held to 960 px at `gifFPS`).
ExportSpec exportSpec(ExportPreset preset, const project::Edits& edits, Size source, bool follow,
                      ExportFormat format = ExportFormat::MP4,
                      ExportSize size = ExportSize::Original, int gifFPS = 12,
                      const project::FrameStyle& backdrop = {});

// `folder/name`, or "name 2", "name 3", … (before the extension) when that file exists.
std::filesystem::path uniqueDestination(const std::filesystem::path& folder,
                                        const std::string& name);

// Where an export named `name` goes: inside `chosen` when it is a folder, `chosen` itself when
// it is a file path, else the library's "Exports" folder (made when missing); never over an
// existing file in a folder. A "/" in the name (from a recording's title) becomes "-".
Result<std::filesystem::path> exportDestination(const std::optional<std::filesystem::path>& chosen,
                                                const std::filesystem::path& libraryRoot,
                                                std::string name);

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

template <>
struct EnumTable<render::ExportFormat> {
    using E = render::ExportFormat;
    static constexpr std::pair<E, std::string_view> cases[] = {{E::MP4, "MP4"}, {E::GIF, "GIF"}};
};

template <>
struct EnumTable<render::ExportSize> {
    using E = render::ExportSize;
    static constexpr std::pair<E, std::string_view> cases[] = {
        {E::Original, "Original"}, {E::P1080, "1080p"}, {E::P720, "720p"}};
};

}  // namespace quillo
