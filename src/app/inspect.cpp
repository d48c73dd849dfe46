#include "inspect.h"

#include <cstdio>
#include <ostream>

#include "base/clock.h"
#include "open_recording.h"

namespace quillo::app {

namespace {

std::string seconds(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f s", value);
    return text;
}

std::string speed(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g×", value);
    return text;
}

}  // namespace

int inspectProject(const std::filesystem::path& folder, std::ostream& out, std::ostream& err) {
    auto opened = openRecording(folder);
    if (!opened) {
        err << opened.error().message << "\n";
        return 1;
    }
    const double duration = opened->duration;
    const bool edited = opened->edited;
    const project::Edits& edits = opened->edits;
    const project::LocalProject* project = &opened->project;

    out << "Title: " << project->metadata.title << "\n";
    out << "Duration: " << clock(duration, true) << " (" << seconds(duration) << ")\n";
    out << "Edits: " << (edited ? "edits.json" : "none saved (the whole recording is kept)")
        << "\n";
    std::vector<project::TimeSegment> pieces = edits.pieces();
    out << "Kept pieces: " << pieces.size() << "\n";
    for (const project::TimeSegment& piece : pieces) {
        out << "  " << seconds(piece.start) << " – " << seconds(piece.end) << " at "
            << speed(piece.speed) << "\n";
    }
    double output = edits.outputDuration();
    out << "Output duration: " << clock(output, true) << " (" << seconds(output) << ")\n";
    return 0;
}

}  // namespace quillo::app
