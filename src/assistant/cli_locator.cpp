#include "assistant/cli_locator.h"

#include <algorithm>
#include <cctype>
#include <pwd.h>
#include <set>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "assistant/child_process.h"
#include "assistant/locator_texts.h"
#include "base/log.h"
#include "base/paths.h"

namespace quillo::assistant {

namespace fs = std::filesystem;

namespace {

std::string replaced(std::string_view text, std::string_view key, const std::string& value) {
    std::string result(text);
    if (size_t at = result.find(key); at != std::string::npos) {
        result.replace(at, key.size(), value);
    }
    return result;
}

std::string trimmed(std::string_view text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin]))) {
        ++begin;
    }
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) {
        --end;
    }
    return std::string(text.substr(begin, end - begin));
}

// The first executable `name` in the folders of a PATH value.
std::optional<fs::path> findOnPath(const std::string& path, std::string_view name) {
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find(':', start);
        if (end == std::string::npos) {
            end = path.size();
        }
        if (end > start) {
            fs::path candidate = fs::path(path.substr(start, end - start)) / name;
            if (isExecutableFile(candidate)) {
                return candidate;
            }
        }
        start = end + 1;
    }
    return std::nullopt;
}

// The same file reached by two paths (a symlink in ~/.local/bin and the npm one) is one install.
fs::path identity(const fs::path& path) {
    std::error_code error;
    fs::path real = fs::canonical(path, error);
    return error ? path.lexically_normal() : real;
}

std::map<std::string, std::string> startingEnvironment(const LocatorSetup& setup) {
    return setup.environment ? *setup.environment : currentEnvironment();
}

// The bin folder of npm's global prefix, asking the npm on the login PATH.
std::optional<fs::path> npmBin(const ShellEnvironment& shell, double timeout) {
    auto path = shell.environment.find("PATH");
    if (path == shell.environment.end()) {
        return std::nullopt;
    }
    std::optional<fs::path> npm = findOnPath(path->second, "npm");
    if (!npm) {
        return std::nullopt;
    }
    ProcessSpec spec{*npm, {"config", "get", "prefix"}, shell.environment, {}};
    // Only the local configuration is read; no update check.
    (*spec.environment)["npm_config_update_notifier"] = "false";
    auto output = runForOutput(spec, timeout);
    if (!output) {
        return std::nullopt;
    }
    std::string prefix = trimmed(*output);
    if (prefix.empty() || prefix.find('\n') != std::string::npos || prefix[0] != '/') {
        return std::nullopt;
    }
    return fs::path(prefix) / "bin";
}

}  // namespace

