#include "movies.h"

#include <cstdlib>

#include <gtest/gtest.h>

namespace quillo::testing {

void ffmpeg(const std::string& args, const std::filesystem::path& out) {
    std::string command = "ffmpeg -nostdin -loglevel error -y " + args + " '" + out.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

}  // namespace quillo::testing
