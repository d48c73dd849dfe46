#include "agent/agent_tools.h"

#include <thread>

#include <gtest/gtest.h>

#include "app/studio_model.h"
#include "base/files.h"
#include "base/main_queue.h"
#include "project/project_library.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::agent {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

// The tools over a real library with one 4-second recording; the main queue runs on a thread of
// its own, as in the application, and the test calls tools like a worker does.
class Tools : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_movie = new TempFolder();
        testing::ffmpeg(
            "-f lavfi -i testsrc=size=160x120:rate=10:duration=4 -pix_fmt yuv420p "
            "-c:v libx264 -preset ultrafast",
            *s_movie / "recording.mp4");
    }
    static void TearDownTestSuite() { delete s_movie; }

    void SetUp() override {
        testing::isolateHome(environment, home.path());
        mainThread = std::thread([this] {
            MainQueue::install(&mainQueue);
            mainQueue.run();
        });
        auto created = project::ProjectLibrary(home / "Library").create({"window", 1, "Demo", ""});
        ASSERT_TRUE(created);
        fs::copy_file(*s_movie / "recording.mp4", created->recordingFile());
        id = created->id();
        store = std::make_unique<PreferenceStore>(home / "preferences.json");
        preferences = std::make_unique<app::Preferences>(*store);
        studio = std::make_shared<app::StudioModel>(project::ProjectLibrary(home / "Library"),
                                                    mainQueue, *preferences);
        tools = std::make_unique<AgentTools>(studio);
    }
    void TearDown() override {
        tools.reset();
        studio.reset();
        mainQueue.post([this] { mainQueue.quit(); });
        mainThread.join();
        MainQueue::install(nullptr);
    }

    // The first text item, and whether the call failed.
    std::pair<std::string, bool> call(const std::string& name, Json arguments = Json::object()) {
        Json result = tools->call(name, arguments);
        const Json& item = result["content"][0];
        return {item.contains("text") ? item["text"].get<std::string>()
                                      : item["type"].get<std::string>(),
                result["isError"].get<bool>()};
    }
    Json ok(const std::string& name, Json arguments) {
        auto [text, failed] = call(name, std::move(arguments));
        EXPECT_FALSE(failed) << name << ": " << text;
        return failed ? Json() : *parseJson(text);
    }

    static TempFolder* s_movie;
    TempFolder home;
    testing::ScopedEnvironment environment;
    LoopMainQueue mainQueue;
    std::thread mainThread;
    std::string id;
    std::unique_ptr<PreferenceStore> store;
    std::unique_ptr<app::Preferences> preferences;
    std::shared_ptr<app::StudioModel> studio;
    std::unique_ptr<AgentTools> tools;
};
TempFolder* Tools::s_movie = nullptr;

TEST_F(Tools, DefinitionsFollowTheTable) {
    Json list = tools->definitions();
    EXPECT_GE(list.size(), 50u);
    for (const Json& tool : list) {
        const std::string name = tool["name"];
        EXPECT_EQ(tool["annotations"]["destructiveHint"], name == "delete_recording") << name;
        EXPECT_EQ(tool["annotations"]["openWorldHint"], false);
        EXPECT_EQ(tool["inputSchema"]["type"], "object");
        for (const Json& required : tool["inputSchema"]["required"]) {
            EXPECT_TRUE(tool["inputSchema"]["properties"].contains(required)) << name;
        }
    }
    auto find = [&](const std::string& name) {
        for (const Json& tool : list) {
            if (tool["name"] == name) {
                return tool;
            }
        }
        return Json();
    };
    EXPECT_EQ(find("render_frame")["annotations"]["readOnlyHint"], true);
    EXPECT_EQ(find("add_zoom")["inputSchema"]["properties"]["scale"]["type"], "number");
    EXPECT_EQ(find("trim")["inputSchema"]["required"], Json({"id", "start", "end"}));
}

