#include "cli_install.h"

#include "support/npm_install.h"

namespace quillo::assistant {

namespace fs = std::filesystem;

bool installAgentClis(std::string& why) {
    return testing::installNpmPackages(kCliSources, kCliInstall, {}, why);
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
