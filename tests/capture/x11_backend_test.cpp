// The X11 backend against a private Xvfb and real X programs: windows and monitors, grabs and
// damage, resizing, the picker, raw input, and the caret of a GTK field over AT-SPI.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <future>
#include <mutex>
#include <sstream>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "capture/caret_locator.h"
#include "capture/display_backend.h"
#include "support/child_process.h"
#include "support/eventually.h"
#include "support/movies.h"
#include "support/temp_folder.h"
#include "support/x_session.h"

namespace quillo::capture {
namespace {

using testing::XSession;

using testing::eventually;

// The BGRA pixel at (x, y) of a frame, as 0xAARRGGBB with the alpha byte dropped.
uint32_t rgbAt(const CapturedFrame& frame, int x, int y) {
    const uint8_t* pixel = frame.pixels + static_cast<size_t>(y) * frame.stride + x * 4;
    return (pixel[2] << 16) | (pixel[1] << 8) | pixel[0];
}

class X11Test : public ::testing::Test {
protected:
    void start(XSession::Options options) {
        environment.set("QUILLO_CAPTURE", std::nullopt);
        std::string why;
        x = XSession::start(options, why);
        if (!x) {
            GTEST_SKIP() << "no X server: " << why;
        }
        backend = makeDisplayBackend();
        ASSERT_EQ(backend->name(), "x11");
    }

    // An xterm filled with `colour` at `geometry` (cells and position); its client window.
    uint32_t terminal(const std::string& geometry, const std::string& colour = "black",
                      const std::string& title = "plain terminal") {
        lastPid = x->spawn({"xterm", "-geometry", geometry, "-title", title, "-bg", colour, "-fg",
                            colour, "-xrm", "*cursorColor: " + colour});
        auto window = x->waitForWindow(lastPid);
        EXPECT_TRUE(window) << "the xterm did not show";
        return window.value_or(0);
    }

    Rect geometryOf(uint32_t id) { return x->clientArea(id); }

    std::optional<WindowInfo> listed(uint32_t id) {
        auto list = backend->windows();
        EXPECT_TRUE(list);
        for (const auto& window : list.value_or(std::vector<WindowInfo>{})) {
            if (window.id == id) {
                return window;
            }
        }
        return std::nullopt;
    }

    testing::ScopedEnvironment environment;
    std::unique_ptr<XSession> x;
    std::shared_ptr<DisplayBackend> backend;
    pid_t lastPid = -1;
};

struct Bare : X11Test {
    void SetUp() override { start({}); }
};
struct Managed : X11Test {
    void SetUp() override { start({.windowManager = true}); }
};
struct Accessible : X11Test {
    void SetUp() override { start({.accessibility = true, .windowManager = true}); }
};

// --- choosing the backend

TEST(DisplayBackendChoice, FallsBackToTheNullBackendWithoutADisplay) {
    testing::ScopedEnvironment environment;
    environment.set("QUILLO_CAPTURE", std::nullopt);
    environment.set("DISPLAY", ":9876");
    auto backend = makeDisplayBackend();
    EXPECT_EQ(backend->name(), "none");
    EXPECT_TRUE(backend->windows()->empty());
    EXPECT_FALSE(backend->grabber());
}

TEST_F(Bare, TheEnvironmentCanTurnCaptureOff) {
    environment.set("QUILLO_CAPTURE", "none");
    EXPECT_EQ(makeDisplayBackend()->name(), "none");
}

// --- windows

TEST_F(Bare, ListsAWindowWithoutAWindowManager) {
    uint32_t id = terminal("40x10+30+40");
    auto window = listed(id);
    ASSERT_TRUE(window);
    EXPECT_EQ(window->pid, lastPid);
    EXPECT_EQ(window->title, "plain terminal");
    EXPECT_EQ(window->app, "xterm");
    EXPECT_EQ(window->frame, geometryOf(id));
    EXPECT_NEAR(window->frame.x, 30, 2);
    EXPECT_NEAR(window->frame.y, 40, 2);
}

TEST_F(Managed, ListsTheClientWindowInsideTheFrame) {
    uint32_t back = terminal("30x8+300+300", "black", "back terminal");
    uint32_t front = terminal("40x10+30+40", "black", "front terminal");
    ASSERT_TRUE(eventually([&] { return listed(front) && listed(back); }));
    auto list = *backend->windows();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].id, front) << "front first";
    EXPECT_EQ(list[0].pid, lastPid);
    EXPECT_EQ(list[0].title, "front terminal");
    // The client area sits below the title bar that openbox adds.
    EXPECT_EQ(list[0].frame, geometryOf(front));
    EXPECT_GT(list[0].frame.y, 0);
}

