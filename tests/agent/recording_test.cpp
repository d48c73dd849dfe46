// Records an xterm end to end: `quillo --headless` on a private X server, driven by the official
// MCP SDK client while xdotool types into the terminal; then the saved recording, its rendered
// frame and its export are checked. Also a recording killed mid-way, recovered at the next start.

#include <chrono>
#include <filesystem>
#include <signal.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/files.h"
#include "base/json.h"
#include "project/cursor_track.h"
#include "redaction/sensitive_scanner.h"
#include "sdk_install.h"
#include "support/movies.h"
#include "support/temp_folder.h"
#include "support/x_session.h"

namespace quillo::agent {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

double probeDuration(const fs::path& file, const std::string& stream = "v:0") {
    std::string text = testing::commandOutput(
        "ffprobe -v error -select_streams " + stream +
        " -count_frames -show_entries stream=nb_read_frames,r_frame_rate -of json '" +
        file.string() + "'");
    auto json = parseJson(text);
    if (!json || (*json)["streams"].empty()) {
        return 0;
    }
    const Json& info = (*json)["streams"][0];
    int frames = std::stoi(info.value("nb_read_frames", std::string("0")));
    std::string rate = info.value("r_frame_rate", std::string("30/1"));
    double fps =
        std::stod(rate.substr(0, rate.find('/'))) / std::stod(rate.substr(rate.find('/') + 1));
    return frames / fps;
}

class Recording : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        if (!installSdkClient(why)) {
            GTEST_SKIP() << "npm could not install the MCP SDK client: " << why;
        }
        x = testing::XSession::start({}, why);
        if (!x) {
            GTEST_SKIP() << "no X server: " << why;
        }
        testing::isolateHome(environment, home.path());
        environment.set("QUILLO_LIBRARY", (home / "Library").string());
        environment.set("QUILLO_SUPPORT", (home / "Support").string());
        environment.set("QUILLO_SELFTEST", "1");
        // No sound server here: recordings go on silent, with a notice.
        environment.set("PULSE_SERVER", "unix:/nonexistent");
        terminal = x->spawn({"xterm", "-geometry", "60x12+40+40", "-fa", "Monospace", "-fs", "14",
                             "-bg", "white", "-fg", "black", "-title", "demo terminal"});
        auto found = x->waitForWindow(terminal);
        ASSERT_TRUE(found) << "the xterm did not show";
        window = *found;
    }

    void TearDown() override { stopQuillo(SIGTERM); }

    void startQuillo() {
        fs::remove(home / "Support" / "mcp.json");
        quillo = fork();
        if (quillo == 0) {
            execl(QUILLO_EXECUTABLE, QUILLO_EXECUTABLE, "--headless", nullptr);
            _exit(127);
        }
        for (int i = 0; i < 200 && !info; ++i) {
            if (auto text = readFile(home / "Support" / "mcp.json")) {
                info = parseJson(*text).value_or(Json());
                if (info->is_null()) {
                    info.reset();
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ASSERT_TRUE(info) << "quillo did not publish mcp.json";
    }

    void stopQuillo(int signal) {
        if (quillo > 0) {
            kill(quillo, signal);
            waitpid(quillo, nullptr, 0);
            quillo = -1;
        }
        info.reset();
    }

    std::string node(const std::string& arguments) { return runSdkScript("record.mjs", arguments); }
    std::string address() {
        return "'" + (*info)["url"].get<std::string>() + "' " + (*info)["token"].get<std::string>();
    }

    TempFolder home;
    testing::ScopedEnvironment environment;
    std::unique_ptr<testing::XSession> x;
    pid_t terminal = -1;
    uint32_t window = 0;
    pid_t quillo = -1;
    std::optional<Json> info;
};

TEST_F(Recording, AnAgentRecordsTypingIntoATerminal) {
    startQuillo();
    fs::path out = home / "out";
    fs::create_directories(out);
    std::string output = node("demo " + address() + " " + std::to_string(window) + " " +
                              std::to_string(terminal) + " '" + out.string() + "'");
    ASSERT_NE(output.find("exit 0"), std::string::npos) << output;

    auto result = parseJson(*readFile(out / "result.json"));
    ASSERT_TRUE(result);
    const Json& recording = (*result)["recording"];
    const Json& cut = (*result)["cut"];
    // The pause lasted 1.5 s; the cut holds it within a tenth of a second.
    EXPECT_NEAR(cut["end"].get<double>() - cut["start"].get<double>(), 1.5, 0.1);
    // Every recorded time lies inside the movie.
    double duration = recording["duration"].get<double>();
    for (const Json& t : recording["typing"]) {
        EXPECT_LT(t.get<double>(), duration);
    }
    // The export lasts the recording less the cut.
    double expected = duration - (cut["end"].get<double>() - cut["start"].get<double>());
    EXPECT_NEAR(probeDuration(out / "demo.mp4"), expected, 0.15);

    // The rendered frame shows the typed address, read back by text recognition.
    testing::ffmpeg("-i '" + (out / "frame.jpg").string() + "' -f rawvideo -pix_fmt bgra",
                    out / "frame.raw");
    auto size = parseJson(
        testing::commandOutput("ffprobe -v error -show_entries stream=width,height -of json '" +
                               (out / "frame.jpg").string() + "'"));
    ASSERT_TRUE(size);
    media::VideoFrame frame;
    frame.width = (*size)["streams"][0]["width"].get<int>();
    frame.height = (*size)["streams"][0]["height"].get<int>();
    frame.stride = frame.width * 4;
    auto bytes = readFile(out / "frame.raw");
    ASSERT_TRUE(bytes);
    frame.pixels.assign(bytes->begin(), bytes->end());
    redaction::SensitiveScanner scanner(1);
    auto findings = scanner.recognize(frame);
    ASSERT_TRUE(findings) << findings.error().message;
    bool seen = false;
    for (const auto& finding : *findings) {
        seen = seen || finding.text.find("demo@quillo.dev") != std::string::npos;
    }
    EXPECT_TRUE(seen) << "the typed address is not in the rendered frame";
}

TEST_F(Recording, AKilledRecordingIsRecoveredAtTheNextStart) {
    startQuillo();
    std::string output = node("start " + address() + " " + std::to_string(terminal));
    ASSERT_NE(output.find("exit 0"), std::string::npos) << output;
    // Something moves on screen while the recording runs.
    x->xdotool("mousemove --window " + std::to_string(window) + " 30 30");
    for (int i = 0; i < 10; ++i) {
        x->xdotool("type --delay 50 'line " + std::to_string(i) + "'");
        x->xdotool("key Return");
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
    }
    std::this_thread::sleep_for(std::chrono::seconds(4));
    stopQuillo(SIGKILL);

    fs::path folder;
    for (const auto& entry : fs::directory_iterator(home / "Library")) {
        folder = entry.path();
    }
    ASSERT_FALSE(folder.empty());
    // What the killed process left plays: at least 8 of the 10 seconds.
    EXPECT_GE(probeDuration(folder / "recording.mp4"), 8.0);

    startQuillo();
    stopQuillo(SIGTERM);
    auto project = parseJson(*readFile(folder / "project.json"));
    ASSERT_TRUE(project);
    ASSERT_TRUE(project->contains("duration"));
    EXPECT_GE((*project)["duration"].get<double>(), 8.0);
    EXPECT_FALSE(fs::exists(folder / ".recording"));
    EXPECT_TRUE(fs::exists(folder / "cursor.json"));

    std::string exported =
        testing::commandOutput(std::string(QUILLO_EXECUTABLE) + " export '" + folder.string() +
                               "' --out '" + (home / "recovered.mp4").string() + "'");
    EXPECT_GE(probeDuration(home / "recovered.mp4"), 8.0) << exported;
}

TEST_F(Recording, AnAgentPlaysThreeDemoStepsAndItsThinkingIsCut) {
    pid_t form = x->spawn({QUILLO_GTK_ENTRY, "Demo form"});
    ASSERT_TRUE(x->waitForWindow(form));
    startQuillo();
    fs::path out = home / "out";
    fs::create_directories(out);
    std::string output =
        node("steps " + address() + " " + std::to_string(form) + " '" + out.string() + "'");
    ASSERT_NE(output.find("exit 0"), std::string::npos) << output;
    auto result = parseJson(*readFile(out / "steps.json"));
    ASSERT_TRUE(result);
    const Json& markers = (*result)["markers"];
    ASSERT_EQ(markers["markers"].size(), 3u);
    EXPECT_EQ(markers["markers"][0]["label"], "Type a name");
    EXPECT_FALSE(markers["chapters"].empty());
    const Json& recording = (*result)["recording"];
    // Three thinking stretches of 2 s (the last one open at the stop) are cut.
    const Json& cuts = recording["edits"]["segments"];
    ASSERT_EQ(cuts.size(), 3u) << cuts.dump();
    double cut = 0;
    for (const Json& segment : cuts) {
        cut += segment["end"].get<double>() - segment["start"].get<double>();
    }
    EXPECT_GT(cut, 5.5);
    EXPECT_GE(recording["clicks"].size(), 2u);
    // The AI cursor is in the track: its own arrow is one of the recorded shapes.
    auto track = project::loadCursorTrack(recording["id"].get<std::string>());
    ASSERT_TRUE(track && *track && (*track)->shapes);
    bool arrow = false;
    for (const auto& shape : *(*track)->shapes) {
        arrow = arrow || (shape.width == 16 && shape.height == 22);
    }
    EXPECT_TRUE(arrow);
    EXPECT_NEAR(probeDuration(out / "steps.mp4"), recording["finishedDuration"].get<double>(),
                0.15);
}

}  // namespace
}  // namespace quillo::agent
