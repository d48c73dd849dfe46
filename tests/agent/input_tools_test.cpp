// The input tools on a real X server: an agent types into a GTK form through its own pointer and
// keyboard while the user's pointer and focus stay put; bad input posts nothing.

#include <chrono>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "agent/agent_tools.h"
#include "app/studio_model.h"
#include "base/main_queue.h"
#include "capture/display_backend.h"
#include "project/cursor_track.h"
#include "redaction/sensitive_scanner.h"
#include "render/image.h"
#include "support/temp_folder.h"
#include "support/x_session.h"

namespace quillo::agent {
namespace {

using namespace std::chrono_literals;

class InputTools : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        x = testing::XSession::start(options(), why);
        if (!x) {
            GTEST_SKIP() << "no X server: " << why;
        }
        testing::isolateHome(environment, home.path());
        environment.set("QUILLO_SELFTEST", "1");
        form = x->spawn({QUILLO_GTK_ENTRY, "Input form"});
        ASSERT_TRUE(x->waitForWindow(form));
        mainThread = std::thread([this] { mainQueue.run(); });
        store = std::make_unique<PreferenceStore>(home / "preferences.json");
        preferences = std::make_unique<app::Preferences>(*store);
        studio =
            std::make_shared<app::StudioModel>(project::ProjectLibrary(home / "Library"), mainQueue,
                                               *preferences, capture::makeDisplayBackend());
        tools = std::make_unique<AgentTools>(studio);
    }
    virtual testing::XSession::Options options() const { return {}; }

    void TearDown() override {
        if (!x) {
            return;
        }
        tools.reset();
        mainQueue.invoke([this] { studio.reset(); });
        mainQueue.post([this] { mainQueue.quit(); });
        mainThread.join();
    }

public:
    std::pair<std::string, bool> callTool(const std::string& name, Json arguments) {
        return call(name, std::move(arguments));
    }

protected:
    // The text of the result and whether it failed.
    std::pair<std::string, bool> call(const std::string& name, Json arguments) {
        Json result = tools->call(name, arguments);
        const Json& item = result["content"][0];
        return {item.value("text", std::string()), result["isError"].get<bool>()};
    }

    testing::TempFolder home;
    testing::ScopedEnvironment environment;
    std::unique_ptr<testing::XSession> x;
    pid_t form = -1;
    LoopMainQueue mainQueue;
    std::thread mainThread;
    std::unique_ptr<PreferenceStore> store;
    std::unique_ptr<app::Preferences> preferences;
    std::shared_ptr<app::StudioModel> studio;
    std::unique_ptr<AgentTools> tools;
};

TEST_F(InputTools, AnAgentTypesIntoAFieldWhileTheUsersPointerAndFocusStay) {
    ASSERT_FALSE(call("share_window", {{"pid", form}}).second);
    x->xdotool("mousemove 5 5");
    std::string focus = x->xdotool("getwindowfocus");

    auto clicked = call("click", {{"x", 60}, {"y", 25}});
    ASSERT_FALSE(clicked.second) << clicked.first;
    auto typed = call("type_text", {{"text", "mail@quillo.dev"}});
    ASSERT_FALSE(typed.second) << typed.first;
    EXPECT_EQ(x->xdotool("getmouselocation").rfind("x:5 y:5 ", 0), 0u);
    EXPECT_EQ(x->xdotool("getwindowfocus"), focus);

    // What the form shows now, read back by text recognition.
    bool seen = false;
    redaction::SensitiveScanner scanner(1);
    for (int attempt = 0; attempt < 20 && !seen; ++attempt) {
        std::this_thread::sleep_for(100ms);
        auto shot = studio->screenshot();
        ASSERT_TRUE(shot);
        media::VideoFrame frame;
        frame.width = shot->width;
        frame.height = shot->height;
        frame.stride = shot->stride();
        frame.pixels = shot->pixels;
        auto findings = scanner.recognize(frame);
        ASSERT_TRUE(findings) << findings.error().message;
        for (const auto& finding : *findings) {
            seen = seen || finding.text.find("mail@quillo.dev") != std::string::npos;
        }
    }
    EXPECT_TRUE(seen) << "the typed address is not in the form";
}

struct InputToolsWithAccessibility : InputTools {
    testing::XSession::Options options() const override { return {.accessibility = true}; }
};

TEST_F(InputToolsWithAccessibility, ElementsComeInScreenshotPixelsAndAFilterNarrowsThem) {
    ASSERT_FALSE(call("share_window", {{"pid", form}}).second);
    Json elements;
    for (int attempt = 0; attempt < 30 && elements.empty(); ++attempt) {
        auto [text, failed] = call("ui_elements", {{"filter", "save"}});
        ASSERT_FALSE(failed) << text;
        elements = (*parseJson(text))["elements"];
        std::this_thread::sleep_for(100ms);
    }
    ASSERT_EQ(elements.size(), 1u) << elements.dump();
    EXPECT_EQ(elements[0]["label"], "Save");
    EXPECT_EQ(elements[0]["role"], "push button");
    Json status = studio->captureStatus();
    double right = elements[0]["x"].get<double>() + elements[0]["width"].get<double>();
    EXPECT_GT(elements[0]["x"].get<double>(), 0);
    EXPECT_LE(right, status["screenshotSize"]["width"].get<double>());

    auto [nothing, failed] = call("ui_elements", {{"filter", "no such thing"}});
    ASSERT_FALSE(failed);
    EXPECT_EQ((*parseJson(nothing))["hint"],
              "No matching elements. Chromium and Electron apps build their tree on first "
              "request; try once more, or use a screenshot.");
}

