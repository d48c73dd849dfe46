#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillo::assistant {

// Where the locators look. The defaults are the user's own; tests give a temporary home, their
// own fixed places and a fake shell.
struct LocatorSetup {
    std::filesystem::path home;  // empty: the user's home folder
    // The system's bin folders, searched after the user's own places.
    std::vector<std::filesystem::path> systemBins{"/usr/local/bin", "/usr/bin"};
    // The login shell; none: SHELL, else the user's passwd entry.
    std::optional<std::filesystem::path> shell;
    double probeTimeout = 8.0;    // seconds the login shell may take
    double versionTimeout = 5.0;  // seconds `codex --version` and `npm config get prefix` may take
    // The environment the probe starts from (and the choices get with PATH replaced); none: this
    // process's.
    std::optional<std::map<std::string, std::string>> environment;
};

// What the user's login shell reports: PATH as their profile sets it and the agent CLIs on it.
struct ShellEnvironment {
    std::map<std::string, std::string> environment;  // the starting one, PATH from the shell
    std::optional<std::filesystem::path> codex;
    std::vector<std::filesystem::path> all;  // every codex on the login PATH, in order
    std::optional<std::filesystem::path> claude;
    bool answered = false;  // false when the shell failed or took too long
};

// The login shell to ask: SHELL, else the passwd entry's, else /bin/sh.
std::filesystem::path loginShell();
// Runs `shell -ilc` with the probe command, time-limited. A shell that fails or hangs gives the
// starting environment and no paths.
ShellEnvironment probeShellEnvironment(const LocatorSetup& setup);
// Reads the probe's output into `result`; lines without a marker are the profile's noise.
void parseProbeOutput(std::string_view output, ShellEnvironment& result);

// A version's numbers ("codex-cli 0.10.0" gives 0, 10, 0); empty when there is none.
std::vector<long> parseVersion(std::string_view text);
// True when `a` is older than `b`, number by number.
bool olderVersion(const std::vector<long>& a, const std::vector<long>& b);

bool isExecutableFile(const std::filesystem::path& path);

// Finds the `codex` command, with the choice made in Settings. Thread: any; resolve() and
// installs() run child programs and may take seconds, so they don't belong on the main queue.
class CodexLocator {
public:
    struct Choice {
        std::filesystem::path path;
        std::map<std::string, std::string> environment;
        std::optional<std::string> note;  // for the chat, when the Settings choice has gone
    };
    struct Install {
        std::filesystem::path path;
        std::string label;  // for the Settings menu
        bool operator==(const Install&) const = default;
    };
    // The check of a file picked in Settings: the command, or why it isn't one.
    struct Pick {
        std::optional<std::filesystem::path> command;
        std::string problem;  // "That isn't a Codex command"
        std::string advice;
    };

    explicit CodexLocator(LocatorSetup setup = {});

    ShellEnvironment shellEnvironment() const;
    // `chosen` is the "codexPath" setting.
    std::optional<Choice> resolve(const std::optional<std::string>& chosen) const;
    std::optional<Choice> resolve(const std::optional<std::string>& chosen,
                                  const ShellEnvironment& shell) const;
    // Every codex found, for the Settings menu, each once.
    std::vector<Install> installs() const;
    std::vector<Install> installs(const ShellEnvironment& shell) const;
    // The installed version, from `codex --version`; empty when it doesn't answer.
    std::vector<long> version(const std::filesystem::path& codex,
                              const std::map<std::string, std::string>& environment) const;
    // A file or folder picked in Settings: the codex file, or a folder holding one.
    static Pick checkPicked(const std::filesystem::path& picked);

private:
    std::filesystem::path home() const;

    LocatorSetup m_setup;
};

// Finds the `claude` command. Thread: any (see CodexLocator).
class ClaudeLocator {
public:
    struct Choice {
        std::filesystem::path path;
        std::map<std::string, std::string> environment;
    };

    explicit ClaudeLocator(LocatorSetup setup = {});

    ShellEnvironment shellEnvironment() const;
    std::optional<Choice> resolve() const;
    std::optional<Choice> resolve(const ShellEnvironment& shell) const;

private:
    LocatorSetup m_setup;
};

}  // namespace quillo::assistant
