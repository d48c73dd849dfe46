// Records a headless Wayland desktop end to end: `quillo --headless` with no X display, on sway
// with the ScreenCast portal, driven through its control server while a terminal is typed into;
// then the saved recording, its rendered frame and its export. Also the portal's restore token
// across processes (kept, damaged, refused) and a killed recording recovered at the next start.

#include <chrono>
#include <filesystem>
#include <signal.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/files.h"
#include "base/json.h"
#include "headless_quillo.h"
#include "redaction/sensitive_scanner.h"
#include "support/movies.h"
#include "support/temp_folder.h"
#include "support/wayland_session.h"

namespace quillo::agent {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

// Seconds of video in a movie, counted frame by frame.
double playedSeconds(const fs::path& file) {
    auto json = parseJson(
        testing::commandOutput("ffprobe -v error -select_streams v:0 -count_frames -show_entries "
                               "stream=nb_read_frames,r_frame_rate -of json '" +
                               file.string() + "'"));
    if (!json || (*json)["streams"].empty()) {
        return 0;
    }
    const Json& info = (*json)["streams"][0];
    std::string rate = info.value("r_frame_rate", std::string("30/1"));
    double fps =
        std::stod(rate.substr(0, rate.find('/'))) / std::stod(rate.substr(rate.find('/') + 1));
    return std::stoi(info.value("nb_read_frames", std::string("0"))) / fps;
}

using Answer = ToolAnswer;

class WaylandRecording : public HeadlessQuilloTest {
protected:
    void SetUp() override {
        std::string why;
        testing::WaylandSession::Options options;
        options.accessibility = true;
        session = testing::WaylandSession::start(options, why);
        if (!session) {
            GTEST_SKIP() << "no headless Wayland desktop: " << why;
        }
        isolate();
        terminal =
            session->spawn({"foot", "--app-id", "demo-term", "-o", "font=monospace:size=28", "-o",
                            "colors.background=ffffff", "-o", "colors.foreground=000000"});
        ASSERT_TRUE(session->waitForWindow("demo-term")) << "foot did not show";
    }

    // Lines typed into the terminal, one every `interval` seconds.
    void typeLines(int count, double interval) {
        for (int i = 0; i < count; ++i) {
            session->type("echo line " + std::to_string(i) + "\n");
            std::this_thread::sleep_for(std::chrono::duration<double>(interval));
        }
    }

    fs::path tokens() { return home / "Support" / "screencast-tokens.json"; }

