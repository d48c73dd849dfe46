// The quillo executable: the studio, the headless mode and the command-line tools.

#include <cstring>
#include <iostream>
#include <signal.h>
#include <string>
#include <thread>
#include <vector>

#include "base/main_queue.h"
#include "base/paths.h"
#include "export_command.h"
#include "inspect.h"
#include "preferences.h"
#include "project/migration.h"
#include "project/project_library.h"

#ifndef QUILLO_VERSION
#define QUILLO_VERSION "0.0.0"
#endif

namespace {

using namespace quillo;

constexpr const char* kUsage =
    "Usage: quillo [--headless]\n"
    "       quillo inspect FOLDER\n"
    "       quillo export FOLDER [--preset ID] [--format mp4|gif] [--size original|1080p|720p]\n"
    "                            [--reframe fit|follow] [--out PATH]\n"
    "       quillo render-frame FOLDER TIME OUT.png\n"
    "       quillo --version\n"
    "\n"
    "  (no arguments)  start Quillo (headless when there is no display)\n"
    "  --headless      start without windows\n"
    "  inspect FOLDER  check a recording's folder: title, duration, kept pieces\n"
    "  export FOLDER   render the finished video (MP4 or GIF) with the recording's edits\n"
    "  render-frame    write the finished frame at a recording time as a PNG\n"
    "  --version       print the version\n";

// Runs the main loop without windows until SIGINT or SIGTERM.
int runHeadless() {
    LoopMainQueue mainQueue;
    MainQueue::install(&mainQueue);

    // Signals are taken by one thread with sigwait, so no handler runs inside the loop.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread waiter([&] {
        int received = 0;
        sigwait(&signals, &received);
        mainQueue.quit();
    });

    app::Preferences& preferences = app::Preferences::shared();
    project::PalloMigration::run(preferences.store(), project::PalloMigration::Places::standard(),
                                 environmentValue("QUILLO_SELFTEST") == "1");
    (void)preferences.store().startWatching(mainQueue);

    project::ProjectLibrary library(
        libraryRoot(std::nullopt, preferences.get(app::prefs::libraryPath)));
    auto projects = library.load();
    std::cout << "Quillo " << QUILLO_VERSION << " is running without windows.\n"
              << "Library: " << library.root().string();
    if (projects) {
        std::cout << " (" << projects->size()
                  << (projects->size() == 1 ? " recording)" : " recordings)");
    }
    std::cout << "\nPress Ctrl+C to stop.\n" << std::flush;

    mainQueue.run();
    preferences.store().stopWatching();
    // The waiter is still in sigwait when quit came from elsewhere; wake it.
    pthread_kill(waiter.native_handle(), SIGTERM);
    waiter.join();
    MainQueue::install(nullptr);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string command = argc > 1 ? argv[1] : "";
    if (command == "--version" || command == "-v") {
        std::cout << "Quillo " << QUILLO_VERSION << "\n";
        return 0;
    }
    if (command == "--help" || command == "-h") {
        std::cout << kUsage;
        return 0;
    }
    if (command == "inspect") {
        if (argc != 3) {
            std::cerr << "quillo inspect needs one project folder.\n\n" << kUsage;
            return 2;
        }
        return app::inspectProject(argv[2], std::cout, std::cerr);
    }
    if (command == "export" || command == "render-frame") {
        std::vector<std::string> rest(argv + 2, argv + argc);
        return command == "export" ? app::exportCommand(rest, std::cout, std::cerr)
                                   : app::renderFrameCommand(rest, std::cout, std::cerr);
    }
    if (command.empty() || command == "--headless") {
        // The studio window arrives with the Qt views; until then every start is headless.
        return runHeadless();
    }
    std::cerr << "Unknown argument “" << command << "”.\n\n" << kUsage;
    return 2;
}
