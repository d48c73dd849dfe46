#include "app_runtime.h"

#include "agent/mcp_protocol.h"
#include "base/paths.h"
#include "capture/agent_devices.h"
#include "project/migration.h"
#include "studio_texts.h"

namespace quillo::app {

AppRuntime::AppRuntime(MainQueue& mainQueue)
    : m_preferences(Preferences::shared()),
      m_server(supportFolder() / "mcp.json"),
      m_main(mainQueue) {
    project::PalloMigration::run(m_preferences.store(), project::PalloMigration::Places::standard(),
                                 environmentValue("QUILLO_SELFTEST") == "1");
    (void)m_preferences.store().startWatching(mainQueue);

    project::ProjectLibrary library(
        libraryRoot(std::nullopt, m_preferences.get(prefs::libraryPath)));
    // Recordings cut short by a crash or a kill are completed before anything lists them.
    m_recovery = recoverRecordings(library);
    if (auto projects = library.load()) {
        m_count = projects->size();
    }

    m_backend = capture::makeDisplayBackend();
    if (m_backend->name() == "x11") {
        // The agent's pointer and keyboard of a Quillo that crashed are removed from the display.
        capture::removeStaleAgentDevices();
    }
    mainQueue.invoke([&] {
        m_studio = std::make_shared<StudioModel>(library, mainQueue, m_preferences, m_backend);
        m_studio->noteRecovered(m_recovery.recovered.size());
    });
    // The agents' way in: the control server with the tool table over the studio model.
    m_tools = std::make_shared<agent::AgentTools>(m_studio);
    applyServerSetting();
    // The setting may be switched from the settings window or by editing the file.
    m_observer = m_preferences.addObserver([this] { applyServerSetting(); });
}

AppRuntime::~AppRuntime() {
    m_shortcut.reset();
    m_cameraSwitch.reset();
    m_preferences.removeObserver(m_observer);
    m_server.stop();
    m_tools.reset();
    m_studio.reset();
    m_preferences.store().stopWatching();
}

void AppRuntime::enableGlobalShortcut() {
    if (!m_shortcut && environmentValue("QUILLO_SELFTEST") != "1") {
        m_shortcut = std::make_unique<GlobalShortcut>(m_preferences, *m_backend, *m_studio, m_main);
    }
}

void AppRuntime::enableCameraPreview() {
    if (!m_cameraSwitch) {
        m_cameraSwitch = std::make_unique<CameraSwitch>(m_preferences, *m_studio);
    }
}

void AppRuntime::applyServerSetting() {
    if (m_preferences.get(prefs::agentServerEnabled)) {
        auto tools = m_tools;
        m_server.start([tools](Json message, agent::ControlServer::Reply reply) {
            agent::mcp::handle(message, tools, reply);
        });
    } else {
        m_server.stop();
    }
}

std::vector<std::string> AppRuntime::summary() const {
    std::vector<std::string> lines;
    std::string library = "Library: " + m_studio->library().root().string();
    if (m_count) {
        library +=
            " (" + std::to_string(*m_count) + (*m_count == 1 ? " recording)" : " recordings)");
    }
    lines.push_back(library);
    if (!m_recovery.recovered.empty()) {
        lines.push_back(texts::recovered(m_recovery.recovered.size()));
    }
    for (const std::string& failure : m_recovery.failures) {
        lines.push_back("A recording could not be recovered: " + failure);
    }
    lines.push_back("Capture: " +
                    (m_backend->name() == "none"
                         ? std::string("none (no display; agents can edit and export)")
                         : m_backend->name() + " on " + environmentValue("DISPLAY").value_or("")));
    if (auto address = m_server.address()) {
        lines.push_back("Agent server: " + *address + " (key and port in " +
                        m_server.infoFile().string() + ")");
    } else {
        lines.push_back("Agent server: off (the agentServerEnabled setting)");
    }
    return lines;
}

}  // namespace quillo::app