TEST_F(InputTools, DemoStepsAreMarkedAndTheThinkingBetweenThemIsCut) {
    ASSERT_FALSE(call("set_options", {{"countdown", 0}, {"system_audio", false}}).second);
    ASSERT_FALSE(call("share_window", {{"pid", form}}).second);
    auto started = call("start_recording", Json::object());
    ASSERT_FALSE(started.second) << started.first;
    const Json steps[] = {
        {{"label", "Type a name"}, {"x", 60}, {"y", 25}, {"text", "Ada"}, {"pace", "brisk"}},
        {{"label", "Save it"}, {"x", 180}, {"y", 70}, {"pace", "brisk"}},
        {{"label", "Look"}, {"x", 180}, {"y", 120}, {"click", "none"}, {"pace", "brisk"}}};
    for (const Json& step : steps) {
        auto played = call("demo_step", step);
        ASSERT_FALSE(played.second) << played.first;
        EXPECT_EQ((*parseJson(played.first))["paused"], true);
        std::this_thread::sleep_for(1500ms);  // the agent thinks
    }
    auto saved = call("stop_recording", Json::object());
    ASSERT_FALSE(saved.second) << saved.first;
    std::string id = (*parseJson(saved.first))["id"];

    auto markers = parseJson(call("get_markers", {{"id", id}}).first);
    ASSERT_TRUE(markers);
    ASSERT_EQ((*markers)["markers"].size(), 3u);
    EXPECT_EQ((*markers)["markers"][1]["label"], "Save it");
    auto recording = parseJson(call("get_recording", {{"id", id}}).first);
    ASSERT_TRUE(recording);
    // Each thinking stretch (and the last one, still paused at the stop) is cut.
    const Json& segments = (*recording)["edits"]["segments"];
    ASSERT_EQ(segments.size(), 3u) << segments.dump();
    for (const Json& cut : segments) {
        EXPECT_EQ(cut["speed"], 0);
        EXPECT_GT(cut["end"].get<double>() - cut["start"].get<double>(), 1.3);
    }
    EXPECT_GE((*recording)["clicks"].size(), 2u);  // the agent's clicks, from the AI cursor
    EXPECT_LT((*recording)["finishedDuration"].get<double>(),
              (*recording)["duration"].get<double>() - 4);
    auto track = project::loadCursorTrack(id);
    ASSERT_TRUE(track && *track);
    Json status = studio->captureStatus();
    double width = status["screenshotSize"]["width"].get<double>();
    bool atSave = false;
    for (const auto& sample : (*track)->samples) {
        atSave = atSave || std::abs(sample.x * width - 180) < 2;
    }
    EXPECT_TRUE(atSave) << "the AI cursor is not in the cursor track";
}

// The first element whose role or label contains `filter` and whose label starts with `label`
// (any when empty), waiting for it to show.
Json elementFor(InputTools& fixture, const std::string& filter, const std::string& label = "") {
    for (int attempt = 0; attempt < 40; ++attempt) {
        auto [text, failed] = fixture.callTool("ui_elements", {{"filter", filter}});
        if (!failed) {
            Json answer = parseJson(text).value_or(Json());
            for (const Json& element : answer["elements"]) {
                if (element["label"].get<std::string>().rfind(label, 0) == 0) {
                    return element;
                }
            }
        }
        std::this_thread::sleep_for(100ms);
    }
    return Json();
}

Json centre(const Json& element) {
    return {{"x", element["x"].get<double>() + element["width"].get<double>() / 2},
            {"y", element["y"].get<double>() + element["height"].get<double>() / 2}};
}

