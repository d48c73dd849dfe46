#pragma once

// A studio model over a display made of plain values (FakeDisplay) and the real movie writer,
// on a main queue of its own, with the screen changing on a painter thread.

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "app/studio_model.h"
#include "base/main_queue.h"
#include "support/fake_display.h"
#include "support/temp_folder.h"

namespace quillo::app {

class FakeDisplayStudio : public ::testing::Test {
protected:
    // Starts the studio with a window "Notes" (pid 4242), no countdown and no app sound;
    // `prepare` sets more preferences first. The screen changes every `paintEvery`.
    template <class Prepare>
    void startStudio(std::chrono::milliseconds paintEvery, Prepare prepare) {
        testing::isolateHome(environment, home.path());
        environment.set("QUILLO_SELFTEST", "1");
        environment.set("PULSE_SERVER", "unix:/nonexistent");
        mainThread = std::thread([this] { mainQueue.run(); });
        store = std::make_unique<PreferenceStore>(home / "preferences.json");
        preferences = std::make_unique<Preferences>(*store);
        ASSERT_TRUE(preferences->set(prefs::countdown, int64_t{0}));
        ASSERT_TRUE(preferences->set(prefs::systemAudio, false));
        prepare(*preferences);
        display->setWindows({{7, "Notes", "notes", 4242, {100, 100, 640, 360}}});
        studio = std::make_shared<StudioModel>(project::ProjectLibrary(home / "Library"), mainQueue,
                                               *preferences, display);
        painter = std::thread([this, paintEvery] {
            while (!stopPainting) {
                ++display->screenSerial;
                std::this_thread::sleep_for(paintEvery);
            }
        });
    }
    void startStudio(std::chrono::milliseconds paintEvery) {
        startStudio(paintEvery, [](Preferences&) {});
    }

    void TearDown() override {
        stopPainting = true;
        if (painter.joinable()) {
            painter.join();
        }
        if (mainThread.joinable()) {
            mainQueue.invoke([this] { studio.reset(); });
            mainQueue.post([this] { mainQueue.quit(); });
            mainThread.join();
        }
    }

    testing::TempFolder home;
    testing::ScopedEnvironment environment;
    LoopMainQueue mainQueue;
    std::thread mainThread;
    std::unique_ptr<PreferenceStore> store;
    std::unique_ptr<Preferences> preferences;
    std::shared_ptr<testing::FakeDisplay> display = std::make_shared<testing::FakeDisplay>();
    std::shared_ptr<StudioModel> studio;
    std::atomic<bool> stopPainting{false};
    std::thread painter;
};

}  // namespace quillo::app
