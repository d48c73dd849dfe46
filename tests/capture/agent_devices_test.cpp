// The agent's own pointer and keyboard against a private Xvfb: the pair's life in the server,
// input that leaves the user's pointer and focus alone, and typing into a GTK field, read back
// over AT-SPI.

#include "capture/agent_devices.h"

#include <atspi/atspi.h>
#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "capture/display_backend.h"
#include "support/child_process.h"
#include "support/eventually.h"
#include "support/temp_folder.h"
#include "support/x_session.h"

namespace quillo::capture {
namespace {

using testing::XSession;

using testing::eventually;

class AgentDevicesTest : public ::testing::Test {
protected:
    void start(XSession::Options options) {
        std::string why;
        x = XSession::start(options, why);
        if (!x) {
            GTEST_SKIP() << "no X server: " << why;
        }
    }

    std::unique_ptr<AgentDevices> devices() {
        auto made = makeAgentDevices();
        EXPECT_TRUE(made) << made.error().message;
        return made ? std::move(made.value()) : nullptr;
    }

    // The core pointer, as xdotool sees it: "x:12 y:34 ...".
    Point userPointer() {
        std::istringstream text(x->xdotool("getmouselocation"));
        Point point;
        std::string word;
        while (text >> word) {
            if (word.rfind("x:", 0) == 0) {
                point.x = std::stod(word.substr(2));
            } else if (word.rfind("y:", 0) == 0) {
                point.y = std::stod(word.substr(2));
            }
        }
        return point;
    }