TEST_F(Tools, ArgumentsAndUnknownNamesFailAsResults) {
    EXPECT_EQ(call("no_such"), std::make_pair(std::string("Unknown tool no_such."), true));
    EXPECT_EQ(call("trim", {{"id", id}, {"start", 0}}).first, "Missing or invalid \"end\".");
    EXPECT_EQ(call("trim", {{"id", id}, {"start", "0"}, {"end", 1}}).first,
              "Missing or invalid \"start\".");
    EXPECT_EQ(call("get_recording", {{"id", "/elsewhere"}}).first,
              "No recording has the id “/elsewhere”.");
}

TEST_F(Tools, EditingGoesThroughTheEditorWithUndo) {
    Json listed = ok("list_recordings", Json::object());
    ASSERT_EQ(listed["recordings"].size(), 1u);
    EXPECT_EQ(listed["recordings"][0]["id"], id);

    Json trimmed = ok("trim", {{"id", id}, {"start", 0.5}, {"end", 3.5}});
    EXPECT_EQ(trimmed["edits"]["trimStart"], 0.5);
    // The editor's own message comes back unchanged, and nothing changes.
    auto [refused, failed] = call("trim", {{"id", id}, {"start", 3}, {"end", 9}});
    EXPECT_TRUE(failed);
    EXPECT_FALSE(refused.empty());
    ok("add_zoom", {{"id", id}, {"start", 1}, {"end", 2}, {"follow", false}});
    EXPECT_EQ(call("remove_zoom", {{"id", id}, {"index", 3}}).first, "There is no zoom 3.");
    ok("update_zoom", {{"id", id}, {"index", 0}, {"scale", 3}});
    Json styled = ok("set_style", {{"id", id}, {"background", 2}, {"cursor_theme", "gold"}});
    EXPECT_EQ(styled["edits"]["frame"]["background"], 2);
    EXPECT_EQ(styled["edits"]["cursor"]["theme"], "gold");

    Json details = ok("get_recording", {{"id", id}});
    EXPECT_EQ(details["edits"]["zooms"][0]["scale"], 3);
    EXPECT_EQ(details["size"]["width"], 160);
    EXPECT_EQ(details["clicks"], Json::array());

    Json undone = ok("undo", {{"id", id}});
    EXPECT_FALSE(undone["edits"].contains("frame"));
    ok("redo", {{"id", id}});
    EXPECT_EQ(ok("get_recording", {{"id", id}})["edits"]["frame"]["background"], 2);
    // Saved: a fresh editor reads the same recipe.
    EXPECT_TRUE(fs::exists(fs::path(id) / "edits.json"));
}

TEST_F(Tools, DeadTimeChecksItsArgumentsAndAnalysesOnce) {
    EXPECT_EQ(call("find_dead_time", {{"id", id}, {"min_seconds", 0.1}}).first,
              "min_seconds must be between 0.5 and 60.");
    EXPECT_EQ(call("find_dead_time", {{"id", id}, {"action", "slow"}}).first,
              "action must be auto, speed_up, or cut.");
    EXPECT_EQ(call("remove_dead_time", {{"id", id}, {"speed", 9}}).first,
              "speed must be between 2 and 8.");
    // The test pattern changes every frame: nothing is idle, and removing changes nothing.
    Json found = ok("find_dead_time", {{"id", id}});
    EXPECT_EQ(found["stretches"], Json::array());
    Json removed = ok("remove_dead_time", {{"id", id}, {"action", "cut"}});
    EXPECT_EQ(removed["summary"], "No dead time found");
    EXPECT_EQ(removed["duration"], 4);
}

