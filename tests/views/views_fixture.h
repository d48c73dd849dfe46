#pragma once

#include <chrono>
#include <memory>
#include <string>

#include <QApplication>
#include <QWidget>
#include <gtest/gtest.h>

#include "app/studio_model.h"
#include "base/main_queue.h"
#include "base/preference_store.h"
#include "project/project_library.h"
#include "support/movies.h"
#include "support/temp_folder.h"
#include "views/editor_session.h"

namespace quillo::views {

// The control of type T under `root` with this accessible name (a test failure when none).
template <class T>
T* named(QWidget& root, const QString& name) {
    for (T* widget : root.findChildren<T*>()) {
        if (widget->accessibleName() == name) {
            return widget;
        }
    }
    ADD_FAILURE() << "no control named " << name.toStdString();
    return nullptr;
}

// A studio model over a library in a temporary home, on the Qt main queue of the test binary,
// with helpers that make short recordings (a moving test pattern with a tone) and open them.
class ViewsFixture : public ::testing::Test {
protected:
    void SetUp() override {
        testing::isolateHome(environment, home.path());
        environment.set("QUILLO_SELFTEST", "1");
        environment.set("PULSE_SERVER", "unix:/nonexistent");
        store = std::make_unique<PreferenceStore>(home / "preferences.json");
        preferences = std::make_unique<app::Preferences>(*store);
        studio = std::make_unique<app::StudioModel>(project::ProjectLibrary(home / "Library"),
                                                    MainQueue::shared(), *preferences);
    }
    void TearDown() override {
        sessions.clear();
        studio.reset();
    }

    // A recording of `seconds` seconds, `age` older than now, listed by the library.
    project::LocalProject makeRecording(const std::string& title, double seconds = 4,
                                        std::chrono::seconds age = std::chrono::seconds(0),
                                        const std::string& size = "320x180") {
        auto created = studio->library().create({"window", 1, "Notes", title},
                                                std::chrono::system_clock::now() - age);
        EXPECT_TRUE(created);
        project::LocalProject project = *created;
        testing::ffmpeg("-f lavfi -i testsrc2=size=" + size +
                            ":rate=30:duration=" + std::to_string(seconds) +
                            " -f lavfi -i sine=frequency=440:duration=" + std::to_string(seconds) +
                            " -c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac -shortest",
                        project.recordingFile());
        project.metadata.title = title;
        project.metadata.duration = seconds;
        EXPECT_TRUE(project.save());
        return project;
    }

    // Opens a fresh recording in the studio and makes an editor session for it.
    EditorSession& openSession(double seconds = 4) {
        auto project = makeRecording("Session", seconds);
        studio->reload();
        EXPECT_TRUE(studio->open(project.id()));
        auto model = studio->editor(project.id());
        EXPECT_TRUE(model);
        sessions.push_back(std::make_unique<EditorSession>(*studio, **model));
        return *sessions.back();
    }

    testing::TempFolder home;
    testing::ScopedEnvironment environment;
    std::unique_ptr<PreferenceStore> store;
    std::unique_ptr<app::Preferences> preferences;
    std::unique_ptr<app::StudioModel> studio;
    std::vector<std::unique_ptr<EditorSession>> sessions;
};

}  // namespace quillo::views