    std::unique_ptr<testing::WaylandSession> session;
    pid_t terminal = -1;
};

TEST_F(WaylandRecording, AnAgentRecordsTheScreenAndTheExportShowsTheTyping) {
    startQuillo();
    Answer chosen = tool("choose_source", {{"kind", "display"}});
    ASSERT_FALSE(chosen.failed) << chosen.text;
    EXPECT_EQ(chosen.item["capture"], "portal");
    EXPECT_EQ(chosen.item["source"]["kind"], "display");
    EXPECT_EQ(chosen.item["screenshotSize"]["width"], 1920);

    Answer started = tool("start_recording");
    ASSERT_FALSE(started.failed) << started.text;
    // No input group here: the recording goes on without clicks and keys, and says so.
    EXPECT_NE(started.item["message"].get<std::string>().find("Clicks and keys aren't recorded"),
              std::string::npos);
    session->type("echo demo@quillo.dev\n");
    std::this_thread::sleep_for(std::chrono::seconds(1));
    pid_t form = session->spawn({QUILLO_GTK_ENTRY, "Demo form"});
    ASSERT_TRUE(session->waitForWindow("Demo form"));
    std::this_thread::sleep_for(std::chrono::seconds(2));
    Answer stopped = tool("stop_recording");
    ASSERT_FALSE(stopped.failed) << stopped.text;
    session->stop(form);
    std::string id = stopped.item["id"];

    Answer recording = tool("get_recording", {{"id", id}});
    ASSERT_FALSE(recording.failed) << recording.text;
    EXPECT_EQ(recording.item["size"]["width"], 1920);
    // This portal can only draw the pointer into the picture, and the recording says so.
    EXPECT_EQ(recording.item.value("pointerInPicture", false), true);
    double duration = recording.item["duration"];
    EXPECT_GT(duration, 2.0);

    // A frame near the end shows the typed address, read back by text recognition (a second
    // frame is read when the first gives nothing, as recognition of a busy machine's frame
    // has once come back empty).
    std::string read;
    auto shows = [&](double time) {
        Answer frame = tool("render_frame", {{"id", id}, {"time", time}});
        EXPECT_FALSE(frame.failed) << frame.text.substr(0, 200);
        EXPECT_TRUE(writeFileAtomically(home / "frame.b64", frame.text));
        testing::commandOutput("base64 -d '" + (home / "frame.b64").string() + "' > '" +
                               (home / "frame.jpg").string() + "'");
        auto size = parseJson(
            testing::commandOutput("ffprobe -v error -show_entries stream=width,height -of json '" +
                                   (home / "frame.jpg").string() + "'"));
        if (!size || (*size)["streams"].empty()) {
            return false;
        }
        // Only the terminal's half is read: with the form beside it, page layout analysis has
        // dropped the terminal's middle lines.
        media::VideoFrame picture;
        picture.width = (*size)["streams"][0]["width"].get<int>() / 2;
        picture.height = (*size)["streams"][0]["height"];
        picture.stride = picture.width * 4;
        std::string bytes = testing::commandOutput(
            "ffmpeg -v error -i '" + (home / "frame.jpg").string() +
            "' -vf crop=" + std::to_string(picture.width) + ":ih:0:0 -f rawvideo -pix_fmt bgra -");
        EXPECT_EQ(bytes.size(), static_cast<size_t>(picture.stride) * picture.height);
        picture.pixels.assign(bytes.begin(), bytes.end());
        redaction::SensitiveScanner scanner(1);
        auto findings = scanner.recognize(picture);
        bool seen = false;
        for (const auto& finding : findings.value_or(std::vector<redaction::SensitiveFinding>{})) {
            read += finding.text + " | ";
            seen = seen || finding.text.find("@quillo.dev") != std::string::npos;
        }
        return seen;
    };
    bool seen = shows(duration - 0.2) || shows(duration - 0.8);
    EXPECT_TRUE(seen) << "the typed address is not in the rendered frame; read: " << read;
    if (!seen) {
        fs::copy_file(home / "frame.jpg", fs::temp_directory_path() / "quillo-wayland-frame.jpg",
                      fs::copy_options::overwrite_existing);
    }

    fs::path exported = home / "demo.mp4";
    testing::commandOutput(std::string(QUILLO_EXECUTABLE) + " export '" + id + "' --out '" +
                           exported.string() + "'");
    EXPECT_NEAR(playedSeconds(exported), recording.item["finishedDuration"].get<double>(), 0.15);
}

TEST_F(WaylandRecording, TheNextProcessSharesAgainWithoutAskingAndBadTokensFallBack) {
    startQuillo();
    ASSERT_FALSE(tool("choose_source", {{"kind", "display"}}).failed);
    stopQuillo(SIGTERM);
    auto kept = readFile(tokens());
    ASSERT_TRUE(kept) << "no restore token was kept";
    EXPECT_EQ(fs::status(tokens()).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);

    // A new process records straight away: the portal restores the choice from the token.
    startQuillo();
    Answer started = tool("start_recording");
    ASSERT_FALSE(started.failed) << started.text;
    EXPECT_EQ(started.item["source"]["kind"], "display");
    typeLines(2, 0.3);
    ASSERT_FALSE(tool("stop_recording").failed);
    stopQuillo(SIGTERM);

    // A damaged file is forgotten: the user is asked again (here the portal picks by itself),
    // with a notice.
    ASSERT_TRUE(writeFileAtomically(tokens(), "{\"display\": \"\\u0000 broken", 0600));
    startQuillo();
    Answer unchosen = tool("start_recording");
    EXPECT_TRUE(unchosen.failed) << "nothing is remembered any more";
    Answer again = tool("choose_source", {{"kind", "display"}});
    ASSERT_FALSE(again.failed) << again.text;
    EXPECT_NE(again.item["message"].get<std::string>().find("couldn't be read"), std::string::npos)
        << again.item["message"];
    stopQuillo(SIGTERM);

    // A token the desktop no longer knows is dropped, and the recording still starts.
    ASSERT_TRUE(writeFileAtomically(
        tokens(), R"({"display": "0b9d4e6a-0000-4000-8000-000000000000", "last": "display"})",
        0600));
    startQuillo();
    Answer refused = tool("start_recording");
    ASSERT_FALSE(refused.failed) << refused.text;
    EXPECT_NE(refused.item["message"].get<std::string>().find("no longer remembers"),
              std::string::npos)
        << refused.item["message"];
    ASSERT_FALSE(tool("stop_recording").failed);
    auto renewed = parseJson(*readFile(tokens()));
    ASSERT_TRUE(renewed);
    EXPECT_NE((*renewed)["display"], "0b9d4e6a-0000-4000-8000-000000000000");
}

TEST_F(WaylandRecording, TheSharedDisplayIsFollowedWhenItsSizeChanges) {
    startQuillo();
    ASSERT_FALSE(tool("choose_source", {{"kind", "display"}}).failed);
    session->swaymsg({"output", "HEADLESS-1", "mode", "1280x720"});
    int width = 0;
    for (int i = 0; i < 50 && width != 1280; ++i) {
        typeLines(1, 0.1);  // the compositor sends pictures only when something changes
        width = tool("get_status").item["screenshotSize"].value("width", 0);
    }
    EXPECT_EQ(width, 1280);
    Answer shot = tool("screenshot");
    ASSERT_FALSE(shot.failed) << shot.text.substr(0, 200);
}

// The pid of this session's screen-cast service (others may run beside it).
pid_t portalBackendOf(const fs::path& runtimeDir) {
    for (const auto& entry : fs::directory_iterator("/proc")) {
        std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos) {
            continue;
        }
        auto command = readFile(entry.path() / "cmdline");
        auto environment = readFile(entry.path() / "environ");
        if (command && environment &&
            command->find("xdg-desktop-portal-wlr") != std::string::npos &&
            environment->find(runtimeDir.string()) != std::string::npos) {
            return std::stoi(name);
        }
    }
    return -1;
}

