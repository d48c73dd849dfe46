#include "cli_install.h"

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/file.h>
#include <unistd.h>

namespace quillo::assistant {

namespace fs = std::filesystem;

bool installAgentClis(std::string& why) {
    std::error_code error;
    fs::create_directories(kCliInstall, error);
    // Test processes run side by side: one installs while the others wait, and a stamp written
    // after a whole install tells them it is there (a killed install leaves none).
    int lock = open((kCliInstall / ".install.lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
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
    const fs::path stamp = kCliInstall / "node_modules" / ".quillo-installed";
    const fs::path lockFile = kCliSources / "package-lock.json";
    // A changed pin installs again.
    std::ifstream pinned(lockFile);
    std::stringstream wanted;
    wanted << pinned.rdbuf();
    std::ifstream stamped(stamp);
    std::stringstream have;
    have << stamped.rdbuf();
    if (fs::exists(stamp) && have.str() == wanted.str()) {
        return true;
    }
    for (const char* name : {"package.json", "package-lock.json"}) {
        fs::copy_file(kCliSources / name, kCliInstall / name, fs::copy_options::overwrite_existing,
                      error);
        if (error) {
            why = "can't copy " + std::string(name) + ": " + error.message();
            return false;
        }
    }
    const fs::path log = kCliInstall / "npm.log";
    std::string command = "cd '" + kCliInstall.string() +
                          "' && npm ci --no-audit --no-fund --loglevel=error > npm.log 2>&1";
    if (std::system(command.c_str()) != 0) {
        std::ifstream in(log);
        std::stringstream text;
        text << in.rdbuf();
        why = text.str().empty() ? "npm ci failed" : text.str();
        return false;
    }
    std::ofstream(stamp) << wanted.str();
    return true;
}

std::map<std::string, std::string> offlineEnvironment(std::map<std::string, std::string> base,
                                                      const fs::path& home) {
    for (const char* name : {"ANTHROPIC_API_KEY", "ANTHROPIC_AUTH_TOKEN", "CLAUDE_CODE_OAUTH_TOKEN",
                             "CLAUDE_CONFIG_DIR", "OPENAI_API_KEY", "CODEX_API_KEY", "CODEX_HOME",
                             "NO_PROXY", "no_proxy", "ALL_PROXY", "all_proxy"}) {
        base.erase(name);
    }
    const std::string deadPort = "http://127.0.0.1:9";
    base["HOME"] = home.string();
    base["HTTPS_PROXY"] = deadPort;
    base["HTTP_PROXY"] = deadPort;
    base["https_proxy"] = deadPort;
    base["http_proxy"] = deadPort;
    base["DISABLE_TELEMETRY"] = "1";
    base["DISABLE_AUTOUPDATER"] = "1";
    base["DISABLE_ERROR_REPORTING"] = "1";
    base["DISABLE_BUG_COMMAND"] = "1";
    base["CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC"] = "1";
    return base;
}

}  // namespace quillo::assistant