    std::unique_ptr<XSession> x;
};

struct Bare : AgentDevicesTest {
    void SetUp() override { start({}); }
};
struct Accessible : AgentDevicesTest {
    void SetUp() override { start({.accessibility = true}); }
};

// --- the pair in the server

TEST_F(Bare, TheDestructorRemovesThePair) {
    auto agent = devices();
    ASSERT_TRUE(agent);
    EXPECT_TRUE(agent->position()) << "the agent pointer exists";
    agent.reset();
    EXPECT_EQ(removeStaleAgentDevices(), 0) << "nothing left behind";
}

TEST_F(Bare, PairsLeftByACrashAreRemoved) {
    auto crash = [] {
        return testing::forkChild([] {
            auto made = makeAgentDevices();
            if (!made) {
                std::raise(SIGUSR1);
            }
            (void)made.value().release();  // no destructor, as in a crash
        });
    };
    ASSERT_EQ(testing::waitForSignal(crash()), 0);
    ASSERT_EQ(testing::waitForSignal(crash()), 0) << "the second removes the first one's pair";
    EXPECT_EQ(removeStaleAgentDevices(), 1);
    EXPECT_EQ(removeStaleAgentDevices(), 0);

    ASSERT_EQ(testing::waitForSignal(crash()), 0);
    auto agent = devices();
    ASSERT_TRUE(agent);
    // Only the new pair is left, and sweeping it away under a live object is survivable.
    EXPECT_EQ(removeStaleAgentDevices(), 1);
    EXPECT_FALSE(agent->position());
    agent.reset();
    EXPECT_EQ(removeStaleAgentDevices(), 0);
}

TEST(AgentDevicesWithoutDisplay, FailWithAMessage) {
    testing::ScopedEnvironment environment;
    environment.set("DISPLAY", ":9876");
    auto made = makeAgentDevices();
    ASSERT_FALSE(made);
    EXPECT_FALSE(made.error().message.empty());
    EXPECT_EQ(removeStaleAgentDevices(), 0);
}

// --- pointer

TEST_F(Bare, TheAgentPointerMovesAloneAndClicks) {
    x->xdotool("mousemove 100 120");
    auto agent = devices();
    ASSERT_TRUE(agent);
    ASSERT_TRUE(agent->move({500.4, 300.6}));
    agent->flush();
    EXPECT_EQ(agent->position(), (Point{500, 301}));
    EXPECT_EQ(userPointer(), (Point{100, 120}));

    x->xdotool("mousemove 10 20");
    EXPECT_EQ(agent->position(), (Point{500, 301})) << "the user's moves don't carry it along";
    for (int button : {1, 3, 4, 7}) {
        EXPECT_TRUE(agent->button(button, true));
        EXPECT_TRUE(agent->button(button, false));
    }
    EXPECT_FALSE(agent->button(0, true));
    EXPECT_FALSE(agent->button(8, true));
    EXPECT_EQ(userPointer(), (Point{10, 20}));
}

// --- keyboard

TEST_F(Bare, BorrowedKeycodesAreReused) {
    auto agent = devices();
    ASSERT_TRUE(agent);
    // More characters missing from the map than a keyboard has keycodes.
    for (char32_t character = 0x4e00; character < 0x4e00 + 300; ++character) {
        ASSERT_TRUE(agent->typeCharacter(character)) << static_cast<uint32_t>(character);
    }
    // Held keys keep their keycodes while others come and go.
    ASSERT_TRUE(agent->key(0x1002603, true));
    ASSERT_TRUE(agent->key(0x1002603, true)) << "autorepeat";
    for (char32_t character = 0x4f00; character < 0x4f00 + 15; ++character) {
        ASSERT_TRUE(agent->key(character | 0x01000000, true));
    }
    EXPECT_FALSE(agent->key(0x1002605, true)) << "every borrowed keycode is held";
    for (char32_t character = 0x4f00; character < 0x4f00 + 15; ++character) {
        EXPECT_TRUE(agent->key(character | 0x01000000, false));
    }
    EXPECT_TRUE(agent->key(0x1002603, false));
    EXPECT_TRUE(agent->key(0x1002604, false)) << "released without a press";
    EXPECT_FALSE(agent->typeCharacter(U'\x07'));
    EXPECT_FALSE(agent->typeCharacter(char32_t{0xd800}));
    EXPECT_FALSE(agent->focus(0x7fffff0)) << "no such window";
}

// The entry's text, found by its accessible name in the app `pid`; none until it shows.
std::optional<std::string> entryText(pid_t pid) {
    // Bus messages are left on a context of their own that nobody runs, as the caret locator
    // does: handled inline, libatspi leaks some of them.
    static bool connected = [] {
        bool ok = atspi_init() <= 1;
        atspi_set_main_context(g_main_context_new());
        return ok;
    }();
    if (!connected) {
        return std::nullopt;
    }
    std::optional<std::string> found;
    AtspiAccessible* desktop = atspi_get_desktop(0);
    std::vector<AtspiAccessible*> pending;
    int apps = atspi_accessible_get_child_count(desktop, nullptr);
    for (int i = 0; i < apps; ++i) {
        AtspiAccessible* app = atspi_accessible_get_child_at_index(desktop, i, nullptr);
        if (app != nullptr &&
            atspi_accessible_get_process_id(app, nullptr) == static_cast<guint>(pid)) {
            pending.push_back(app);
        } else if (app != nullptr) {
            g_object_unref(app);
        }
    }
    while (!pending.empty()) {
        AtspiAccessible* node = pending.back();
        pending.pop_back();
        gchar* name = atspi_accessible_get_name(node, nullptr);
        AtspiText* text = atspi_accessible_get_text_iface(node);
        if (!found && name != nullptr && std::string(name) == "Name" && text != nullptr) {
            gchar* content = atspi_text_get_text(text, 0, -1, nullptr);
            if (content != nullptr) {
                found = content;
                g_free(content);
            }
        }
        if (text != nullptr) {
            g_object_unref(text);
        }
        g_free(name);
        int children = atspi_accessible_get_child_count(node, nullptr);
        for (int i = 0; i < children; ++i) {
            if (AtspiAccessible* child = atspi_accessible_get_child_at_index(node, i, nullptr)) {
                pending.push_back(child);
            }
        }
        g_object_unref(node);
    }
    g_object_unref(desktop);
    return found;
}

TEST_F(Accessible, TypesIntoAFieldWithoutTakingTheUsersFocus) {
    pid_t form = x->spawn({QUILLO_GTK_ENTRY, "Agent form"});
    auto id = x->waitForWindow(form);
    ASSERT_TRUE(id);
    ASSERT_TRUE(eventually([&] { return entryText(form).has_value(); }));
    auto frame = makeDisplayBackend()->window(*id);
    ASSERT_TRUE(frame);
    x->xdotool("mousemove 5 5");
    std::string userFocus = x->xdotool("getwindowfocus");

    auto agent = devices();
    ASSERT_TRUE(agent);
    ASSERT_TRUE(agent->focus(*id));
    // The field fills the form's top row, inside a 12-pixel border.
    ASSERT_TRUE(agent->move({frame->frame.x + 60, frame->frame.y + 25}));
    ASSERT_TRUE(agent->button(1, true));
    ASSERT_TRUE(agent->button(1, false));
    const std::u32string typed = U"Ab é→ß😀";
    for (char32_t character : typed) {
        ASSERT_TRUE(agent->typeCharacter(character));
    }
    agent->flush();
    EXPECT_TRUE(eventually([&] { return entryText(form) == "Ab é→ß😀"; }))
        << "got \"" << entryText(form).value_or("(none)") << "\"";
    EXPECT_EQ(x->xdotool("getwindowfocus"), userFocus);
    EXPECT_EQ(userPointer(), (Point{5, 5}));
}

}  // namespace
}  // namespace quillo::capture
