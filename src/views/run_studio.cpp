#include "run_studio.h"

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <signal.h>
#include <thread>

#include <QApplication>
#include <QIcon>

#include "app/app_runtime.h"
#include "app/assistant_runtime.h"
#include "base/paths.h"
#include "qt_main_queue.h"
#include "recording_overlays.h"
#include "recording_tray.h"
#include "studio_window.h"

namespace quillo::views {

bool displayAvailable() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY"}) {
        const char* value = std::getenv(name);
        if (value && *value) {
            return true;
        }
    }
    return false;
}

int runStudio(int argc, char** argv, const char* version) {
    // Signals are taken by one thread with sigwait (blocked before any thread starts), so no
    // handler runs inside the event loop.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    QApplication application(argc, argv);
    QApplication::setApplicationName("Quillo");
    QApplication::setApplicationDisplayName("Quillo");
    QApplication::setApplicationVersion(version);
    QApplication::setDesktopFileName("app.quillo.Quillo");
    QApplication::setWindowIcon(QIcon::fromTheme("app.quillo.Quillo"));

    QtMainQueue mainQueue;
    MainQueue::install(&mainQueue);
    int result = 0;
    {
        app::AppRuntime runtime(mainQueue);
        app::StudioModel& studio = runtime.studio();
        studio.reload();
        studio.restoreTabs();
        std::cout << "Quillo " << version << " is running.\n";
        for (const std::string& line : runtime.summary()) {
            std::cout << line << "\n";
        }
        std::cout << std::flush;

        // The assistant goes after the window that shows it, ending its agent CLIs before the
        // process exits.
        app::AssistantRuntime assistant(runtime.preferences(), mainQueue);
        StudioWindow window(studio, &assistant.model());
        window.show();
        int front = studio.frontRequested.connect([&window] { window.showStudio(); });
        runtime.enableGlobalShortcut();
        runtime.enableCameraPreview();
        RecordingTray tray(studio,
                           {.chooseSource = [&studio](bool window) { studio.choose(window); },
                            .openSettings = [&window] { window.openSettings(); },
                            .showStudio = [&window] { window.showStudio(); },
                            .quit = [&window] { window.close(); }});
        // The countdown and the floating controls, kept out of the recorded picture.
        RecordingOverlays overlays(studio);

        // Ctrl+C in the terminal closes the window as the close button does (waiting for a
        // recording to be saved); a second one quits at once.
        std::atomic<bool> finished{false};
        std::thread waiter([&] {
            for (int count = 0;; ++count) {
                int received = 0;
                sigwait(&stopSignals, &received);
                if (finished) {
                    return;
                }
                if (count > 0) {
                    mainQueue.post([] { QApplication::exit(0); });
                } else {
                    mainQueue.post([&window] { window.close(); });
                }
            }
        });
        result = QApplication::exec();
        studio.frontRequested.disconnect(front);
        finished = true;
        pthread_kill(waiter.native_handle(), SIGTERM);
        waiter.join();
    }
    MainQueue::install(nullptr);
    return result;
}

}  // namespace quillo::views
