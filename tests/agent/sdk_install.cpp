#include "sdk_install.h"

#include <cstdlib>

#include "support/movies.h"

namespace quillo::agent {

namespace fs = std::filesystem;

bool installSdkClient(std::string& why) {
    std::error_code error;
    fs::create_directories(kSdkInstall, error);
    for (const char* name :
         {"package.json", "package-lock.json", "checks.mjs", "client.mjs", "record.mjs"}) {
        fs::copy_file(kSdkSources / name, kSdkInstall / name, fs::copy_options::overwrite_existing,
                      error);
    }
    if (fs::exists(kSdkInstall / "node_modules" / "@modelcontextprotocol" / "sdk")) {
        return true;
    }
    std::string command = "cd '" + kSdkInstall.string() +
                          "' && npm ci --no-audit --no-fund --loglevel=error > npm.log 2>&1";
    if (std::system(command.c_str()) != 0) {
        why = testing::commandOutput("cat '" + (kSdkInstall / "npm.log").string() + "'");
        return false;
    }
    return true;
}

std::string runSdkScript(const std::string& script, const std::string& arguments) {
    return testing::commandOutput("cd '" + kSdkInstall.string() + "' && node " + script + " " +
                                  arguments + " 2>&1; echo \"exit $?\"");
}

}  // namespace quillo::agent
