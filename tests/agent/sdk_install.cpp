#include "sdk_install.h"

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sys/file.h>
#include <unistd.h>

#include "support/movies.h"

namespace quillo::agent {

namespace fs = std::filesystem;

bool installSdkClient(std::string& why) {
    std::error_code error;
    fs::create_directories(kSdkInstall, error);
    // Test processes run side by side: one installs while the others wait for it, and a stamp
    // written after a whole install tells them it is there (a killed install leaves none).
    int lock = open((kSdkInstall / ".install.lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
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
    for (const char* name :
         {"package.json", "package-lock.json", "checks.mjs", "client.mjs", "record.mjs",
          "call.mjs"}) {
        fs::copy_file(kSdkSources / name, kSdkInstall / name, fs::copy_options::overwrite_existing,
                      error);
    }
    const fs::path stamp = kSdkInstall / "node_modules" / ".quillo-installed";
    if (fs::exists(stamp)) {
        return true;
    }
    std::string command = "cd '" + kSdkInstall.string() +
                          "' && npm ci --no-audit --no-fund --loglevel=error > npm.log 2>&1";
    if (std::system(command.c_str()) != 0) {
        why = testing::commandOutput("cat '" + (kSdkInstall / "npm.log").string() + "'");
        return false;
    }
    std::ofstream(stamp) << "installed\n";
    return true;
}

std::string runSdkScript(const std::string& script, const std::string& arguments) {
    return testing::commandOutput("cd '" + kSdkInstall.string() + "' && node " + script + " " +
                                  arguments + " 2>&1; echo \"exit $?\"");
}

}  // namespace quillo::agent
