// Child programs as the assistant runs agent CLIs: lines out, lines in, the exit and its error
// text, and ending a program that started others.

#include "assistant/child_process.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <signal.h>
#include <thread>

#include <gtest/gtest.h>

namespace quillo::assistant {
namespace {

using namespace std::chrono_literals;

// Collects what a child reports, for the test thread to wait on.
struct Reports {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;
    std::optional<int> status;
    std::string errors;

    ChildProcess::LineHandler onLine() {
        return [this](std::string line) {
            std::lock_guard lock(mutex);
            lines.push_back(std::move(line));
            changed.notify_all();
        };
    }
    ChildProcess::ExitHandler onExit() {
        return [this](int code, std::string text) {
            std::lock_guard lock(mutex);
            status = code;
            errors = std::move(text);
            changed.notify_all();
        };
    }
    bool waitFor(std::function<bool()> done, std::chrono::milliseconds limit = 5000ms) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, limit, done);
    }
};

ProcessSpec shell(const std::string& script) { return {"/bin/sh", {"-c", script}, {}, {}}; }

bool alive(pid_t pid) { return kill(pid, 0) == 0; }

TEST(ChildProcess, LinesGoBothWaysAndTheExitComesWithItsErrors) {
    Reports reports;
    auto child =
        ChildProcess::start(shell("echo ready; while read line; do echo \"got $line\"; done; "
                                  "printf 'no newline'; echo 'it broke' >&2; exit 3"),
                            reports.onLine(), reports.onExit());
    ASSERT_TRUE(child) << child.error().message;
    ASSERT_TRUE((*child)->writeLine("one"));
    ASSERT_TRUE((*child)->writeLine(R"({"type":"user"})"));
    (*child)->closeInput();
    ASSERT_TRUE(reports.waitFor([&] { return reports.status.has_value(); }));
    EXPECT_EQ(reports.lines, (std::vector<std::string>{"ready", "got one", R"(got {"type":"user"})",
                                                       "no newline"}));
    EXPECT_EQ(*reports.status, 3);
    EXPECT_EQ(reports.errors, "it broke\n");
    EXPECT_FALSE((*child)->writeLine("too late"));
}

TEST(ChildProcess, TheEnvironmentAndFolderAreTheOnesGiven) {
    Reports reports;
    ProcessSpec spec = shell("echo \"$ONLY:${HOME:-none}\"; pwd");
    spec.environment = std::map<std::string, std::string>{{"ONLY", "this"}};
    spec.workingDirectory = "/tmp";
    auto child = ChildProcess::start(spec, reports.onLine(), reports.onExit());
    ASSERT_TRUE(child);
    ASSERT_TRUE(reports.waitFor([&] { return reports.status.has_value(); }));
    EXPECT_EQ(reports.lines, (std::vector<std::string>{"this:none", "/tmp"}));
}

TEST(ChildProcess, EndingAProgramEndsWhatItStartedToo) {
    Reports reports;
    // The shell ignores the polite signal, so only the forceful one after the grace ends it;
    // the sleep below it is in the same group.
    auto child = ChildProcess::start(shell("trap '' TERM; sleep 60 & echo $!; wait"),
                                     reports.onLine(), reports.onExit());
    ASSERT_TRUE(child);
    ASSERT_TRUE(reports.waitFor([&] { return !reports.lines.empty(); }));
    const pid_t sleeper = std::stoi(reports.lines.front());
    (*child)->terminate(0.3);
    ASSERT_TRUE(reports.waitFor([&] { return reports.status.has_value(); }));
    EXPECT_EQ(*reports.status, 128 + SIGKILL);
    for (int i = 0; i < 150 && alive(sleeper); ++i) {
        std::this_thread::sleep_for(20ms);
    }
    EXPECT_FALSE(alive(sleeper));
}

TEST(ChildProcess, AMissingProgramIsAnErrorAndAProbeThatHangsIsCut) {
    auto missing = ChildProcess::start({"/nonexistent/claude", {}, {}, {}}, nullptr, nullptr);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().message, "Couldn't start claude.");

    auto output = runForOutput(shell("echo quick"), 5);
    ASSERT_TRUE(output);
    EXPECT_EQ(*output, "quick\n");
    const auto start = std::chrono::steady_clock::now();
    auto hung = runForOutput(shell("echo partial; sleep 30"), 0.5);
    EXPECT_FALSE(hung);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

}  // namespace
}  // namespace quillo::assistant
