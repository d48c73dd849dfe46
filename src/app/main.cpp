// The quillo executable: the studio, the headless mode and the command-line tools.

#include <atomic>
#include <cstring>
#include <iostream>
#include <signal.h>
#include <string>
#include <thread>
#include <vector>

#include "agent/mcp_bridge.h"
#include "analysis_commands.h"
#include "app_runtime.h"
#include "base/main_queue.h"
#include "base/paths.h"
#include "captions/caption_renderer.h"
#include "export_command.h"
#include "inspect.h"
#include "redaction/redaction.h"
#include "studio_model.h"
#include "studio_texts.h"
#include "toggle_recording.h"
#include "views/run_studio.h"

#ifndef QUILLO_VERSION
#define QUILLO_VERSION "0.0.0"
#endif

namespace {

using namespace quillo;

constexpr const char* kUsage =
    "Usage: quillo [--headless]\n"
    "       quillo --mcp\n"
    "       quillo --toggle-recording\n"
    "       quillo inspect FOLDER\n"
    "       quillo export FOLDER [--preset ID] [--format mp4|gif] [--size original|1080p|720p]\n"
    "                            [--reframe fit|follow] [--out PATH]\n"
    "       quillo render-frame FOLDER TIME OUT.png\n"
    "       quillo captions FOLDER [--language LOCALE]\n"
    "       quillo subtitles FOLDER [--format srt|vtt] [--out PATH]\n"
    "       quillo scan FOLDER [--apply]\n"
    "       quillo --version\n"
    "\n"
    "  (no arguments)  start Quillo (headless when there is no display)\n"
    "  --headless      start without windows, serving the agent tools (MCP over HTTP)\n"
    "  --mcp           MCP over standard input and output, relayed to the running Quillo\n"
    "                  (started headless when it is not running)\n"
    "  --toggle-recording\n"
    "                  start or stop a recording in the running Quillo (for a desktop\n"
    "                  shortcut; starts Quillo when it is not running)\n"
    "  inspect FOLDER  check a recording's folder: title, duration, kept pieces\n"
    "  export FOLDER   render the finished video (MP4 or GIF) with the recording's edits\n"
    "  render-frame    write the finished frame at a recording time as a PNG\n"
    "  captions        transcribe the recording's speech on this computer into captions\n"
    "  subtitles       write the captions as SRT or WebVTT timed to the finished video\n"
    "  scan            find e-mail addresses, keys, card numbers… shown on screen\n"
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
    // Quitting waits for a recording under way to be saved; a second signal quits at once (the
    // next start completes what the recording left).
    std::shared_ptr<app::StudioModel> studio;
    std::atomic<bool> finished{false};
    std::thread waiter([&] {
        for (int count = 0;; ++count) {
            int received = 0;
            sigwait(&signals, &received);
            if (finished || count > 0) {
                mainQueue.quit();
                return;
            }
            mainQueue.post([&] {
                if (!studio || studio->requestQuit()) {
                    mainQueue.quit();
                    return;
                }
                std::cout << "Saving the recording before quitting (Ctrl+C again quits now)…\n"
                          << std::flush;
                studio->onSafeQuit = [&] { mainQueue.quit(); };
            });
        }
    });

    std::optional<app::AppRuntime> runtime;
    runtime.emplace(mainQueue);
    mainQueue.invoke([&] { studio = runtime->studioPointer(); });
    std::cout << "Quillo " << QUILLO_VERSION << " is running without windows.\n";
    for (const std::string& line : runtime->summary()) {
        std::cout << line << "\n";
    }
    std::cout << "Press Ctrl+C to stop.\n" << std::flush;

    mainQueue.run();
    studio.reset();
    runtime.reset();
    // The waiter is still in sigwait when quit came from elsewhere; wake it.
    finished = true;
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
    // Every finished frame, in every mode, hides what the recipe redacts and shows its captions.
    redaction::registerDrawing();
    captions::registerBurnIn();
    if (command == "inspect") {
        if (argc != 3) {
            std::cerr << "quillo inspect needs one project folder.\n\n" << kUsage;
            return 2;
        }
        return app::inspectProject(argv[2], std::cout, std::cerr);
    }
    if (command == "captions" || command == "subtitles" || command == "scan") {
        std::vector<std::string> rest(argv + 2, argv + argc);
        return command == "captions"    ? app::captionsCommand(rest, std::cout, std::cerr)
               : command == "subtitles" ? app::subtitlesCommand(rest, std::cout, std::cerr)
                                        : app::scanCommand(rest, std::cout, std::cerr);
    }
    if (command == "export" || command == "render-frame") {
        std::vector<std::string> rest(argv + 2, argv + argc);
        return command == "export" ? app::exportCommand(rest, std::cout, std::cerr)
                                   : app::renderFrameCommand(rest, std::cout, std::cerr);
    }
    if (command == "--mcp") {
        return agent::MCPBridge(supportFolder() / "mcp.json").run();
    }
    if (command == "--toggle-recording") {
        return app::toggleRecording(supportFolder() / "mcp.json", std::cout, std::cerr);
    }
    if (command == "--headless" || (command.empty() && !views::displayAvailable())) {
        return runHeadless();
    }
    if (command.empty()) {
        return views::runStudio(argc, argv, QUILLO_VERSION);
    }
    std::cerr << "Unknown argument “" << command << "”.\n\n" << kUsage;
    return 2;
}
