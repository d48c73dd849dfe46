#include "export_preset.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "canvas.h"

namespace quillo::render {

namespace {

constexpr double kGifLargestSide = 960;

}  // namespace

const PresetInfo& presetInfo(ExportPreset preset) {
    static const PresetInfo rows[] = {
        {"YouTube", "YouTube", Size{1920, 1080}, 60, ExportCodec::H264},
        {"YouTube 4K", "YouTube 4K", Size{3840, 2160}, 60, ExportCodec::HEVC},
        {"Reels · TikTok", "Reels", Size{1080, 1920}, 30, ExportCodec::H264},
        {"X", "X", Size{1280, 720}, 60, ExportCodec::H264},
        {"LinkedIn 1:1", "LinkedIn", Size{1080, 1080}, 30, ExportCodec::H264},
        {"LinkedIn 4:5", "LinkedIn 4x5", Size{1080, 1350}, 30, ExportCodec::H264},
        {"Docs GIF", "Docs", std::nullopt, 12, ExportCodec::GIF},
        {"Custom", std::nullopt, std::nullopt, std::nullopt, ExportCodec::Chosen},
    };
    return rows[static_cast<size_t>(preset)];
}

std::string presetDetail(ExportPreset preset) {
    const PresetInfo& info = presetInfo(preset);
    if (preset == ExportPreset::DocsGif) {
        return "GIF · up to 960 px · 12 fps";
    }
    if (!info.size) {
        return "Choose format and size";
    }
    char text[64];
    std::snprintf(text, sizeof text, "MP4 · %.0f×%.0f · %d fps", info.size->width,
                  info.size->height, info.fps.value_or(30));
    return text;
}

bool offersReframe(ExportPreset preset) {
    const PresetInfo& info = presetInfo(preset);
    return info.size && info.size->width <= info.size->height;
}

std::optional<double> largestSide(ExportSize size) {
    switch (size) {
        case ExportSize::Original:
            return std::nullopt;
        case ExportSize::P1080:
            return 1920;
        case ExportSize::P720:
            return 1280;
    }
    return std::nullopt;
}

std::string ExportSpec::fileName(const std::string& base) const {
    return base + (suffix ? " — " + *suffix : std::string()) + "." + fileExtension();
}

Size ExportSpec::outputSize(Size source) const {
    return renderSize(edits, source, maxDimension, size);
}

ExportSpec exportSpec(ExportPreset preset, const project::Edits& edits, Size source, bool follow,
                      ExportFormat format, ExportSize size, int gifFPS,
                      const project::FrameStyle& backdrop) {
    const PresetInfo& info = presetInfo(preset);
    ExportSpec spec;
    spec.edits = edits;
    if (info.suffix) {
        spec.suffix = std::string(*info.suffix);
    }
    if (info.size) {
        spec.size = info.size;
        spec.fps = info.fps;
        spec.hevc = info.codec == ExportCodec::HEVC;
        spec.edits.reframe = project::Reframe{info.size->width, info.size->height, follow};
        const double target = info.size->width / info.size->height;
        const bool portraitOrSquare = info.size->width <= info.size->height;
        if (portraitOrSquare && !follow && !edits.frame && source.width > 0 && source.height > 0 &&
            std::fabs(source.width / source.height - target) > 0.01) {
            spec.edits.frame = backdrop;
        }
        return spec;
    }
    if (preset == ExportPreset::DocsGif) {
        spec.format = ExportFormat::GIF;
        spec.maxDimension = kGifLargestSide;
        spec.fps = info.fps;
        return spec;
    }
    spec.format = format;
    if (format == ExportFormat::GIF) {
        spec.maxDimension = kGifLargestSide;
        spec.fps = gifFPS;
    } else {
        spec.maxDimension = largestSide(size);
    }
    return spec;
}

std::filesystem::path uniqueDestination(const std::filesystem::path& folder,
                                        const std::string& name) {
    std::filesystem::path candidate = folder / name;
    std::error_code ec;
    const std::string stem = std::filesystem::path(name).stem().string();
    const std::string extension = std::filesystem::path(name).extension().string();
    for (int n = 2; std::filesystem::exists(candidate, ec); ++n) {
        candidate = folder / (stem + " " + std::to_string(n) + extension);
    }
    return candidate;
}

Result<std::filesystem::path> exportDestination(const std::optional<std::filesystem::path>& chosen,
                                                const std::filesystem::path& libraryRoot,
                                                std::string name) {
    std::replace(name.begin(), name.end(), '/', '-');
    std::error_code error;
    if (chosen && std::filesystem::is_directory(*chosen, error)) {
        return uniqueDestination(*chosen, name);
    }
    if (chosen) {
        return *chosen;
    }
    const std::filesystem::path exports = libraryRoot / "Exports";
    std::filesystem::create_directories(exports, error);
    if (error) {
        return AppError::fromErrno(error.value(), exports.string());
    }
    return uniqueDestination(exports, name);
}

}  // namespace quillo::render