bool isExecutableFile(const fs::path& path) {
    struct stat info {};
    return !path.empty() && ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

fs::path loginShell() {
    if (auto shell = environmentValue("SHELL")) {
        return *shell;
    }
    if (const passwd* entry = ::getpwuid(::getuid());
        entry != nullptr && entry->pw_shell != nullptr && entry->pw_shell[0] != '\0') {
        return entry->pw_shell;
    }
    return "/bin/sh";
}

void parseProbeOutput(std::string_view output, ShellEnvironment& result) {
    auto after = [](std::string_view line, std::string_view marker) -> std::optional<std::string> {
        if (line.substr(0, marker.size()) != marker) {
            return std::nullopt;
        }
        return std::string(line.substr(marker.size()));
    };
    size_t start = 0;
    while (start < output.size()) {
        size_t end = output.find('\n', start);
        if (end == std::string_view::npos) {
            end = output.size();
        }
        std::string_view line = output.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        start = end + 1;
        if (auto path = after(line, texts::kPathMarker)) {
            if (!path->empty()) {
                result.environment["PATH"] = *path;
                result.answered = true;
            }
        } else if (auto codex = after(line, texts::kCodexMarker)) {
            if (!codex->empty()) {
                result.codex = fs::path(*codex);
            }
        } else if (auto claude = after(line, texts::kClaudeMarker)) {
            if (!claude->empty()) {
                result.claude = fs::path(*claude);
            }
        } else if (auto one = after(line, texts::kAllMarker)) {
            if (!one->empty()) {
                result.all.emplace_back(*one);
            }
        }
    }
}

ShellEnvironment probeShellEnvironment(const LocatorSetup& setup) {
    ShellEnvironment result;
    result.environment = startingEnvironment(setup);
    ProcessSpec spec;
    spec.executable = setup.shell ? *setup.shell : loginShell();
    spec.arguments = {"-ilc", std::string(texts::kProbeCommand)};
    spec.environment = result.environment;
    auto output = runForOutput(spec, setup.probeTimeout);
    if (!output) {
        logInfo("assistant", "the login shell didn't answer: " + output.error().message + " " +
                                 output.error().detail);
        return result;
    }
    parseProbeOutput(*output, result);
    return result;
}

std::vector<long> parseVersion(std::string_view text) {
    std::vector<long> numbers;
    size_t i = 0;
    // The first run of digits and dots that begins with a digit.
    while (i < text.size() && !std::isdigit(static_cast<unsigned char>(text[i]))) {
        ++i;
    }
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
        long value = 0;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
            value = std::min(value * 10 + (text[i] - '0'), 1'000'000'000L);
            ++i;
        }
        numbers.push_back(value);
        if (i + 1 < text.size() && text[i] == '.' &&
            std::isdigit(static_cast<unsigned char>(text[i + 1]))) {
            ++i;
        } else {
            break;
        }
    }
    return numbers;
}

bool olderVersion(const std::vector<long>& a, const std::vector<long>& b) {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end());
}

// --- Codex

CodexLocator::CodexLocator(LocatorSetup setup) : m_setup(std::move(setup)) {}

fs::path CodexLocator::home() const { return m_setup.home.empty() ? homeFolder() : m_setup.home; }

ShellEnvironment CodexLocator::shellEnvironment() const { return probeShellEnvironment(m_setup); }

std::vector<CodexLocator::Install> CodexLocator::installs() const {
    return installs(shellEnvironment());
}

std::vector<CodexLocator::Install> CodexLocator::installs(const ShellEnvironment& shell) const {
    const fs::path home = this->home();
    std::vector<std::pair<fs::path, std::string>> places;
    places.emplace_back(home / ".local/bin/codex", texts::kLabelStandalone);
    if (auto bin = npmBin(shell, m_setup.versionTimeout)) {
        places.emplace_back(*bin / "codex", texts::kLabelNpm);
    }
    places.emplace_back(home / ".npm-global/bin/codex", texts::kLabelNpm);
    places.emplace_back(home / ".volta/bin/codex", texts::kLabelVolta);
    std::error_code error;
    std::vector<fs::path> versions;
    for (fs::directory_iterator it(home / ".nvm/versions/node", error), end; !error && it != end;
         it.increment(error)) {
        versions.push_back(it->path());
    }
    std::sort(versions.begin(), versions.end());
    for (const fs::path& version : versions) {
        places.emplace_back(version / "bin/codex",
                            replaced(texts::kLabelNvm, "{version}", version.filename().string()));
    }
    for (const fs::path& bin : m_setup.systemBins) {
        places.emplace_back(bin / "codex", texts::kLabelSystem);
    }
    for (const fs::path& path : shell.all) {
        places.emplace_back(path, texts::kLabelShell);
    }
    std::vector<Install> found;
    std::set<fs::path> seen;
    for (auto& [path, label] : places) {
        if (isExecutableFile(path) && seen.insert(identity(path)).second) {
            found.push_back({path, label});
        }
    }
    return found;
}

std::vector<long> CodexLocator::version(
    const fs::path& codex, const std::map<std::string, std::string>& environment) const {
    auto output = runForOutput({codex, {"--version"}, environment, {}}, m_setup.versionTimeout);
    return output ? parseVersion(*output) : std::vector<long>{};
}

