#include "sdk_install.h"

#include "support/movies.h"
#include "support/npm_install.h"

namespace quillo::agent {

bool installSdkClient(std::string& why) {
    return testing::installNpmPackages(kSdkSources, kSdkInstall,
                                       {"checks.mjs", "client.mjs", "record.mjs", "call.mjs"}, why);
}

std::string runSdkScript(const std::string& script, const std::string& arguments) {
    return testing::commandOutput("cd '" + kSdkInstall.string() + "' && node " + script + " " +
                                  arguments + " 2>&1; echo \"exit $?\"");
}

}  // namespace quillo::agent