TEST_F(Bare, FollowsAWindowUntilItCloses) {
    uint32_t id = terminal("40x10+30+40");
    x->xdotool("windowmove " + std::to_string(id) + " 200 150");
    EXPECT_TRUE(eventually([&] {
        auto window = backend->window(id);
        return window && window->frame.x >= 199 && window->frame.y >= 149;
    }));
    x->xdotool("windowunmap --sync " + std::to_string(id));
    EXPECT_FALSE(backend->window(id)) << "unmapped";
    x->xdotool("windowmap --sync " + std::to_string(id));
    ASSERT_TRUE(eventually([&] { return backend->window(id).has_value(); }));
    x->stop(lastPid);
    EXPECT_TRUE(eventually([&] { return !backend->window(id); }));
    EXPECT_FALSE(listed(id));
    EXPECT_FALSE(backend->window(0x7fffff0)) << "never existed";
}

// --- monitors, pointer, cursor

TEST_F(Bare, DescribesTheScreenThePointerAndItsPicture) {
    auto monitors = backend->monitors();
    ASSERT_TRUE(monitors);
    ASSERT_EQ(monitors->size(), 1u);
    EXPECT_EQ((*monitors)[0].frame, (Rect{0, 0, 1280, 800}));
    EXPECT_FALSE((*monitors)[0].name.empty());

    x->xdotool("mousemove 123 456");
    EXPECT_TRUE(eventually([&] { return backend->pointer() == Point{123, 456}; }));

    auto cursor = backend->cursorImage();
    ASSERT_TRUE(cursor);
    EXPECT_GT(cursor->width, 0);
    EXPECT_EQ(cursor->argb.size(), static_cast<size_t>(cursor->width * cursor->height));
    EXPECT_LE(cursor->hotX, cursor->width);
    // Premultiplied: no colour channel above its alpha.
    for (uint32_t pixel : cursor->argb) {
        uint32_t alpha = pixel >> 24;
        ASSERT_LE((pixel >> 16) & 0xff, alpha);
        ASSERT_LE(pixel & 0xff, alpha);
    }
}

// --- grabbing

TEST_F(Bare, GrabsThePixelsOfAnArea) {
    uint32_t id = terminal("20x6+100+80", "#ff0000");
    Rect red = geometryOf(id);
    auto grabber = backend->grabber();
    ASSERT_TRUE(grabber);
    Rect area{red.x - 10, red.y - 10, red.width + 20, red.height + 20};
    ASSERT_TRUE(eventually([&] {
        auto frame = (*grabber)->grab(area, false);
        return frame && rgbAt(**frame, static_cast<int>(area.width / 2),
                              static_cast<int>(area.height / 2)) == 0xff0000u;
    }));
    auto frame = (*grabber)->grab(area, false);
    ASSERT_TRUE(frame);
    EXPECT_EQ((*frame)->width, area.width);
    EXPECT_EQ((*frame)->height, area.height);
    EXPECT_GE((*frame)->stride, (*frame)->width * 4);
    EXPECT_EQ(rgbAt(**frame, 12, 12), 0xff0000u) << "just inside the window";
    EXPECT_EQ(rgbAt(**frame, 5, 5), 0u) << "the black root around it";
    EXPECT_EQ(rgbAt(**frame, (*frame)->width - 1, (*frame)->height - 1), 0u);

    // Held frames keep their pictures; a new size gets its own memory.
    auto second = (*grabber)->grab(area, false);
    ASSERT_TRUE(second);
    EXPECT_NE((*second)->pixels, (*frame)->pixels);
    EXPECT_GT((*second)->serial, (*frame)->serial);
    auto small = (*grabber)->grab({red.x, red.y, 8, 4}, false);
    ASSERT_TRUE(small);
    EXPECT_EQ((*small)->width, 8);
    EXPECT_EQ(rgbAt(**small, 7, 3), 0xff0000u);

    // A frame outlives its grabber.
    grabber->reset();
    EXPECT_EQ(rgbAt(**frame, 12, 12), 0xff0000u);
}

