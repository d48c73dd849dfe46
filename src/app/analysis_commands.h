#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace quillo::app {

// `quillo captions FOLDER [--language LOCALE]`: transcribes the recording's speech on this
// computer, saves its captions and shows them in the recipe; prints the captions.
// `quillo subtitles FOLDER [--format srt|vtt] [--out PATH]`: writes the captions timed to the
// finished video and prints the file's path (default: the library's "Exports" folder).
// `quillo scan FOLDER [--apply]`: lists what looks private on screen as proposed redactions;
// with --apply adds them to the recipe.
// Each returns 0, 1 on failure (the message as it stands), 2 on bad arguments; Ctrl+C stops.
int captionsCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);
int subtitlesCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);
int scanCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace quillo::app
