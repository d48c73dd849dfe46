// The Codex engine's life with a stand-in for `codex app-server` that answers the start, begins
// a tool step and then dies: the chat's messages about it and the restart that resumes.

#include "assistant/codex_session.h"

#include <algorithm>
#include <fstream>
#include <mutex>
#include <sstream>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "assistant/codex_texts.h"
#include "engine_recorder.h"
#include "support/eventually.h"
#include "support/temp_folder.h"

namespace quillo::assistant {
namespace {

using Kind = EngineEvent::Kind;

// Answers initialize and thread/start or thread/resume with the thread "th-1", starts the turn
// with a tool step, says why on standard error and exits. Logs its arguments and every line it
// reads next to itself.
const char* kDyingCli = R"(#!/bin/sh
log="$(dirname "$0")/cli.log"
echo "ARGS $*" >> "$log"
idof() { printf '%s' "$1" | sed 's/^{"id":\([0-9]*\).*/\1/'; }
while read -r line; do
  echo "$line" >> "$log"
  case "$line" in
    *'"method":"initialize"'*) echo "{\"id\":$(idof "$line"),\"result\":{}}" ;;
    *'"method":"thread/'*) echo "{\"id\":$(idof "$line"),\"result\":{\"thread\":{\"id\":\"th-1\"}}}" ;;
    *'"method":"turn/start"'*)
      echo '{"method":"turn/started","params":{"threadId":"th-1","turn":{"id":"u1","status":"inProgress"}}}'
      echo '{"method":"item/started","params":{"item":{"type":"mcpToolCall","id":"c1","server":"quillo","tool":"record","status":"inProgress","arguments":{}}}}'
      echo 'Error: the model provider went away.' >&2
      exit 3 ;;
  esac
done
)";

using Recorder = EngineRecorder;

class CodexSessionTest : public ::testing::Test {
protected:
    void SetUp() override {
        folder.write("codex", kDyingCli);
        ::chmod((folder / "codex").c_str(), 0755);
    }
    std::string log() const {
        std::ifstream file(folder / "cli.log");
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }
    EngineOptions options() const {
        EngineOptions made;
        made.executable = folder / "codex";
        made.workingDirectory = folder.path();
        made.relay = {"/usr/bin/quillo", "--mcp"};
        return made;
    }

    testing::TempFolder folder;
    Recorder recorder;
};

TEST_F(CodexSessionTest, ExitingByItselfEndsTheStepsAndARestartResumesTheThread) {
    auto engine = makeCodexSession(options(), recorder.sink());
    EXPECT_EQ(engine->kind(), EngineKind::Codex);
    ASSERT_TRUE(engine->say("record the settings page"));
    ASSERT_TRUE(testing::eventually([&] { return !recorder.of(Kind::Exited).empty(); }));
    EXPECT_FALSE(engine->busy());
    EXPECT_TRUE(testing::eventually([&] { return !engine->running(); }));

    EXPECT_EQ(recorder.of(Kind::Status).at(0).text, "Starting Codex…");
    EXPECT_EQ(recorder.of(Kind::SessionId).at(0).text, "th-1");
    auto steps = recorder.of(Kind::StepFinished);
    ASSERT_EQ(steps.size(), 1u);
    EXPECT_EQ(steps[0].id, "c1");
    EXPECT_TRUE(steps[0].failed);
    EXPECT_EQ(recorder.of(Kind::Exited).at(0).text,
              "Codex stopped: Error: the model provider went away. Send a message to start it "
              "again.");
    EXPECT_NE(log().find(R"(-c mcp_servers.quillo.command="/usr/bin/quillo")"), std::string::npos);
    EXPECT_NE(log().find(R"("method":"thread/start")"), std::string::npos);

    // The next message starts it again on the same thread.
    ASSERT_TRUE(engine->say("again"));
    ASSERT_TRUE(testing::eventually([&] { return recorder.of(Kind::Exited).size() == 2; }));
    EXPECT_NE(log().find(R"("method":"thread/resume","params":{"approvalPolicy":"never")"),
              std::string::npos);
    EXPECT_NE(log().find(R"("threadId":"th-1")"), std::string::npos);
    EXPECT_TRUE(recorder.of(Kind::TurnEnded).empty());
}

TEST_F(CodexSessionTest, EndingOnPurposeSaysNothingAndStoppingBeforeTheThreadIsStopped) {
    // A CLI that never answers: the turn waits for the thread, and a stop ends it at once.
    folder.write("codex", "#!/bin/sh\nexec cat > /dev/null\n");
    auto engine = makeCodexSession(options(), recorder.sink());
    ASSERT_TRUE(engine->say("hello"));
    EXPECT_TRUE(engine->busy());
    EXPECT_FALSE(engine->say("and more"));  // one turn at a time
    engine->interrupt();
    auto ended = recorder.of(Kind::TurnEnded);
    ASSERT_EQ(ended.size(), 1u);
    EXPECT_EQ(ended[0].text, "Stopped.");
    EXPECT_FALSE(engine->busy());
    EXPECT_TRUE(engine->running());
    engine->end();
    engine.reset();
    EXPECT_TRUE(recorder.of(Kind::Exited).empty());
}

TEST_F(CodexSessionTest, AMissingCliSaysHowToInstallIt) {
    for (const std::filesystem::path& missing :
         {folder / "nothing", std::filesystem::path(), folder.path()}) {
        EngineOptions made = options();
        made.executable = missing;
        auto engine = makeCodexSession(made, recorder.sink());
        auto said = engine->say("hello");
        ASSERT_FALSE(said);
        EXPECT_EQ(said.error().message, codex_texts::kMissing);
        EXPECT_FALSE(engine->busy());
        EXPECT_FALSE(engine->running());
    }
    EXPECT_TRUE(recorder.events.empty());
}

}  // namespace
}  // namespace quillo::assistant
