// The quillo executable: the studio, the headless mode and the command-line tools.

#include <atomic>
#include <cstring>
#include <iostream>
#include <signal.h>
#include <string>
#include <thread>
#include <vector>

#include "agent/agent_tools.h"
#include "agent/control_server.h"
#include "agent/mcp_bridge.h"
#include "agent/mcp_protocol.h"
#include "analysis_commands.h"
#include "base/main_queue.h"
#include "base/paths.h"
#include "captions/caption_renderer.h"
#include "capture/agent_devices.h"
#include "capture/display_backend.h"
#include "export_command.h"
#include "inspect.h"
#include "preferences.h"
#include "project/migration.h"
#include "project/project_library.h"
#include "recovery.h"
#include "redaction/redaction.h"
#include "studio_model.h"
#include "studio_texts.h"

#ifndef QUILLO_VERSION
#define QUILLO_VERSION "0.0.0"
#endif

namespace {

using namespace quillo;

constexpr const char* kUsage =
    "Usage: quillo [--headless]\n"
    "       quillo --mcp\n"
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

    app::Preferences& preferences = app::Preferences::shared();
    project::PalloMigration::run(preferences.store(), project::PalloMigration::Places::standard(),
                                 environmentValue("QUILLO_SELFTEST") == "1");
    (void)preferences.store().startWatching(mainQueue);

    project::ProjectLibrary library(
        libraryRoot(std::nullopt, preferences.get(app::prefs::libraryPath)));
    // Recordings cut short by a crash or a kill are completed before anything lists them.
    app::Recovery recovery = app::recoverRecordings(library);
    auto projects = library.load();

    // The agents' way in: the control server with the tool table over the studio model.
    auto backend = capture::makeDisplayBackend();
    if (backend->name() == "x11") {
        // The agent's pointer and keyboard of a Quillo that crashed are removed from the display.
        capture::removeStaleAgentDevices();
    }
    mainQueue.invoke([&] {
        studio = std::make_shared<app::StudioModel>(library, mainQueue, preferences, backend);
        studio->noteRecovered(recovery.recovered.size());
    });
    auto tools = std::make_shared<agent::AgentTools>(studio);
    agent::ControlServer server(supportFolder() / "mcp.json");
    auto startServer = [&] {
        if (preferences.get(app::prefs::agentServerEnabled)) {
            server.start([tools](Json message, agent::ControlServer::Reply reply) {
                agent::mcp::handle(message, tools, reply);
            });
        } else {
            server.stop();
        }
    };
    startServer();
    // The setting may be switched from the settings screen or by editing the file.
    auto observer = preferences.addObserver([&] { startServer(); });
    std::cout << "Quillo " << QUILLO_VERSION << " is running without windows.\n"
              << "Library: " << library.root().string();
    if (projects) {
        std::cout << " (" << projects->size()
                  << (projects->size() == 1 ? " recording)" : " recordings)");
    }
    std::cout << "\n";
    if (!recovery.recovered.empty()) {
        std::cout << app::texts::recovered(recovery.recovered.size()) << "\n";
    }
    for (const std::string& failure : recovery.failures) {
        std::cout << "A recording could not be recovered: " << failure << "\n";
    }
    std::cout << "Capture: "
              << (backend->name() == "none"
                      ? "none (no display; agents can edit and export)"
                      : backend->name() + " on " + environmentValue("DISPLAY").value_or(""))
              << "\n";
    if (auto address = server.address()) {
        std::cout << "Agent server: " << *address << " (key and port in "
                  << server.infoFile().string() << ")\n";
    } else {
        std::cout << "Agent server: off (the agentServerEnabled setting)\n";
    }
    std::cout << "Press Ctrl+C to stop.\n" << std::flush;

    mainQueue.run();
    preferences.removeObserver(observer);
    server.stop();
    tools.reset();
    studio.reset();
    preferences.store().stopWatching();
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
    if (command.empty() || command == "--headless") {
        // The studio window arrives with the Qt views; until then every start is headless.
        return runHeadless();
    }
    std::cerr << "Unknown argument “" << command << "”.\n\n" << kUsage;
    return 2;
}
