#include "screen_movie.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace quillo::bench {

bool makeScreenMinute(const std::filesystem::path& out) {
    std::string filter =
        "color=c=0xe8e8ec:s=1920x1080:r=30:d=60,format=yuv420p"
        ",drawbox=x=160:y=120:w=1100:h=760:color=0xffffff:t=fill"
        ",drawbox=x=1320:y=200:w=460:h=600:color=0x2b2d31:t=fill[desk];"
        "testsrc2=s=640x48:r=30:d=60,format=yuv420p[typing];"
        "color=c=0x000000:s=20x28:r=30:d=60,format=yuv420p[pointer];"
        "[desk][typing]overlay=x=240:y=300:format=yuv420:enable='between(t,10,18)'[typed];"
        "[typed][pointer]overlay=eval=frame:format=yuv420:"
        "x='if(between(t,30,36),300+180*(t-30),1500)':"
        "y='if(between(t,30,36),700-60*(t-30),500)'[v];"
        "aevalsrc='if(between(t,10,18),0.2*sin(2*PI*440*t),0)':s=48000:d=60[a]";
    std::string command = "ffmpeg -nostdin -loglevel error -y -filter_complex \"" + filter +
                          "\" -map '[v]' -map '[a]' -c:v libx264 -preset veryfast "
                          "-pix_fmt yuv420p -profile:v high -c:a aac -b:a 128k '" +
                          out.string() + "'";
    return std::system(command.c_str()) == 0;
}

long peakResidentKB() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::strtol(line.c_str() + 6, nullptr, 10);
        }
    }
    return 0;
}

std::filesystem::path screenMinute(const char* program, std::filesystem::path* media) {
    namespace fs = std::filesystem;
    const fs::path folder = fs::absolute(fs::path(program).parent_path() / "media");
    fs::create_directories(folder);
    if (media) {
        *media = folder;
    }
    fs::path movie = folder / "screen-1min-1080p30.mp4";
    if (!fs::exists(movie)) {
        std::fprintf(stderr, "making %s (once)...\n", movie.c_str());
        if (!makeScreenMinute(movie)) {
            std::fprintf(stderr, "could not make the benchmark movie\n");
            return {};
        }
    }
    return movie;
}

}  // namespace quillo::bench
