#include "npm_install.h"

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/file.h>
#include <unistd.h>

namespace quillo::testing {

namespace fs = std::filesystem;

namespace {

std::string contents(const fs::path& file) {
    std::ifstream in(file);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

bool installNpmPackages(const fs::path& sources, const fs::path& install,
                        const std::vector<std::string>& files, std::string& why) {
    std::error_code error;
    fs::create_directories(install, error);
    int lock = open((install / ".install.lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (lock >= 0) {
        flock(lock, LOCK_EX);
    }
    struct Unlock {
        int fd;
        ~Unlock() {
            if (fd >= 0) {
                close(fd);  // releases the lock
            }
        }
    } unlock{lock};
    std::vector<std::string> copied = {"package.json", "package-lock.json"};
    copied.insert(copied.end(), files.begin(), files.end());
    for (const std::string& name : copied) {
        fs::copy_file(sources / name, install / name, fs::copy_options::overwrite_existing, error);
        if (error) {
            why = "can't copy " + name + ": " + error.message();
            return false;
        }
    }
    const fs::path stamp = install / "node_modules" / ".quillo-installed";
    const std::string wanted = contents(sources / "package-lock.json");
    if (fs::exists(stamp) && contents(stamp) == wanted) {
        return true;
    }
    std::string command = "cd '" + install.string() +
                          "' && npm ci --no-audit --no-fund --loglevel=error > npm.log 2>&1";
    if (std::system(command.c_str()) != 0) {
        why = contents(install / "npm.log");
        if (why.empty()) {
            why = "npm ci failed";
        }
        return false;
    }
    std::ofstream(stamp) << wanted;
    return true;
}

}  // namespace quillo::testing
