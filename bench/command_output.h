#pragma once

#include <cstdio>
#include <string>

namespace quillo::bench {

// The standard output of a shell command (empty when it can't run).
inline std::string output(const std::string& command) {
    std::string text;
    FILE* pipe = popen(command.c_str(), "r");
    char buffer[4096];
    size_t count = 0;
    while (pipe && (count = fread(buffer, 1, sizeof buffer, pipe)) > 0) {
        text.append(buffer, count);
    }
    if (pipe) {
        pclose(pipe);
    }
    return text;
}

}  // namespace quillo::bench
