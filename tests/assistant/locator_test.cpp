// Finding the agent CLIs: the login shell's answers among its profile's noise, a shell that
// hangs, the install places in a home folder and the Settings choice for Codex.

#include <cstdlib>
#include <fstream>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "assistant/cli_locator.h"

namespace quillo::assistant {
namespace {

namespace fs = std::filesystem;

void writeScript(const fs::path& path, const std::string& body) {
    fs::create_directories(path.parent_path());
    std::ofstream(path) << "#!/bin/sh\n" << body << "\n";
    ::chmod(path.c_str(), 0755);
}

// A codex that reports `version`.
void writeCodex(const fs::path& path, const std::string& version) {
    writeScript(path, "echo 'codex-cli " + version + "'");
}

class LocatorTest : public ::testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/quillo-locator-XXXXXX";
        ASSERT_NE(::mkdtemp(name), nullptr);
        m_root = name;
        home = m_root / "home";
        systemBin = m_root / "usr-bin";
        loginBin = m_root / "login-bin";
        fs::create_directories(home);
        fs::create_directories(systemBin);
        fs::create_directories(loginBin);
        setup.home = home;
        setup.systemBins = {systemBin};
        // An npm of the machine's own is kept out of the way by this one.
        writeScript(loginBin / "npm", "exit 1");
        setup.environment =
            std::map<std::string, std::string>{{"PATH", loginBin.string()},
                                               {"HOME", home.string()},
                                               {"HTTPS_PROXY", "http://127.0.0.1:9"},
                                               {"HTTP_PROXY", "http://127.0.0.1:9"}};
    }
    void TearDown() override { fs::remove_all(m_root); }

    // A shell that prints profile noise, sets PATH as a profile would, then runs the probe.
    void useShell(const std::string& path) {
        setup.shell = m_root / "shell";
        writeScript(*setup.shell,
                    "[ \"$1\" = \"-ilc\" ] || exit 9\n"
                    "echo 'Last login: Tue Nov 24 on pts/0'\n"
                    "echo 'nvm: __PATH__ is not a marker here'\n"
                    "printf 'no newline at the end of the motd'\n"
                    "PATH='" +
                        path +
                        "'; export PATH\n"
                        "exec /bin/sh -c \"$2\"");
    }

    fs::path home, systemBin, loginBin;
    LocatorSetup setup;

private:
    fs::path m_root;
};

// --- the login shell

TEST_F(LocatorTest, TheProbeReadsTheMarkersAndIgnoresTheProfilesNoise) {
    const fs::path second = home / "second-bin";
    writeCodex(loginBin / "codex", "1.0.0");
    writeCodex(second / "codex", "1.0.0");
    writeScript(loginBin / "claude", "exit 0");
    const std::string path = loginBin.string() + ":" + second.string() + ":/usr/bin:/bin";
    useShell(path);

    ShellEnvironment shell = probeShellEnvironment(setup);
    EXPECT_TRUE(shell.answered);
    EXPECT_EQ(shell.environment["PATH"], path);
    EXPECT_EQ(shell.environment["HOME"], home.string());  // the rest kept
    EXPECT_EQ(shell.codex, loginBin / "codex");
    EXPECT_EQ(shell.claude, loginBin / "claude");
    EXPECT_EQ(shell.all, (std::vector<fs::path>{loginBin / "codex", second / "codex"}));
}

TEST_F(LocatorTest, EmptyAnswersAreNoPaths) {
    ShellEnvironment shell;
    parseProbeOutput("motd\n\n__PATH__/a:/b\r\n__CODEX__\n__CLAUDE__\n", shell);
    EXPECT_EQ(shell.environment["PATH"], "/a:/b");
    EXPECT_FALSE(shell.codex);
    EXPECT_FALSE(shell.claude);
    EXPECT_TRUE(shell.all.empty());
}

TEST_F(LocatorTest, AHangingShellFallsBackToTheFixedPlaces) {
    setup.shell = home / "slow-shell";
    writeScript(*setup.shell, "sleep 30");
    setup.probeTimeout = 0.3;
    writeScript(home / ".local/bin/claude", "exit 0");
    writeCodex(systemBin / "codex", "0.5.0");

    auto claude = ClaudeLocator(setup).resolve();
    ASSERT_TRUE(claude);
    EXPECT_EQ(claude->path, home / ".local/bin/claude");
    EXPECT_EQ(claude->environment.at("PATH"), loginBin.string());  // the starting one

    auto codex = CodexLocator(setup).resolve(std::nullopt);
    ASSERT_TRUE(codex);
    EXPECT_EQ(codex->path, systemBin / "codex");
    EXPECT_FALSE(codex->note);
}

TEST_F(LocatorTest, AShellThatCannotStartFallsBackToo) {
    setup.shell = home / "no-such-shell";
    EXPECT_FALSE(ClaudeLocator(setup).resolve());
    writeScript(home / ".claude/local/claude", "exit 0");
    auto claude = ClaudeLocator(setup).resolve();
    ASSERT_TRUE(claude);
    EXPECT_EQ(claude->path, home / ".claude/local/claude");
}

// --- Codex

TEST_F(LocatorTest, AVanishedSettingsChoiceFallsBackToTheLoginShellsWithANote) {
    writeCodex(loginBin / "codex", "0.20.0");
    useShell(loginBin.string() + ":/usr/bin:/bin");
    const std::string gone = (home / "old/codex").string();

    auto choice = CodexLocator(setup).resolve(gone);
    ASSERT_TRUE(choice);
    EXPECT_EQ(choice->path, loginBin / "codex");
    EXPECT_EQ(choice->environment.at("PATH"), loginBin.string() + ":/usr/bin:/bin");
    EXPECT_EQ(choice->note, "The Codex chosen in Settings (" + gone +
                                ") isn't there anymore, so this uses " +
                                (loginBin / "codex").string());
}

