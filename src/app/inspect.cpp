#include "inspect.h"

#include <cstdio>
#include <ostream>

#include "base/clock.h"
#include "media/movie_info.h"
#include "project/local_project.h"

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
    auto project = project::LocalProject::open(folder);
    if (!project) {
        err << project.error().message << "\n";
        return 1;
    }
    // The movie's own length is what the recipe is checked against; the stored duration stands
    // in only when the movie cannot be read.
    double duration = 0;
    auto movie = media::readMovieInfo(project->recordingFile());
    if (movie) {
        duration = movie->duration;
    } else if (project->metadata.duration) {
        duration = *project->metadata.duration;
    } else {
        err << movie.error().message << "\n";
        return 1;
    }

    auto stored = project->loadEdits(duration);
    if (!stored) {
        err << stored.error().message << "\n";
        return 1;
    }
    const bool edited = stored->has_value();
    project::Edits edits = edited ? **stored : project::Edits::fresh(duration);
    if (auto valid = edits.validate(duration); !valid) {
        err << valid.error().message << "\n";
        return 1;
    }

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
