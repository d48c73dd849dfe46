#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace quillo::app {

// `quillo export FOLDER [--preset ID] [--format mp4|gif] [--size original|1080p|720p]
// [--reframe fit|follow] [--out PATH]`: renders the recording with its recipe and prints the
// finished file's path. Without --out the file goes to the library's "Exports" folder under the
// preset's file name, never over an existing file. A progress bar is drawn when `err` is a
// terminal; Ctrl+C cancels and leaves no file. Returns 0, 1 on failure (the message as it
// stands), 2 on bad arguments.
int exportCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

// `quillo render-frame FOLDER TIME OUT.png`: the finished frame at recording time TIME.
int renderFrameCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace quillo::app