TEST_F(InputToolsWithAccessibility, DragScrollAndAMenuReachTheirControls) {
    ASSERT_FALSE(call("share_window", {{"pid", form}}).second);
    Json slider = elementFor(*this, "Volume");
    ASSERT_FALSE(slider.is_null());
    double y = centre(slider)["y"];
    double left = slider["x"].get<double>() + 4;
    auto dragged = call("drag", {{"from_x", left},
                                 {"from_y", y},
                                 {"to_x", left + slider["width"].get<double>() * 0.8},
                                 {"to_y", y}});
    ASSERT_FALSE(dragged.second) << dragged.first;
    Json moved = elementFor(*this, "Volume ", "Volume ");
    ASSERT_FALSE(moved.is_null());
    EXPECT_GT(std::stoi(moved["label"].get<std::string>().substr(7)), 50);

    // The long text starts at the top of its scrolled view (which lists no label of its own).
    Json lines = elementFor(*this, "Line 1 of", "Line 1 of");
    ASSERT_FALSE(lines.is_null());
    Json at = {{"x", lines["x"].get<double>() + 40}, {"y", lines["y"].get<double>() + 30}};
    auto scrolled =
        call("scroll", {{"x", at["x"]}, {"y", at["y"]}, {"delta_y", 200}, {"delta_x", 0}});
    ASSERT_FALSE(scrolled.second) << scrolled.first;
    EXPECT_FALSE(elementFor(*this, "Scrolled", "Scrolled").is_null());

    Json opener = elementFor(*this, "Menu", "Menu");
    ASSERT_FALSE(opener.is_null());
    ASSERT_FALSE(call("click", centre(opener)).second);
    Json item = elementFor(*this, "Second", "Second");
    ASSERT_FALSE(item.is_null()) << "the menu did not open";
    ASSERT_FALSE(call("click", centre(item)).second);
    EXPECT_FALSE(elementFor(*this, "Chose Second", "Chose Second").is_null());
}

TEST_F(InputToolsWithAccessibility, FastTypingArrivesCompleteAndInOrder) {
    ASSERT_FALSE(call("share_window", {{"pid", form}}).second);
    std::string text;
    for (int i = 0; text.size() < 200; ++i) {
        text += std::string(1, static_cast<char>('a' + i % 26)) + std::to_string(i % 10);
    }
    for (const Json& speed : {Json{{"wpm", 300}}, Json{{"delay_ms", 0}}}) {
        ASSERT_FALSE(call("click", {{"x", 60}, {"y", 25}}).second);
        ASSERT_FALSE(call("press_key", {{"key", "a"}, {"modifiers", {"command"}}}).second);
        Json arguments = speed;
        arguments["text"] = text;
        auto typed = call("type_text", arguments);
        ASSERT_FALSE(typed.second) << typed.first;
        Json save = elementFor(*this, "push button", "Save");
        ASSERT_FALSE(save.is_null());
        ASSERT_FALSE(call("click", centre(save)).second);
        // All of it arrived, in order: the form counts the field's characters, and its label
        // shows them (the first 80 are listed).
        EXPECT_FALSE(elementFor(*this, "Saved 200", "Saved 200 characters").is_null())
            << speed.dump() << " " << elementFor(*this, "Saved", "Saved").dump();
        EXPECT_FALSE(elementFor(*this, text.substr(0, 20), text.substr(0, 80)).is_null())
            << speed.dump();
    }
}

TEST_F(InputTools, ACarriageReturnWithItsLineFeedIsOneReturnKey) {
    ASSERT_FALSE(call("share_window", {{"pid", form}}).second);
    std::mutex mutex;
    std::vector<capture::InputEvent> keys;
    auto watcher = capture::makeDisplayBackend()->watchInput([&](const capture::InputEvent& event) {
        std::lock_guard lock(mutex);
        if (event.kind == capture::InputEvent::Kind::Key) {
            keys.push_back(event);
        }
    });
    ASSERT_TRUE(watcher);
    ASSERT_FALSE(call("type_text", {{"text", "a\r\nb"}}).second);
    std::this_thread::sleep_for(300ms);
    std::lock_guard lock(mutex);
    ASSERT_EQ(keys.size(), 3u);  // a, Return, b
    EXPECT_NE(keys[1].keycode, keys[0].keycode);
    EXPECT_NE(keys[1].keycode, keys[2].keycode);
}

TEST_F(InputTools, BadInputFailsWithAMessageBeforeAnythingIsPosted) {
    EXPECT_EQ(call("click", {{"x", 10}, {"y", 10}}),
              (std::pair<std::string, bool>{
                  "No window or display is shared. Choose a window or display first.", true}));
    ASSERT_FALSE(call("share_window", {{"pid", form}}).second);
    auto outside = call("click", {{"x", -1}, {"y", 10}});
    EXPECT_TRUE(outside.second);
    EXPECT_NE(outside.first.find("inside the screenshot"), std::string::npos) << outside.first;
    auto key = call("press_key", {{"key", "hyperdrive"}});
    EXPECT_TRUE(key.second);
    EXPECT_EQ(key.first.rfind("Unknown key “hyperdrive”.", 0), 0u) << key.first;
    EXPECT_EQ(call("drag", {{"from_x", 20}, {"from_y", 20}, {"to_x", 20}, {"to_y", 20}}),
              (std::pair<std::string, bool>{"A drag needs two different points.", true}));
    EXPECT_EQ(call("click", {{"x", 20}, {"y", 20}, {"modifiers", {"hyper"}}}).second, true);
    EXPECT_EQ(call("type_text", {{"text", ""}}),
              (std::pair<std::string, bool>{"Give some text to type.", true}));
}

}  // namespace
}  // namespace quillo::agent
