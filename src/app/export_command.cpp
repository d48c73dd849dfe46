#include "export_command.h"

#include <charconv>
#include <cmath>
#include <iostream>
#include <ostream>
#include <pthread.h>
#include <signal.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "base/cancel_token.h"
#include "base/paths.h"
#include "command_line.h"
#include "open_recording.h"
#include "preferences.h"
#include "render/export_preset.h"
#include "render/exporter.h"

namespace quillo::app {

namespace fs = std::filesystem;

namespace {

constexpr const char* kExportUsage =
    "Usage: quillo export FOLDER [--preset ID] [--format mp4|gif] [--size original|1080p|720p]\n"
    "                            [--reframe fit|follow] [--out PATH]\n"
    "Presets: youtube_1080p, youtube_4k, reels, x, linkedin_square, linkedin_portrait,\n"
    "         docs_gif, custom (the default)\n";

}  // namespace

int exportCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    std::optional<fs::path> folder;
    render::ExportPreset preset = render::ExportPreset::Custom;
    render::ExportFormat format = render::ExportFormat::MP4;
    render::ExportSize size = render::ExportSize::Original;
    bool follow = false;
    std::optional<fs::path> destination;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        auto bad = [&](const std::string& problem) {
            err << problem << "\n\n" << kExportUsage;
            return 2;
        };
        if (arg == "--preset" || arg == "--format" || arg == "--size" || arg == "--reframe" ||
            arg == "--out") {
            auto value = optionValue(args, i);
            if (!value) {
                return bad(arg + " needs a value.");
            }
            if (arg == "--preset") {
                auto parsed = fromRawValue<render::ExportPreset>(*value);
                if (!parsed) {
                    return bad("Unknown preset “" + *value + "”.");
                }
                preset = *parsed;
            } else if (arg == "--format") {
                if (*value != "mp4" && *value != "gif") {
                    return bad("The format must be mp4 or gif.");
                }
                format = *value == "gif" ? render::ExportFormat::GIF : render::ExportFormat::MP4;
            } else if (arg == "--size") {
                if (*value == "original") {
                    size = render::ExportSize::Original;
                } else if (*value == "1080p") {
                    size = render::ExportSize::P1080;
                } else if (*value == "720p") {
                    size = render::ExportSize::P720;
                } else {
                    return bad("The size must be original, 1080p or 720p.");
                }
            } else if (arg == "--reframe") {
                if (*value != "fit" && *value != "follow") {
                    return bad("The reframe mode must be fit or follow.");
                }
                follow = *value == "follow";
            } else {
                destination = fs::path(*value);
            }
        } else if (!arg.empty() && arg[0] == '-') {
            return bad("Unknown option “" + arg + "”.");
        } else if (folder) {
            return bad("quillo export takes one project folder.");
        } else {
            folder = fs::path(arg);
        }
    }
    if (!folder) {
        err << "quillo export needs a project folder.\n\n" << kExportUsage;
        return 2;
    }

    auto opened = openRecording(*folder);
    if (!opened) {
        err << opened.error().message << "\n";
        return 1;
    }
    render::ExportSpec spec =
        render::exportSpec(preset, opened->edits, opened->videoSize, follow, format, size);
    const std::string fileName = spec.fileName(opened->project.metadata.title);
    auto target = render::exportDestination(
        destination, libraryRoot(std::nullopt, Preferences::shared().get(prefs::libraryPath)),
        fileName);
    if (!target) {
        err << target.error().message << "\n";
        return 1;
    }

    CancelToken cancel;
    ProgressBar bar(err, "Exporting");
    Result<void> done;
    {
        InterruptWatch watch(cancel);
        done = render::exportRecording(
            opened->project.directory, spec, *target,
            [&](double fraction) { bar.update(fraction); }, cancel);
    }
    bar.end();
    if (!done) {
        err << done.error().message << "\n";
        return 1;
    }
    out << target->string() << "\n";
    return 0;
}

int renderFrameCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    constexpr const char* kUsage = "Usage: quillo render-frame FOLDER TIME OUT.png\n";
    if (args.size() != 3) {
        err << kUsage;
        return 2;
    }
    double time = 0;
    const std::string& text = args[1];
    auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), time);
    if (code != std::errc() || end != text.data() + text.size() || !std::isfinite(time)) {
        err << "The time must be a number of seconds.\n\n" << kUsage;
        return 2;
    }
    auto opened = openRecording(args[0]);
    if (!opened) {
        err << opened.error().message << "\n";
        return 1;
    }
    auto plan = render::renderPlan(opened->project.directory, opened->edits);
    if (!plan) {
        err << plan.error().message << "\n";
        return 1;
    }
    auto frame = render::renderFrame(*plan, std::clamp(time, 0.0, opened->duration));
    if (!frame) {
        err << frame.error().message << "\n";
        return 1;
    }
    if (auto saved = render::savePNG(frame->view(), args[2]); !saved) {
        err << saved.error().message << "\n";
        return 1;
    }
    out << args[2] << "\n";
    return 0;
}

}  // namespace quillo::app