TEST_F(Managed, ExcludedWindowsAreLeftOutOfDisplayAndWindowGrabs) {
    // Red at the bottom, green over its right half, and on top of both a blue window that
    // reaches past them onto the bare root.
    uint32_t red = terminal("30x10+100+100", "#ff0000");
    Rect redArea = geometryOf(red);
    terminal("15x10+" + std::to_string(static_cast<int>(redArea.x + redArea.width / 2)) + "+100",
             "#00ff00");
    Rect greenArea = geometryOf(x->waitForWindow(lastPid).value());
    uint32_t blue = terminal("30x10+" + std::to_string(static_cast<int>(redArea.x + 20)) + "+" +
                                 std::to_string(static_cast<int>(redArea.y + redArea.height / 2)),
                             "#0000ff");
    Rect blueArea = geometryOf(blue);
    ASSERT_TRUE(backend->excludesWindows());
    // Points (screen pixels) under the blue window: over red alone, over green, over the root.
    Point overRed{redArea.x + 30, redArea.y + redArea.height - 5};
    Point overGreen{greenArea.x + 10, greenArea.y + greenArea.height - 5};
    Point overRoot{blueArea.x + 30, blueArea.y + blueArea.height - 5};
    ASSERT_LT(overRoot.y, blueArea.y + blueArea.height);
    ASSERT_GT(overRoot.y, redArea.y + redArea.height + 12);

    Rect screen{0, 0, 1280, 800};
    auto grabber = backend->grabber().value();
    auto at = [&](const Rect& area, Point point) {
        auto frame = grabber->grab(area, false);
        EXPECT_TRUE(frame);
        return frame ? rgbAt(**frame, static_cast<int>(point.x - area.x),
                             static_cast<int>(point.y - area.y))
                     : 1u;
    };
    // Shown as it is until it is excluded.
    ASSERT_TRUE(eventually(
        [&] { return at(screen, overRed) == 0x0000ffu && at(screen, overGreen) == 0x0000ffu; }));

    backend->setExcludedWindows({blue});
    EXPECT_TRUE(eventually([&] {
        return at(screen, overRed) == 0xff0000u && at(screen, overGreen) == 0x00ff00u &&
               at(screen, overRoot) == 0u;
    })) << "a display grab shows what lies beneath";
    EXPECT_EQ(at(redArea, overRed), 0xff0000u) << "so does a grab of the window's area";
    EXPECT_EQ(at(redArea, overGreen), 0x00ff00u);
    // Away from the excluded window, the picture is the plain grab.
    EXPECT_EQ(at(screen, {redArea.x + 10, redArea.y + 10}), 0xff0000u);
    EXPECT_EQ(at(screen, {blueArea.x + blueArea.width + 20, overRoot.y}), 0u);
    // No pixel of the excluded window survives anywhere in its frame.
    auto frame = grabber->grab(blueArea, false);
    ASSERT_TRUE(frame);
    int bluePixels = 0;
    for (int py = 0; py < (*frame)->height; ++py) {
        for (int px = 0; px < (*frame)->width; ++px) {
            bluePixels += rgbAt(**frame, px, py) == 0x0000ffu;
        }
    }
    EXPECT_EQ(bluePixels, 0);

    // The screen's changes still reach the grabber while windows keep their pictures apart.
    Rect corner{0, 0, 300, 300};
    uint32_t yellow = terminal("10x4+20+20", "#ffff00");
    ASSERT_TRUE(eventually([&] { return at(corner, {60, 60}) == 0xffff00u; }));
    int quietPolls = 0;
    ASSERT_TRUE(eventually([&] {
        quietPolls = grabber->changed(corner) ? 0 : quietPolls + 1;
        return quietPolls >= 12;
    }));
    x->xdotool("windowmove " + std::to_string(yellow) + " 120 120");
    EXPECT_TRUE(eventually([&] { return grabber->changed(corner); }));

    // Moved elsewhere it is still left out; once no longer excluded it shows again.
    x->xdotool("windowmove " + std::to_string(blue) + " 700 500");
    ASSERT_TRUE(eventually([&] { return geometryOf(blue).x >= 700; }));
    Rect moved = geometryOf(blue);
    Point inside{moved.x + moved.width / 2, moved.y + moved.height / 2};
    EXPECT_TRUE(eventually([&] { return at(screen, inside) == 0u; }));
    EXPECT_EQ(at(screen, overGreen), 0x00ff00u);
    backend->setExcludedWindows({});
    EXPECT_TRUE(eventually([&] { return at(screen, inside) == 0x0000ffu; }));
}

