#include "movies.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>

namespace quillo::testing {

void ffmpeg(const std::string& args, const std::filesystem::path& out) {
    std::string command = "ffmpeg -nostdin -loglevel error -y " + args + " '" + out.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

std::string commandOutput(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return output;
    }
    char buffer[65536];
    size_t count = 0;
    while ((count = fread(buffer, 1, sizeof buffer, pipe)) > 0) {
        output.append(buffer, count);
    }
    pclose(pipe);
    return output;
}

std::string probe(const std::filesystem::path& file, const std::string& extra) {
    return commandOutput("ffprobe -v error -print_format json -show_streams -show_format " + extra +
                         " '" + file.string() + "'");
}

std::vector<float> decodedSound(const std::filesystem::path& file, int rate) {
    std::string bytes = commandOutput("ffmpeg -nostdin -v error -i '" + file.string() +
                                      "' -ac 1 -ar " + std::to_string(rate) + " -f f32le -");
    std::vector<float> samples(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    return samples;
}

}  // namespace quillo::testing
