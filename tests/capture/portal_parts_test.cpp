// The Wayland backend's parts that need no desktop: kernel input events read from device
// files, the kept restore tokens, and the compositor's window list.

#include <condition_variable>
#include <fcntl.h>
#include <linux/input.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/files.h"
#include "capture/portal/kernel_input.h"
#include "capture/portal/portal_texts.h"
#include "capture/portal/remote_desktop.h"
#include "capture/portal/restore_tokens.h"
#include "capture/portal/sway_windows.h"
#include "support/temp_folder.h"

namespace quillo::capture::portal {
namespace {

namespace fs = std::filesystem;
using testing::TempFolder;

// Collects what a watcher reports, for the test thread to wait on.
struct Seen {
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<InputEvent> events;

    void add(const InputEvent& event) {
        std::lock_guard lock(mutex);
        events.push_back(event);
        arrived.notify_all();
    }
    bool waitFor(size_t count) {
        std::unique_lock lock(mutex);
        return arrived.wait_for(lock, std::chrono::seconds(3),
                                [&] { return events.size() >= count; });
    }
};

// A stand-in event device: a FIFO the test writes kernel events into.
void device(const fs::path& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }

void send(int fd, uint16_t type, uint16_t code, int32_t value) {
    input_event event{};
    event.type = type;
    event.code = code;
    event.value = value;
    ASSERT_EQ(write(fd, &event, sizeof event), static_cast<ssize_t>(sizeof event));
}

TEST(KernelInput, PressesCountAndReleasesRepeatsAndOtherButtonsDoNot) {
    TempFolder folder;
    device(folder / "event0");
    fs::create_directories(folder / "by-id");  // not a device
    Seen seen;
    auto watcher =
        watchKernelInput([&](const InputEvent& event) { seen.add(event); }, folder.path());
    ASSERT_TRUE(watcher) << watcher.error().message;
    int fd = open((folder / "event0").c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    send(fd, EV_KEY, BTN_LEFT, 1);
    send(fd, EV_KEY, BTN_LEFT, 0);
    send(fd, EV_KEY, KEY_A, 1);
    send(fd, EV_KEY, KEY_A, 2);  // auto-repeat
    send(fd, EV_KEY, BTN_SIDE, 1);
    send(fd, EV_REL, REL_X, 5);
    send(fd, EV_KEY, KEY_LEFTSHIFT, 1);
    send(fd, EV_KEY, BTN_RIGHT, 1);
    ASSERT_TRUE(seen.waitFor(4));
    std::lock_guard lock(seen.mutex);
    ASSERT_EQ(seen.events.size(), 4u);
    EXPECT_EQ(seen.events[0].kind, InputEvent::Kind::Press);
    EXPECT_EQ(seen.events[0].button, 1);
    EXPECT_EQ(seen.events[1].kind, InputEvent::Kind::Key);
    EXPECT_EQ(seen.events[1].keycode, KEY_A + 8) << "numbered as X numbers keys";
    EXPECT_FALSE(seen.events[1].modifier);
    EXPECT_TRUE(seen.events[2].modifier);
    EXPECT_EQ(seen.events[3].button, 3);
    close(fd);
}

TEST(KernelInput, DevicesPluggedInLaterAreWatchedAndAnEmptyFolderFails) {
    TempFolder folder;
    auto none = watchKernelInput([](const InputEvent&) {}, folder.path());
    ASSERT_FALSE(none);
    EXPECT_EQ(none.error().message, texts::kNoInputDevices);

    device(folder / "event0");
    Seen seen;
    auto watcher =
        watchKernelInput([&](const InputEvent& event) { seen.add(event); }, folder.path());
    ASSERT_TRUE(watcher);
    device(folder / "event7");
    int later = -1;
    for (int i = 0; i < 100 && later < 0; ++i) {
        // Opening for writing succeeds once the watcher holds the reading end.
        later = open((folder / "event7").c_str(), O_WRONLY | O_NONBLOCK);
        usleep(20000);
    }
    ASSERT_GE(later, 0) << "the new device was not opened";
    send(later, EV_KEY, BTN_MIDDLE, 1);
    ASSERT_TRUE(seen.waitFor(1));
    EXPECT_EQ(seen.events[0].button, 2);
    close(later);
}

TEST(RestoreTokens, KeptPerKindPrivatelyAndADamagedFileIsForgottenOnce) {
    TempFolder folder;
    RestoreTokens tokens(folder / "Support" / "screencast-tokens.json");
    EXPECT_EQ(tokens.get(true), "");
    EXPECT_FALSE(tokens.last());
    tokens.set(false, "d8b40d2f-2857-4de5-bf01-b00246778dfb");
    tokens.set(true, "window-token");
    EXPECT_EQ(tokens.get(false), "d8b40d2f-2857-4de5-bf01-b00246778dfb");
    EXPECT_EQ(tokens.get(true), "window-token");
    EXPECT_EQ(tokens.last(), true) << "the window was chosen last";
    EXPECT_EQ(
        fs::status(folder / "Support" / "screencast-tokens.json").permissions() & fs::perms::all,
        fs::perms::owner_read | fs::perms::owner_write);
    tokens.set(true, "");
    EXPECT_EQ(tokens.get(true), "");
    EXPECT_EQ(tokens.last(), std::nullopt) << "the last kind's token is gone";

    for (const char* damaged : {"{\"display\": 7}", "not json", "{\"display\": \"two words\"}"}) {
        ASSERT_TRUE(writeFileAtomically(folder / "Support" / "screencast-tokens.json", damaged));
        EXPECT_EQ(tokens.get(false), "") << damaged;
        EXPECT_TRUE(tokens.takeDamaged()) << damaged;
        EXPECT_FALSE(tokens.takeDamaged()) << "said once";
        EXPECT_FALSE(fs::exists(folder / "Support" / "screencast-tokens.json"));
    }
}

TEST(SwayWindows, ShownViewsWithTheirContentAreasAndTheFocusedOne) {
    const char* tree = R"({"type": "root", "nodes": [{"type": "output", "nodes": [
        {"type": "workspace", "visible": true, "nodes": [
            {"id": 4, "pid": 100, "app_id": "foot", "name": "term", "visible": true,
             "focused": false, "rect": {"x": 0, "y": 0, "width": 960, "height": 1080},
             "window_rect": {"x": 2, "y": 2, "width": 956, "height": 1076}},
            {"id": 5, "pid": 200, "app_id": null, "name": "Demo form", "visible": true,
             "focused": true, "rect": {"x": 960, "y": 0, "width": 960, "height": 1080},
             "window_rect": {"x": 0, "y": 0, "width": 960, "height": 1080}}],
         "floating_nodes": [
            {"id": 6, "pid": 300, "name": "dialog", "visible": true,
             "rect": {"x": 700, "y": 400, "width": 300, "height": 200},
             "window_rect": {"x": 0, "y": 0, "width": 300, "height": 200}}]},
        {"type": "workspace", "visible": false, "nodes": [
            {"id": 7, "pid": 400, "name": "hidden", "visible": false,
             "rect": {"x": 0, "y": 0, "width": 10, "height": 10},
             "window_rect": {"x": 0, "y": 0, "width": 10, "height": 10}}]}]}]})";
    ShownWindows shown = parseSwayTree(tree);
    ASSERT_EQ(shown.windows.size(), 3u);
    EXPECT_EQ(shown.windows[0].frame, (Rect{2, 2, 956, 1076}));
    EXPECT_EQ(shown.windows[1].pid, 200);
    EXPECT_EQ(shown.windows[1].app, "");
    EXPECT_EQ(shown.windows[2].title, "dialog") << "floating windows come last, in front";
    EXPECT_EQ(shown.focused, 5u);
    EXPECT_TRUE(parseSwayTree("{broken").windows.empty());
}

TEST(RemoteDesktopKeys, CharactersBecomeKeysymsAndOtherControlsAreRefused) {
    EXPECT_EQ(keysymFor(U'a'), 0x61u);
    EXPECT_EQ(keysymFor(U'é'), 0xe9u) << "Latin-1 is its own keysym";
    EXPECT_EQ(keysymFor(U'€'), 0x010020acu);
    EXPECT_EQ(keysymFor(U'\n'), 0xff0du);
    EXPECT_EQ(keysymFor(U'\t'), 0xff09u);
    EXPECT_FALSE(keysymFor(U'\x1b'));
    EXPECT_FALSE(keysymFor(U'\x85'));
}

}  // namespace
}  // namespace quillo::capture::portal