TEST_F(Bare, DrawsThePointerInWhenAsked) {
    // The root's cursor, black and white, over the black root.
    Rect area{600, 400, 100, 100};
    x->xdotool("mousemove 650 450");
    auto grabber = backend->grabber().value();
    auto differing = [&] {
        auto plain = grabber->grab(area, false);
        auto drawn = grabber->grab(area, true);
        int count = 0;
        for (int y = 0; y < 100; ++y) {
            for (int x = 0; x < 100; ++x) {
                count += rgbAt(**plain, x, y) != rgbAt(**drawn, x, y);
            }
        }
        return count;
    };
    EXPECT_TRUE(eventually([&] { return differing() > 10; }));
    auto drawn = grabber->grab(area, true);
    EXPECT_EQ(rgbAt(**drawn, 10, 10), 0u) << "away from it";
    EXPECT_EQ(rgbAt(**drawn, 99, 99), 0u);
}

TEST_F(Bare, ReportsChangesOnlyInsideTheArea) {
    uint32_t watched = terminal("20x6+0+0", "#00ff00");
    uint32_t other = terminal("20x6+600+400", "#0000ff");
    Rect area = geometryOf(watched);
    Rect elsewhere{500, 300, 700, 500};
    auto grabber = backend->grabber().value();
    auto witness = backend->grabber().value();  // sees that a change has reached the server
    EXPECT_TRUE(grabber->changed(area)) << "the first call";
    EXPECT_TRUE(witness->changed(elsewhere));
    // Keep the pointer off both terminals, so neither redraws for focus, and wait until both
    // have stayed quiet for a quarter of a second: a new xterm paints more than once.
    x->xdotool("mousemove 1000 50");
    int quietPolls = 0;
    ASSERT_TRUE(eventually([&] {
        bool quiet = !grabber->changed(area) && !witness->changed(elsewhere);
        quietPolls = quiet ? quietPolls + 1 : 0;
        return quietPolls >= 12;
    })) << "the screen settles";

    x->xdotool("windowmove " + std::to_string(other) + " 650 420");
    ASSERT_TRUE(eventually([&] { return witness->changed(elsewhere); }));
    EXPECT_FALSE(grabber->changed(area)) << "the change was outside";

    x->xdotool("windowmove " + std::to_string(other) + " 30 20");
    EXPECT_TRUE(eventually([&] { return grabber->changed(area); }));

    Rect moved{area.x + 1, area.y, area.width, area.height};
    EXPECT_TRUE(grabber->changed(moved)) << "a new area";
}

// --- resizing

TEST_F(Managed, ResizesThroughTheWindowManager) {
    uint32_t id = terminal("40x10+30+40");
    ASSERT_TRUE(eventually([&] { return listed(id).has_value(); }));
    auto size = backend->resizeWindow(id, {500, 300});
    ASSERT_TRUE(size) << size.error().message;
    // xterm sizes itself in whole character cells.
    EXPECT_NEAR(size->width, 500, 20);
    EXPECT_NEAR(size->height, 300, 30);
    Rect now = geometryOf(id);
    EXPECT_EQ((Size{now.width, now.height}), *size);
}