TEST_F(LocatorTest, ASettingsChoiceThatIsThereWins) {
    writeCodex(loginBin / "codex", "0.20.0");
    writeCodex(home / "mine/codex", "0.1.0");
    useShell(loginBin.string() + ":/usr/bin:/bin");
    auto choice = CodexLocator(setup).resolve((home / "mine/codex").string());
    ASSERT_TRUE(choice);
    EXPECT_EQ(choice->path, home / "mine/codex");
    EXPECT_FALSE(choice->note);
}

TEST_F(LocatorTest, OfSeveralInstallsTheHighestVersionWinsComparedByNumber) {
    setup.shell = home / "no-such-shell";
    writeCodex(home / ".local/bin/codex", "0.9.1");
    writeCodex(home / ".nvm/versions/node/v20.11.0/bin/codex", "0.10.0");
    writeScript(systemBin / "codex", "echo 'no version here'");

    const std::string gone = (home / "gone/codex").string();
    auto choice = CodexLocator(setup).resolve(gone);
    ASSERT_TRUE(choice);
    EXPECT_EQ(choice->path, home / ".nvm/versions/node/v20.11.0/bin/codex");
    ASSERT_TRUE(choice->note);
    EXPECT_NE(choice->note->find(gone), std::string::npos);
}

TEST_F(LocatorTest, InstallsAreListedOnceWithTheirPlaces) {
    writeCodex(home / ".volta/bin/codex", "0.3.0");
    writeCodex(home / ".nvm/versions/node/v18.0.0/bin/codex", "0.3.0");
    // ~/.local/bin/codex is a link to the nvm one: the same install.
    fs::create_directories(home / ".local/bin");
    fs::create_symlink(home / ".nvm/versions/node/v18.0.0/bin/codex", home / ".local/bin/codex");
    // npm's global prefix, asked from the npm on the login PATH.
    writeScript(loginBin / "npm", "[ \"$*\" = 'config get prefix' ] && echo '" +
                                      (home / "npm-prefix").string() + "'");
    writeCodex(home / "npm-prefix/bin/codex", "0.4.0");
    fs::create_directories(home / ".npm-global/bin");
    ::mkfifo((home / ".npm-global/bin/codex").c_str(), 0755);  // not a file
    useShell(loginBin.string() + ":" + (home / "npm-prefix/bin").string() + ":/usr/bin:/bin");

    auto installs = CodexLocator(setup).installs();
    EXPECT_EQ(installs, (std::vector<CodexLocator::Install>{
                            {home / ".local/bin/codex", "standalone installer"},
                            {home / "npm-prefix/bin/codex", "npm"},
                            {home / ".volta/bin/codex", "Volta"},
                        }));
}

TEST_F(LocatorTest, NoCodexAnywhereIsNoChoice) {
    useShell(loginBin.string() + ":/usr/bin:/bin");
    EXPECT_FALSE(CodexLocator(setup).resolve(std::nullopt));
}

TEST(CodexPick, OnlyAnExecutableOrAFolderHoldingOneIsACodexCommand) {
    char name[] = "/tmp/quillo-pick-XXXXXX";
    ASSERT_NE(::mkdtemp(name), nullptr);
    const fs::path root = name;
    std::ofstream(root / "notes.txt") << "codex";
    writeCodex(root / "Codex/bin/codex", "1.0.0");

    auto text = CodexLocator::checkPicked(root / "notes.txt");
    EXPECT_FALSE(text.command);
    EXPECT_EQ(text.problem, "That isn't a Codex command");
    EXPECT_EQ(text.advice, "Choose the codex file itself, or an app that contains one.");
    EXPECT_FALSE(CodexLocator::checkPicked(root / "missing").command);
    EXPECT_EQ(CodexLocator::checkPicked(root / "Codex").command, root / "Codex/bin/codex");
    EXPECT_EQ(CodexLocator::checkPicked(root / "Codex/bin/codex").command,
              root / "Codex/bin/codex");
    fs::remove_all(root);
}

// --- Claude Code

TEST_F(LocatorTest, ClaudeFromTheLoginShellComesBeforeTheFixedPlaces) {
    writeScript(loginBin / "claude", "exit 0");
    writeScript(home / ".local/bin/claude", "exit 0");
    useShell(loginBin.string() + ":/usr/bin:/bin");
    auto choice = ClaudeLocator(setup).resolve();
    ASSERT_TRUE(choice);
    EXPECT_EQ(choice->path, loginBin / "claude");
}

// --- versions

TEST(Versions, AreComparedNumberByNumber) {
    EXPECT_EQ(parseVersion("codex-cli 0.10.0\n"), (std::vector<long>{0, 10, 0}));
    EXPECT_EQ(parseVersion("v20.11.1"), (std::vector<long>{20, 11, 1}));
    EXPECT_EQ(parseVersion("1.2.3-alpha.4"), (std::vector<long>{1, 2, 3}));
    EXPECT_TRUE(parseVersion("unknown").empty());
    EXPECT_TRUE(olderVersion(parseVersion("0.9.1"), parseVersion("0.10.0")));
    EXPECT_TRUE(olderVersion(parseVersion("1.2"), parseVersion("1.2.0")));
    EXPECT_TRUE(olderVersion({}, parseVersion("0.0.1")));  // no version loses
    EXPECT_FALSE(olderVersion(parseVersion("2.0"), parseVersion("2.0")));
}

}  // namespace
}  // namespace quillo::assistant