std::optional<CodexLocator::Choice> CodexLocator::resolve(
    const std::optional<std::string>& chosen) const {
    return resolve(chosen, shellEnvironment());
}

std::optional<CodexLocator::Choice> CodexLocator::resolve(const std::optional<std::string>& chosen,
                                                          const ShellEnvironment& shell) const {
    if (chosen && isExecutableFile(*chosen)) {
        return Choice{*chosen, shell.environment, std::nullopt};
    }
    auto choice = [&](const fs::path& path) {
        Choice result{path, shell.environment, std::nullopt};
        if (chosen && !chosen->empty()) {
            result.note = replaced(replaced(texts::kChosenCodexGone, "{path}", *chosen), "{other}",
                                   path.string());
        }
        return result;
    };
    if (shell.codex && isExecutableFile(*shell.codex)) {
        return choice(*shell.codex);
    }
    std::vector<Install> found = installs(shell);
    if (found.empty()) {
        return std::nullopt;
    }
    size_t best = 0;
    if (found.size() > 1) {
        std::vector<long> bestVersion = version(found[0].path, shell.environment);
        for (size_t i = 1; i < found.size(); ++i) {
            std::vector<long> other = version(found[i].path, shell.environment);
            if (olderVersion(bestVersion, other)) {
                best = i;
                bestVersion = std::move(other);
            }
        }
    }
    return choice(found[best].path);
}

CodexLocator::Pick CodexLocator::checkPicked(const fs::path& picked) {
    if (isExecutableFile(picked)) {
        return {picked, {}, {}};
    }
    std::error_code error;
    if (fs::is_directory(picked, error)) {
        for (const char* inside : {"codex", "bin/codex", "codex-cli/codex"}) {
            if (isExecutableFile(picked / inside)) {
                return {picked / inside, {}, {}};
            }
        }
    }
    return {std::nullopt, std::string(texts::kNotACodexCommand),
            std::string(texts::kChooseCodexFile)};
}

// --- Claude Code

ClaudeLocator::ClaudeLocator(LocatorSetup setup) : m_setup(std::move(setup)) {}

ShellEnvironment ClaudeLocator::shellEnvironment() const { return probeShellEnvironment(m_setup); }

std::optional<ClaudeLocator::Choice> ClaudeLocator::resolve() const {
    return resolve(shellEnvironment());
}

std::optional<ClaudeLocator::Choice> ClaudeLocator::resolve(const ShellEnvironment& shell) const {
    if (shell.claude && isExecutableFile(*shell.claude)) {
        return Choice{*shell.claude, shell.environment};
    }
    const fs::path home = m_setup.home.empty() ? homeFolder() : m_setup.home;
    std::vector<fs::path> places{home / ".local/bin/claude", home / ".claude/local/claude"};
    if (auto bin = npmBin(shell, m_setup.versionTimeout)) {
        places.push_back(*bin / "claude");
    }
    places.push_back(home / ".npm-global/bin/claude");
    places.push_back(home / ".volta/bin/claude");
    std::error_code error;
    std::vector<fs::path> versions;
    for (fs::directory_iterator it(home / ".nvm/versions/node", error), end; !error && it != end;
         it.increment(error)) {
        versions.push_back(it->path() / "bin/claude");
    }
    // The newest Node's first.
    std::sort(versions.begin(), versions.end(), [](const fs::path& a, const fs::path& b) {
        return olderVersion(parseVersion(b.parent_path().parent_path().filename().string()),
                            parseVersion(a.parent_path().parent_path().filename().string()));
    });
    places.insert(places.end(), versions.begin(), versions.end());
    for (const fs::path& bin : m_setup.systemBins) {
        places.push_back(bin / "claude");
    }
    for (const fs::path& path : places) {
        if (isExecutableFile(path)) {
            return Choice{path, shell.environment};
        }
    }
    return std::nullopt;
}

}  // namespace quillo::assistant