TEST_F(Bare, ResizesDirectlyWithoutAWindowManager) {
    uint32_t id = terminal("40x10+30+40");
    Rect before = geometryOf(id);
    auto size = backend->resizeWindow(id, {321, 123});
    ASSERT_TRUE(size);
    EXPECT_EQ(*size, (Size{321, 123}));
    Rect after = geometryOf(id);
    EXPECT_EQ(after.x, before.x) << "kept its place";
    x->stop(lastPid);
    EXPECT_FALSE(backend->resizeWindow(id, {200, 100})) << "gone";
}

// --- the picker

class Picker : public Managed {
protected:
    // Starts pick() and waits for its crosshair to replace the cursor.
    std::future<Result<std::optional<SourceRef>>> pick(bool displayOnly, double timeout = 10) {
        x->xdotool("mousemove 1000 700");
        uint64_t before = backend->cursorImage()->serial;
        auto picking = std::async(
            std::launch::async, [=, this] { return backend->pick(displayOnly, timeout, cancel); });
        EXPECT_TRUE(eventually([&] { return backend->cursorImage()->serial != before; }));
        return picking;
    }

    std::optional<SourceRef> clickAt(std::future<Result<std::optional<SourceRef>>> picking, int atX,
                                     int atY) {
        x->xdotool("mousemove " + std::to_string(atX) + " " + std::to_string(atY) + " click 1");
        auto picked = picking.get();
        EXPECT_TRUE(picked);
        return picked.value_or(std::nullopt);
    }

    CancelToken cancel;
};

TEST_F(Picker, AClickPicksTheWindowOrTheMonitorUnderIt) {
    uint32_t id = terminal("40x10+30+40");
    ASSERT_TRUE(eventually([&] { return listed(id).has_value(); }));
    Rect frame = geometryOf(id);
    int insideX = static_cast<int>(frame.x + 20);
    int insideY = static_cast<int>(frame.y + 20);

    EXPECT_EQ(clickAt(pick(false), insideX, insideY), (SourceRef{SourceRef::Kind::Window, id}));
    EXPECT_EQ(clickAt(pick(false), insideX + 40, static_cast<int>(frame.y - 8)),
              (SourceRef{SourceRef::Kind::Window, id}))
        << "the title bar picks the window inside its frame";
    EXPECT_EQ(clickAt(pick(true), insideX, insideY), (SourceRef{SourceRef::Kind::Display, 0}));
    EXPECT_EQ(clickAt(pick(false), 900, 600), (SourceRef{SourceRef::Kind::Display, 0}))
        << "the bare desktop";
}

TEST_F(Picker, EscapeCancelAndTimeoutPickNothing) {
    auto escaped = pick(false);
    x->xdotool("key Escape");
    auto picked = escaped.get();
    ASSERT_TRUE(picked);
    EXPECT_FALSE(*picked);

    auto cancelled = pick(false);
    cancel.cancel();
    picked = cancelled.get();
    ASSERT_TRUE(picked);
    EXPECT_FALSE(*picked);

    picked = backend->pick(false, 0.2, CancelToken());
    ASSERT_TRUE(picked);
    EXPECT_FALSE(*picked);
    // The grabs are gone: the pointer moves freely for everyone again.
    x->xdotool("mousemove 10 10");
    EXPECT_TRUE(eventually([&] { return backend->pointer() == Point{10, 10}; }));
}

// --- raw input

TEST_F(Bare, WatchesClicksAndKeysAnywhere) {
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<InputEvent> events;
    auto watcher = backend->watchInput([&](const InputEvent& event) {
        std::lock_guard lock(mutex);
        events.push_back(event);
        arrived.notify_all();
    });
    ASSERT_TRUE(watcher);
    x->xdotool("click 4");  // a wheel step: not a press
    x->xdotool("click 1");
    x->xdotool("key a");
    x->xdotool("key shift");
    std::unique_lock lock(mutex);
    ASSERT_TRUE(
        arrived.wait_for(lock, std::chrono::seconds(5), [&] { return events.size() >= 3; }));
    EXPECT_EQ(events[0].kind, InputEvent::Kind::Press);
    EXPECT_EQ(events[0].button, 1);
    EXPECT_EQ(events[1].kind, InputEvent::Kind::Key);
    EXPECT_GT(events[1].keycode, 8);
    EXPECT_FALSE(events[1].modifier);
    EXPECT_EQ(events[2].kind, InputEvent::Kind::Key);
    EXPECT_TRUE(events[2].modifier);
    lock.unlock();
    watcher->reset();  // stops its thread promptly
    x->xdotool("click 1");
    lock.lock();
    EXPECT_EQ(events.size(), 3u);
}

