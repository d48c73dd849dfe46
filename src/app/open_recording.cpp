#include "open_recording.h"

#include "media/movie_info.h"

namespace quillo::app {

Result<OpenedRecording> openRecording(const std::filesystem::path& folder) {
    auto project = project::LocalProject::open(folder);
    if (!project) {
        return project.error();
    }
    OpenedRecording opened{*project, 0, {}, {}, false};
    // The movie's own length is what the recipe is checked against; the stored duration stands
    // in only when the movie cannot be read.
    auto movie = media::readMovieInfo(project->recordingFile());
    if (movie) {
        opened.duration = movie->duration;
        opened.videoSize = movie->videoSize;
    } else if (project->metadata.duration) {
        opened.duration = *project->metadata.duration;
    } else {
        return movie.error();
    }
    auto stored = project->loadEdits(opened.duration);
    if (!stored) {
        return stored.error();
    }
    opened.edited = stored->has_value();
    opened.edits = opened.edited ? **stored : project::Edits::fresh(opened.duration);
    if (auto valid = opened.edits.validate(opened.duration); !valid) {
        return valid.error();
    }
    return opened;
}

}  // namespace quillo::app