TEST_F(WaylandRecording, ARecordingWhoseStreamEndsIsSavedWithTheMessage) {
    startQuillo();
    ASSERT_FALSE(tool("choose_source", {{"kind", "display"}}).failed);
    ASSERT_FALSE(tool("start_recording").failed);
    typeLines(3, 0.5);
    pid_t portal = portalBackendOf(session->runtimeDir());
    ASSERT_GT(portal, 0) << "the screen-cast service was not found";
    kill(portal, SIGKILL);
    Json status;
    for (int i = 0; i < 100; ++i) {
        status = tool("get_status").item;
        if (status.value("state", "") == "idle") {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_EQ(status.value("state", ""), "idle");
    EXPECT_NE(status.value("message", "").find("Sharing ended"), std::string::npos) << status;
    fs::path folder = lastRecording();
    ASSERT_FALSE(folder.empty());
    EXPECT_GE(playedSeconds(folder / "recording.mp4"), 1.0) << "what was recorded is kept";
}

TEST_F(WaylandRecording, AKilledRecordingIsRecoveredAtTheNextStart) {
    startQuillo();
    ASSERT_FALSE(tool("choose_source", {{"kind", "display"}}).failed);
    ASSERT_FALSE(tool("start_recording").failed);
    typeLines(10, 0.6);
    std::this_thread::sleep_for(std::chrono::seconds(4));
    stopQuillo(SIGKILL);

    fs::path folder = lastRecording();
    ASSERT_FALSE(folder.empty());
    EXPECT_GE(playedSeconds(folder / "recording.mp4"), 8.0);

    startQuillo();
    stopQuillo(SIGTERM);
    auto project = parseJson(*readFile(folder / "project.json"));
    ASSERT_TRUE(project && project->contains("duration"));
    EXPECT_GE((*project)["duration"].get<double>(), 8.0);
    EXPECT_FALSE(fs::exists(folder / ".recording"));
}

// The first element whose label contains `label`, as the agent sees it.
std::optional<Json> elementNamed(const Json& list, const std::string& label) {
    for (const Json& element : list["elements"]) {
        if (element["label"].get<std::string>().find(label) != std::string::npos) {
            return element;
        }
    }
    return std::nullopt;
}

TEST_F(WaylandRecording, ClicksAndTypingReachAGtkFormThroughAccessibility) {
    pid_t form = session->spawn({QUILLO_GTK_ENTRY, "Demo form"});
    ASSERT_TRUE(session->waitForWindow("Demo form"));
    startQuillo();
    Answer chosen = tool("choose_source", {{"kind", "display"}});
    ASSERT_FALSE(chosen.failed);
    EXPECT_EQ(chosen.item["agentInput"], "accessibility") << "no remote-desktop portal on sway";

    auto centre = [](const Json& element) {
        return Json{{"x", element["x"].get<double>() + element["width"].get<double>() / 2},
                    {"y", element["y"].get<double>() + element["height"].get<double>() / 2}};
    };
    Answer listed = tool("ui_elements", {{"filter", "Name"}});
    ASSERT_FALSE(listed.failed) << listed.text;
    auto field = elementNamed(listed.item, "Name");
    ASSERT_TRUE(field) << listed.text;
    // Frames are placed in the shared picture: the form is the right-hand tile.
    EXPECT_GT((*field)["x"].get<double>(), 900) << *field;

    Answer focused = tool("click", centre(*field));
    ASSERT_FALSE(focused.failed) << focused.text;
    Answer typed = tool("type_text", {{"text", "Ada"}});
    ASSERT_FALSE(typed.failed) << typed.text;
    auto save = elementNamed(tool("ui_elements", {{"filter", "Save"}}).item, "Save");
    ASSERT_TRUE(save);
    Answer pressed = tool("click", centre(*save));
    ASSERT_FALSE(pressed.failed) << pressed.text;
    EXPECT_TRUE(elementNamed(tool("ui_elements", {{"filter", "Saved"}}).item, "Saved 3 characters"))
        << "the button was not pressed with the typed name in the field";

    // Pointer-level input has no way in on this desktop, and says so.
    Answer dragged =
        tool("drag", {{"from_x", 1200}, {"from_y", 300}, {"to_x", 1400}, {"to_y", 300}});
    EXPECT_TRUE(dragged.failed);
    EXPECT_NE(dragged.text.find("doesn't let Quillo move the pointer"), std::string::npos)
        << dragged.text;
    Answer nowhere = tool("click", {{"x", 5}, {"y", 1070}});
    EXPECT_TRUE(nowhere.failed) << "nothing that takes a click is there";
    session->stop(form);
}

}  // namespace
}  // namespace quillo::agent