TEST_F(Tools, RenderExportRenameDelete) {
    Json frame = tools->call("render_frame", {{"id", id}, {"time", 1}});
    ASSERT_FALSE(frame["isError"].get<bool>()) << frame.dump();
    EXPECT_EQ(frame["content"][0]["mimeType"], "image/jpeg");

    Json exported = ok("export", {{"id", id}, {"preset", "docs_gif"}});
    EXPECT_TRUE(fs::exists(exported["path"].get<std::string>()));
    EXPECT_EQ(fs::path(exported["path"].get<std::string>()).parent_path().filename(), "Exports");

    Json marker = ok("add_marker", {{"id", id}, {"label", "Start"}, {"time", 1}});
    EXPECT_EQ(marker["markers"], 1);
    Json chapters = ok("get_markers", {{"id", id}});
    EXPECT_EQ(chapters["chapters"][0]["title"], "Start");

    Json renamed = ok("rename_recording", {{"id", id}, {"title", "Renamed"}});
    std::string newId = renamed["id"];
    EXPECT_EQ(renamed["title"], "Renamed");
    auto [gone, failed] = call("delete_recording", {{"id", newId}});
    EXPECT_FALSE(failed) << gone;
    EXPECT_FALSE(fs::exists(newId));
    EXPECT_TRUE(ok("list_recordings", Json::object())["recordings"].empty());
}

TEST_F(Tools, CaptionsAreSetStyledAndExported) {
    // The test movie has no sound.
    EXPECT_EQ(call("generate_captions", {{"id", id}}).first,
              "Couldn't read the recording's sound.");
    EXPECT_EQ(call("export_captions", {{"id", id}}).first,
              "This recording has no captions yet. Use generate_captions or set_captions first.");
    EXPECT_EQ(
        call("set_captions", {{"id", id}, {"segments", {{{"start", 1}, {"text", "x"}}}}}).first,
        "Missing or invalid \"segments\".");
    Json set = ok("set_captions", {{"id", id},
                                   {"segments",
                                    {{{"start", 0.5}, {"end", 1.5}, {"text", "Hello there"}},
                                     {{"start", 2}, {"end", 3}, {"text", "General remarks"}}}}});
    EXPECT_EQ(set["captions"][1]["text"], "General remarks");
    EXPECT_EQ(set["visible"], true);
    Json styled = ok("set_caption_style",
                     {{"id", id}, {"position", "top"}, {"max_characters", 200}, {"size", 3}});
    EXPECT_EQ(styled["edits"]["captions"]["position"], "top");
    EXPECT_EQ(styled["edits"]["captions"]["maxCharacters"], 80);
    EXPECT_EQ(styled["edits"]["captions"]["size"], 2.5);
    EXPECT_EQ(call("set_caption_style", {{"id", id}, {"background", "box"}}).first,
              "Missing or invalid \"background\".");

    // Cut the first second: the file follows the finished video.
    ok("add_segment", {{"id", id}, {"start", 0}, {"end", 1}, {"speed", 0}});
    Json exported = ok("export_captions", {{"id", id}, {"format", "vtt"}});
    auto text = readFile(exported["path"].get<std::string>());
    ASSERT_TRUE(text);
    EXPECT_EQ(*text,
              "WEBVTT\n\n00:00:00.000 --> 00:00:00.500\nHello there\n\n"
              "00:00:01.000 --> 00:00:02.000\nGeneral remarks\n");
    Json listed = ok("get_captions", {{"id", id}});
    EXPECT_EQ(listed["captions"].size(), 2u);
    EXPECT_EQ(listed["style"]["position"], "top");
}

TEST_F(Tools, OptionsStatusAndSensitiveInfo) {
    EXPECT_EQ(call("set_options", {{"id", id}, {"countdown", 4}}).first,
              "countdown must be 0, 3, 5, or 10.");
    Json set = ok("set_options", {{"microphone", true}, {"countdown", 10}});
    EXPECT_EQ(set["options"]["microphone"], true);
    EXPECT_EQ(set["options"]["system_audio"], true);
    Json status = ok("get_status", Json::object());
    EXPECT_EQ(status["options"]["countdown"], 10);
    EXPECT_EQ(preferences->get(app::prefs::countdown), 10);

    // A test pattern has no private text.
    Json found = ok("find_sensitive_info", {{"id", id}, {"apply", true}});
    EXPECT_EQ(found["proposals"], Json::array());
    EXPECT_EQ(found["applied"], false);
}

}  // namespace
}  // namespace quillo::agent
