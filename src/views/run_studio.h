#pragma once

namespace quillo::views {

// Whether a desktop session is there to show windows on (DISPLAY or WAYLAND_DISPLAY).
bool displayAvailable();

// Runs Quillo with the studio window until it quits; returns the exit code.
int runStudio(int argc, char** argv, const char* version);

}  // namespace quillo::views
