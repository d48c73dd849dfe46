#pragma once

// The real agent CLIs for the assistant's tests, installed from npm at the versions pinned in
// tests/assistant/npm, and an environment in which they send nothing off this machine.

#include <filesystem>
#include <map>
#include <string>

#include "headless_quillo.h"
#include "support/eventually.h"

namespace quillo::assistant {

inline const std::filesystem::path kCliSources = QUILLO_CLI_NPM_DIR;
inline const std::filesystem::path kCliInstall = QUILLO_CLI_INSTALL_DIR;
inline const std::filesystem::path kClaudeCli = kCliInstall / "node_modules" / ".bin" / "claude";
inline const std::filesystem::path kCodexCli = kCliInstall / "node_modules" / ".bin" / "codex";

// Installs the pinned CLIs once per build tree; false (with npm's reason in `why`) when npm
// can't.
bool installAgentClis(std::string& why);

// `base` with HOME at `home`, every proxy pointing at a dead loopback port, the CLIs' telemetry,
// update checks and other nonessential traffic turned off, and no credentials.
std::map<std::string, std::string> offlineEnvironment(std::map<std::string, std::string> base,
                                                      const std::filesystem::path& home);

// Node starting a CLI, and Quillo's bridge built with sanitizers, are slow on a busy machine.
template <class Condition>
bool within(Condition done, int seconds = 90) {
    return testing::eventually(done, seconds);
}

// A headless Quillo for the pinned CLIs to attach to, in an isolated home with a "project"
// folder to work in; skipped when npm can't install the CLIs.
class AgentCliTest : public agent::HeadlessQuilloTest {
protected:
    void SetUp() override {
        std::string why;
        if (!installAgentClis(why)) {
            GTEST_SKIP() << "npm can't install the pinned CLIs: " << why;
        }
        isolate();
        startQuillo();
        std::filesystem::create_directories(home / "project");
    }
};

}  // namespace quillo::assistant