// --- the caret

TEST_F(Bare, AGlobalChordFiresWhateverTheLocksAndIsRefusedToASecondClient) {
    terminal("40x10+30+40");
    auto first = backend->globalKeys();
    auto second = makeDisplayBackend()->globalKeys();
    ASSERT_TRUE(first && second);
    std::atomic<int> presses{0};
    KeyChord chord{'2', true, true, false, false};
    auto grab = (*first)->grab(chord, [&] { ++presses; });
    ASSERT_TRUE(grab) << grab.error().message;
    auto taken = (*second)->grab(chord, [] {});
    ASSERT_FALSE(taken);
    EXPECT_NE(taken.error().message.find("taken by another app"), std::string::npos);

    x->xdotool("key ctrl+shift+2");
    EXPECT_TRUE(eventually([&] { return presses == 1; }));
    x->xdotool("key Num_Lock key ctrl+shift+2 key Num_Lock");
    EXPECT_TRUE(eventually([&] { return presses == 2; }));
    // Other modifiers are another chord; the press goes to the focused window.
    x->xdotool("key ctrl+2");
    x->xdotool("key ctrl+shift+2");
    EXPECT_TRUE(eventually([&] { return presses == 3; }));
    EXPECT_EQ(presses, 3);

    (*first)->release(*grab);
    EXPECT_TRUE((*second)->grab(chord, [] {}));
}

TEST_F(Accessible, FindsTheCaretOfTheFocusedField) {
    pid_t form = x->spawn({QUILLO_GTK_ENTRY, "Caret form"});
    auto id = x->waitForWindow(form);
    ASSERT_TRUE(id);
    x->xdotool("windowactivate --sync " + std::to_string(*id));
    Rect window = geometryOf(*id);
    auto locator = makeCaretLocator();

    std::optional<Rect> empty;
    ASSERT_TRUE(eventually([&] { return (empty = locator->locate(form)).has_value(); }));
    EXPECT_EQ(empty->width, 1);
    EXPECT_GT(empty->height, 5);
    EXPECT_GE(empty->x, window.x);
    EXPECT_LT(empty->x, window.x + window.width / 2);
    EXPECT_GE(empty->y, window.y);

    std::optional<Rect> typed;
    x->xdotool("type --delay 30 abc");
    ASSERT_TRUE(eventually([&] {
        typed = locator->locate(form);
        return typed && typed->x > empty->x + 10;
    }));
    std::optional<Rect> more;
    x->xdotool("type --delay 30 defgh");
    EXPECT_TRUE(eventually([&] {
        more = locator->locate(form);
        return more && more->x > typed->x + 10;
    }));
    EXPECT_NEAR(more->y, typed->y, 2);
    x->xdotool("key Home");
    EXPECT_TRUE(eventually([&] {
        auto home = locator->locate(form);
        return home && home->x < typed->x;
    }));

    EXPECT_TRUE(locator->locate(0)) << "any app";
    EXPECT_FALSE(locator->locate(getpid())) << "an app without a field";
}

TEST_F(Bare, FindsNoCaretWithoutAnAccessibilityBus) {
    // libatspi connects once per process: the bus-less case runs in a child of its own.
    pid_t child = testing::forkChild([] {
        if (makeCaretLocator()->locate(0) || makeCaretLocator()->locate(1)) {
            std::raise(SIGUSR1);
        }
    });
    EXPECT_EQ(testing::waitForSignal(child), 0);
}

}  // namespace
}  // namespace quillo::capture
