#include "analysis_commands.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <ostream>

#include "base/files.h"
#include "base/paths.h"
#include "captions/caption_track.h"
#include "captions/caption_transcriber.h"
#include "command_line.h"
#include "open_recording.h"
#include "preferences.h"
#include "redaction/sensitive_scanner.h"
#include "render/export_preset.h"

namespace quillo::app {

namespace fs = std::filesystem;

namespace {

// FOLDER and the options of a command; nullopt after printing what is wrong.
struct Parsed {
    fs::path folder;
    std::optional<std::string> language;
    std::optional<std::string> format;
    std::optional<std::string> out;
    bool apply = false;
};

std::optional<Parsed> parseArguments(const std::vector<std::string>& args,
                                     const std::vector<std::string>& known, const char* usage,
                                     std::ostream& err) {
    Parsed parsed;
    bool haveFolder = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        bool allowed = std::find(known.begin(), known.end(), arg) != known.end();
        if (arg == "--apply" && allowed) {
            parsed.apply = true;
        } else if (allowed) {
            auto value = optionValue(args, i);
            if (!value) {
                err << arg << " needs a value.\n\n" << usage;
                return std::nullopt;
            }
            (arg == "--language" ? parsed.language
             : arg == "--format" ? parsed.format
                                 : parsed.out) = *value;
        } else if (!arg.starts_with("--") && !haveFolder) {
            parsed.folder = arg;
            haveFolder = true;
        } else {
            err << "Unknown argument “" << arg << "”.\n\n" << usage;
            return std::nullopt;
        }
    }
    if (!haveFolder) {
        err << usage;
        return std::nullopt;
    }
    return parsed;
}

int fail(const AppError& error, std::ostream& err) {
    err << error.message << "\n";
    return 1;
}

std::string seconds(double t) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", t);
    return text;
}

}  // namespace

int captionsCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    constexpr const char* kUsage = "Usage: quillo captions FOLDER [--language LOCALE]\n";
    auto parsed = parseArguments(args, {"--language"}, kUsage, err);
    if (!parsed) {
        return 2;
    }
    auto opened = openRecording(parsed->folder);
    if (!opened) {
        return fail(opened.error(), err);
    }
    std::string locale = parsed->language.value_or(
        Preferences::shared().get(prefs::captionLanguage).value_or("en_US"));
    CancelToken cancel;
    ProgressBar bar(err, "Transcribing");
    Result<captions::CaptionTrack> track = AppError("");
    {
        InterruptWatch watch(cancel);
        track = captions::CaptionTranscriber().transcribe(
            opened->project.recordingFile(), locale,
            [&](const std::string&, std::optional<double> fraction) {
                bar.update(fraction.value_or(0));
            },
            cancel);
    }
    bar.end();
    if (!track) {
        return fail(track.error(), err);
    }
    if (auto saved = track->save(opened->project.directory); !saved) {
        return fail(saved.error(), err);
    }
    // Shown in the finished video, in the style chosen before if there was one.
    project::Edits edits = opened->edits;
    project::CaptionStyle style = edits.captions.value_or(project::CaptionStyle{});
    style.visible = true;
    edits.captions = style;
    if (auto saved = opened->project.saveEdits(edits); !saved) {
        return fail(saved.error(), err);
    }
    for (const captions::CaptionSegment& segment : track->segments) {
        out << seconds(segment.start) << " – " << seconds(segment.end) << "  " << segment.text
            << "\n";
    }
    return 0;
}

int subtitlesCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    constexpr const char* kUsage =
        "Usage: quillo subtitles FOLDER [--format srt|vtt] [--out PATH]\n";
    auto parsed = parseArguments(args, {"--format", "--out"}, kUsage, err);
    if (!parsed) {
        return 2;
    }
    std::string format = parsed->format.value_or("srt");
    if (format != "srt" && format != "vtt") {
        err << "The format must be srt or vtt.\n\n" << kUsage;
        return 2;
    }
    auto opened = openRecording(parsed->folder);
    if (!opened) {
        return fail(opened.error(), err);
    }
    auto track = captions::CaptionTrack::load(opened->project.directory);
    if (!track || track->segments.empty()) {
        err << "This recording has no captions yet. Run quillo captions first.\n";
        return 1;
    }
    const std::string& title = opened->project.metadata.title;
    auto target = render::exportDestination(
        parsed->out ? std::optional<fs::path>(*parsed->out) : std::nullopt,
        libraryRoot(std::nullopt, Preferences::shared().get(prefs::libraryPath)),
        (title.empty() ? "Captions" : title) + "." + format);
    if (!target) {
        return fail(target.error(), err);
    }
    auto kind = format == "vtt" ? captions::SubtitleFormat::Vtt : captions::SubtitleFormat::Srt;
    if (auto written = writeFileAtomically(*target, track->subtitles(kind, opened->edits));
        !written) {
        return fail(written.error(), err);
    }
    out << target->string() << "\n";
    return 0;
}

int scanCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    constexpr const char* kUsage = "Usage: quillo scan FOLDER [--apply]\n";
    auto parsed = parseArguments(args, {"--apply"}, kUsage, err);
    if (!parsed) {
        return 2;
    }
    auto opened = openRecording(parsed->folder);
    if (!opened) {
        return fail(opened.error(), err);
    }
    CancelToken cancel;
    ProgressBar bar(err, "Scanning");
    Result<std::vector<project::Redaction>> proposals = AppError("");
    {
        InterruptWatch watch(cancel);
        redaction::SensitiveScanner scanner;
        proposals = scanner.scan(
            opened->project.recordingFile(), opened->edits.trimStart, opened->edits.trimEnd,
            redaction::sensitive_scan::kInterval, [&](double fraction) { bar.update(fraction); },
            cancel);
    }
    bar.end();
    if (!proposals) {
        return fail(proposals.error(), err);
    }
    for (const project::Redaction& r : *proposals) {
        out << seconds(r.start) << " – " << seconds(r.end) << "  " << r.label.value_or("")
            << " at x " << seconds(r.x) << ", y " << seconds(r.y) << ", " << seconds(r.width)
            << " × " << seconds(r.height) << "\n";
    }
    if (proposals->empty()) {
        out << "Nothing private was found on screen.\n";
    }
    if (parsed->apply && !proposals->empty()) {
        project::Edits edits = opened->edits;
        std::vector<project::Redaction> list = edits.redactionList();
        list.insert(list.end(), proposals->begin(), proposals->end());
        project::sortByStart(list);
        edits.redactions = list;
        if (auto valid = edits.validate(opened->duration); !valid) {
            return fail(valid.error(), err);
        }
        if (auto saved = opened->project.saveEdits(edits); !saved) {
            return fail(saved.error(), err);
        }
        out << "Added " << proposals->size() << " redactions to the recording.\n";
    }
    return 0;
}

}  // namespace quillo::app
