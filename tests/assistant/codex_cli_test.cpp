// The Codex engine with the real CLI from npm, attached to a headless Quillo through the
// `--mcp` bridge, its model a stand-in on the loopback interface, every other request blocked.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "agent/agent_tools.h"
#include "assistant/codex_protocol.h"
#include "assistant/codex_session.h"
#include "cli_install.h"
#include "engine_recorder.h"
#include "headless_quillo.h"

namespace quillo::assistant {
namespace {

using Kind = EngineEvent::Kind;

using Recorder = EngineRecorder;

// The lines a child writes, gathered for the test.
struct Lines {
    std::mutex mutex;
    std::vector<std::string> lines;

    ChildProcess::LineHandler sink() {
        return [this](std::string line) {
            std::lock_guard lock(mutex);
            lines.push_back(std::move(line));
        };
    }
    std::optional<std::string> find(const std::string& part) {
        std::lock_guard lock(mutex);
        for (const auto& line : lines) {
            if (line.find(part) != std::string::npos) {
                return line;
            }
        }
        return std::nullopt;
    }
};

class CodexCliTest : public AgentCliTest {
protected:
    void SetUp() override {
        AgentCliTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        startModel();
    }

    // The stand-in model, and the CLI's configuration pointing at it with everything that
    // would reach outside hosts turned off.
    void startModel() {
        auto model = ChildProcess::start(
            {"/usr/bin/env", {"node", QUILLO_CODEX_STANDIN, (home / "model.log").string()}, {}, {}},
            modelOutput.sink(), [](int, std::string) {});
        ASSERT_TRUE(model);
        m_model = std::move(model).value();
        ASSERT_TRUE(within([&] { return modelOutput.find("PORT ").has_value(); }, 30));
        const std::string port = modelOutput.find("PORT ")->substr(5);
        home.write(".codex/config.toml",
                   "model = \"standin-model\"\n"
                   "model_provider = \"standin\"\n"
                   "check_for_update_on_startup = false\n"
                   "web_search = \"disabled\"\n"
                   "[features]\nplugins = false\napps = false\nremote_plugin = false\n"
                   "[analytics]\nenabled = false\n"
                   "[model_providers.standin]\n"
                   "name = \"standin\"\n"
                   "base_url = \"http://127.0.0.1:" +
                       port +
                       "/v1\"\n"
                       "wire_api = \"responses\"\n"
                       "requires_openai_auth = false\n"
                       "stream_max_retries = 0\n"
                       "request_max_retries = 0\n");
    }

    EngineOptions options() {
        EngineOptions made;
        made.executable = kCodexCli;
        auto environment = offlineEnvironment(currentEnvironment(), home.path());
        environment["CODEX_HOME"] = (home / ".codex").string();
        environment["NO_PROXY"] = "127.0.0.1";  // the stand-in model only
        environment["no_proxy"] = "127.0.0.1";
        made.environment = environment;
        made.workingDirectory = home / "project";
        made.relay = {QUILLO_EXECUTABLE, "--mcp"};
        made.instructions = "You are the assistant inside Quillo.";
        return made;
    }

    std::string modelLog() const {
        std::ifstream file(home / "model.log");
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }

    Lines modelOutput;

private:
    std::unique_ptr<ChildProcess> m_model;
};

TEST_F(CodexCliTest, TheCommandLineAttachesQuillosServerWithAllItsTools) {
    Lines output;
    std::mutex mutex;
    std::optional<std::string> errors;
    auto codex = ChildProcess::start(
        {kCodexCli, codex::commandLine(options()), options().environment, home / "project"},
        output.sink(), [&](int, std::string text) {
            std::lock_guard lock(mutex);
            errors = std::move(text);
        });
    ASSERT_TRUE(codex);
    auto send = [&](const Json& message) {
        ASSERT_TRUE((*codex)->writeLine(toCompactJson(message)));
    };
    send(codex::request(1, "initialize", codex::initializeParams()));
    ASSERT_TRUE(within([&] { return output.find(R"("id":1,)").has_value(); }));
    send(codex::notification("initialized"));

    // Asked again until the server has connected and listed its tools.
    std::vector<std::string> listed;
    long id = 2;
    ASSERT_TRUE(within([&] {
        const std::string marker = "\"id\":" + std::to_string(id) + ",";
        send(codex::request(id, "mcpServerStatus/list", Json::object()));
        if (!within([&] { return output.find(marker).has_value(); }, 30)) {
            return false;
        }
        Json answer = Json::parse(*output.find(marker));
        ++id;
        for (const auto& server : answer["result"]["data"]) {
            if (server["name"] == "quillo" && server["tools"].is_object() &&
                !server["tools"].empty()) {
                for (const auto& [name, tool] : server["tools"].items()) {
                    listed.push_back(tool.value("name", name));
                }
                return true;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        return false;
    })) << "quillo never listed its tools";

    std::vector<std::string> expected;
    const agent::AgentTools catalogue(nullptr);
    for (const auto& tool : catalogue.tools()) {
        expected.push_back(tool.name);
    }
    std::sort(expected.begin(), expected.end());
    std::sort(listed.begin(), listed.end());
    EXPECT_EQ(listed, expected);
    std::lock_guard lock(mutex);
    EXPECT_FALSE(errors.has_value()) << *errors;
}

TEST_F(CodexCliTest, AWholeTurnStreamsTextAndRunsQuillosTool) {
    Recorder recorder;
    auto engine = makeCodexSession(options(), recorder.sink());
    ASSERT_TRUE(engine->say("please list my recordings"));
    EXPECT_EQ(recorder.of(Kind::Status).at(0).text, "Starting Codex…");
    ASSERT_TRUE(within([&] { return !recorder.of(Kind::TurnEnded).empty(); }));

    auto ended = recorder.of(Kind::TurnEnded)[0];
    EXPECT_FALSE(ended.failed) << ended.text;
    EXPECT_EQ(ended.text, "");
    EXPECT_EQ(recorder.text(), "Let me look.You have recordings.");
    EXPECT_TRUE(oneStepDone(recorder, "list_recordings"));
    ASSERT_FALSE(recorder.of(Kind::SessionId).empty());
    EXPECT_FALSE(recorder.of(Kind::SessionId)[0].text.empty());
    EXPECT_FALSE(recorder.of(Kind::Models).empty());
    EXPECT_TRUE(recorder.of(Kind::Note).empty()) << recorder.of(Kind::Note)[0].text;
    EXPECT_FALSE(engine->busy());
    EXPECT_TRUE(engine->running());
    // Quillo's answer went back to the model.
    EXPECT_NE(modelLog().find(R"(\"recordings\":[])"), std::string::npos) << modelLog();
}

TEST_F(CodexCliTest, AnInterruptStopsTheTurnAndTheConversationResumesLater) {
    Recorder recorder;
    auto engine = makeCodexSession(options(), recorder.sink());
    ASSERT_TRUE(engine->say("please hang"));
    ASSERT_TRUE(within([&] { return recorder.text() == "Working"; }));
    EXPECT_TRUE(engine->busy());
    engine->interrupt();
    ASSERT_TRUE(within([&] { return !recorder.of(Kind::TurnEnded).empty(); }));
    EXPECT_EQ(recorder.of(Kind::TurnEnded)[0].text, "Stopped.");
    EXPECT_FALSE(recorder.of(Kind::TurnEnded)[0].failed);

    ASSERT_TRUE(engine->say("hello after the stop"));
    ASSERT_TRUE(within([&] { return recorder.of(Kind::TurnEnded).size() == 2; }));
    EXPECT_EQ(recorder.of(Kind::TurnEnded)[1].text, "");
    const std::string thread = recorder.of(Kind::SessionId).at(0).text;
    engine->end();
    EXPECT_FALSE(engine->running());

    // A new engine on the saved id continues the same thread, with its history.
    Recorder resumed;
    EngineOptions again = options();
    again.resume = thread;
    auto next = makeCodexSession(again, resumed.sink());
    ASSERT_TRUE(next->say("and once more"));
    ASSERT_TRUE(within([&] { return !resumed.of(Kind::TurnEnded).empty(); }));
    EXPECT_FALSE(resumed.of(Kind::TurnEnded)[0].failed) << resumed.of(Kind::TurnEnded)[0].text;
    EXPECT_EQ(resumed.of(Kind::SessionId).at(0).text, thread);
    EXPECT_TRUE(resumed.of(Kind::Note).empty()) << resumed.of(Kind::Note)[0].text;
    const std::string log = modelLog();
    const std::string last = log.substr(log.rfind("POST "));
    EXPECT_NE(last.find("hello after the stop"), std::string::npos);
    EXPECT_NE(last.find("and once more"), std::string::npos);
}

TEST_F(CodexCliTest, AThreadThatIsGoneStartsANewOneWithANote) {
    Recorder recorder;
    EngineOptions gone = options();
    gone.resume = "01a20f6c-2d91-77e3-bc3e-000000000000";
    auto engine = makeCodexSession(gone, recorder.sink());
    ASSERT_TRUE(engine->say("hi"));
    ASSERT_TRUE(within([&] { return !recorder.of(Kind::TurnEnded).empty(); }));
    EXPECT_FALSE(recorder.of(Kind::TurnEnded)[0].failed);
    auto notes = recorder.of(Kind::Note);
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_TRUE(notes[0].text.starts_with("Codex couldn't pick up the earlier conversation ("))
        << notes[0].text;
    auto ids = recorder.of(Kind::SessionId);
    ASSERT_EQ(ids.size(), 1u);
    EXPECT_NE(ids[0].text, *gone.resume);
    EXPECT_EQ(recorder.text(), "Hello there.");
}

}  // namespace
}  // namespace quillo::assistant
