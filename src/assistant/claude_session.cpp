#include "claude_session.h"

#include <algorithm>
#include <chrono>

#include "base/log.h"
#include "claude_command.h"
#include "claude_texts.h"

namespace quillo::assistant {

namespace {

// How Claude Code says that the session to resume isn't there.
constexpr std::string_view kSessionGone = "No conversation found";

EngineEvent event(EngineEvent::Kind kind, std::string text = {}) {
    EngineEvent made;
    made.kind = kind;
    made.text = std::move(text);
    return made;
}

// Why the CLI ended, for "Claude Code stopped: {reason}.": the last line of its error output
// that isn't a stack frame, else its exit status.
std::string exitReason(int status, const std::string& errors) {
    std::string reason;
    size_t end = errors.size();
    while (end > 0 && reason.empty()) {
        size_t start = errors.rfind('\n', end - 1);
        start = start == std::string::npos ? 0 : start + 1;
        std::string line = errors.substr(start, end - start);
        end = start > 0 ? start - 1 : 0;
        size_t first = line.find_first_not_of(" \t\r");
        size_t last = line.find_last_not_of(" \t\r.");
        if (first == std::string::npos || last == std::string::npos || last < first) {
            continue;
        }
        line = line.substr(first, last - first + 1);
        if (!line.starts_with("at ")) {
            reason = line;
        }
    }
    if (reason.size() > 300) {
        reason = reason.substr(0, 300) + "…";
    }
    if (!reason.empty()) {
        return reason;
    }
    if (status > 128) {
        return "it was ended by signal " + std::to_string(status - 128);
    }
    return "it exited with status " + std::to_string(status);
}

}  // namespace

ClaudeSession::ClaudeSession(EngineOptions options, EngineEvents events, ClaudeTiming timing)
    : m_options(std::move(options)), m_events(std::move(events)), m_timing(timing) {
    if (m_options.resume && !m_options.resume->empty()) {
        m_sessionId = m_options.resume;
    }
}

ClaudeSession::~ClaudeSession() { end(); }

Result<void> ClaudeSession::start() {
    if (running()) {
        return {};
    }
    end();  // what is left of an earlier process
    emit({event(EngineEvent::Kind::Status, std::string(claude_texts::kStarting))});
    std::unique_lock lock(m_mutex);
    Result<void> started = startLocked();
    if (!started) {
        lock.unlock();
        emit({event(EngineEvent::Kind::Status)});
    }
    return started;
}

Result<void> ClaudeSession::say(const std::string& text) {
    if (Result<void> started = start(); !started) {
        return started;
    }
    Json turn = {
        {"type", "user"},
        {"message",
         {{"role", "user"}, {"content", Json::array({{{"type", "text"}, {"text", text}}})}}}};
    std::lock_guard lock(m_mutex);
    Result<void> written = sendLocked(turn);
    if (written) {
        ++m_turns;
    }
    return written;
}

void ClaudeSession::interrupt() {
    std::lock_guard lock(m_mutex);
    if (!m_running || m_turns == 0 || m_interrupted) {
        return;
    }
    m_interrupted = true;
    (void)controlLocked("interrupt");
}

void ClaudeSession::end() {
    std::unique_ptr<ChildProcess> child;
    std::thread poller;
    {
        std::lock_guard lock(m_mutex);
        ++m_generation;  // what the old process still reports is no news
        m_running = false;
        m_turns = 0;
        child = std::move(m_child);
        poller = std::move(m_poller);
        m_wake.notify_all();
    }
    if (poller.joinable()) {
        poller.join();
    }
    if (child) {
        child->closeInput();
        child.reset();  // terminates it and waits for its reader
    }
}

bool ClaudeSession::running() const {
    std::lock_guard lock(m_mutex);
    return m_running;
}

bool ClaudeSession::busy() const {
    std::lock_guard lock(m_mutex);
    return m_turns > 0;
}

std::optional<std::string> ClaudeSession::sessionId() const {
    std::lock_guard lock(m_mutex);
    return m_sessionId;
}

ToolsStatus ClaudeSession::tools() const {
    std::lock_guard lock(m_mutex);
    return m_tools;
}

Result<void> ClaudeSession::startLocked() {
    ProcessSpec spec;
    spec.executable = m_options.executable;
    spec.arguments = claudeArguments(m_options, m_sessionId);
    spec.environment = m_options.environment;
    spec.workingDirectory = m_options.workingDirectory;
    const unsigned generation = ++m_generation;
    auto started = ChildProcess::start(
        spec, [this, generation](std::string line) { onLine(generation, line); },
        [this, generation](int status, std::string errors) { onExit(generation, status, errors); });
    if (!started) {
        return started.error();
    }
    m_child = std::move(started).value();
    m_running = true;
    m_turns = 0;
    m_interrupted = false;
    m_toolsResolved = false;
    m_tools = {ToolsState::Pending, "pending", {}};
    m_requests.clear();
    m_decoder = ClaudeEventDecoder{};
    Result<void> initialized = controlLocked("initialize");
    if (!initialized) {
        return initialized;
    }
    m_poller = std::thread([this, generation] { pollTools(generation); });
    return {};
}

Result<void> ClaudeSession::sendLocked(const Json& object) {
    if (!m_child || !m_running) {
        return AppError("Claude Code isn't running.");
    }
    return m_child->writeLine(toCompactJson(object));
}

Result<void> ClaudeSession::controlLocked(const std::string& subtype) {
    std::string id = "quillo-" + std::to_string(++m_requestCount);
    m_requests[id] = subtype;
    return sendLocked(
        {{"type", "control_request"}, {"request_id", id}, {"request", {{"subtype", subtype}}}});
}

void ClaudeSession::pollTools(unsigned generation) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::duration<double>(m_timing.connectLimit);
    const auto interval = std::chrono::duration<double>(m_timing.pollInterval);
    std::unique_lock lock(m_mutex);
    auto over = [&] { return generation != m_generation || !m_running || m_toolsResolved; };
    while (true) {
        m_wake.wait_for(lock, interval, over);
        if (over()) {
            return;
        }
        if (Clock::now() >= deadline) {
            std::vector<EngineEvent> events;
            toolsResolvedLocked({ToolsState::Failed, m_tools.status, {}}, events);
            lock.unlock();
            emit(std::move(events));
            return;
        }
        (void)controlLocked("mcp_status");
    }
}

void ClaudeSession::onLine(unsigned generation, const std::string& line) {
    std::vector<EngineEvent> events;
    {
        std::lock_guard lock(m_mutex);
        if (generation != m_generation) {
            return;
        }
        DecodedLine decoded = m_decoder.decode(line, m_interrupted);
        if (!decoded.problem.empty()) {
            logInfo("assistant", decoded.problem);
        }
        for (const EngineEvent& reported : decoded.events) {
            if (reported.kind == EngineEvent::Kind::SessionId) {
                m_sessionId = reported.text;
            }
        }
        events = std::move(decoded.events);
        if (decoded.tools) {
            toolsResolvedLocked(*decoded.tools, events);
        }
        if (decoded.answers) {
            auto request = m_requests.find(*decoded.answers);
            std::string subtype = request == m_requests.end() ? "" : request->second;
            if (request != m_requests.end()) {
                m_requests.erase(request);
            }
            if (subtype == "initialize") {
                if (decoded.answer) {
                    EngineEvent models = event(EngineEvent::Kind::Models);
                    models.models = modelChoices((*decoded.answer)["models"]);
                    events.push_back(std::move(models));
                } else {
                    logInfo("assistant",
                            "Claude Code refused to initialize: " + decoded.answerError);
                }
                events.push_back(event(EngineEvent::Kind::Status));
            } else if (subtype == "mcp_status" && decoded.answer) {
                toolsResolvedLocked(quilloStatus((*decoded.answer)["mcpServers"]), events);
            }
        }
        if (decoded.turnEnded) {
            auto ended = std::find_if(events.begin(), events.end(), [](const EngineEvent& e) {
                return e.kind == EngineEvent::Kind::TurnEnded;
            });
            bool gone =
                ended != events.end() && ended->text.find(kSessionGone) != std::string::npos;
            // A result without a turn: the CLI gave up at start; its exit tells the chat.
            if (ended != events.end() && m_turns == 0) {
                events.erase(ended);
            }
            // The session to resume isn't there anymore: starting again begins a new one.
            if (gone) {
                m_sessionId.reset();
                events.push_back(event(EngineEvent::Kind::SessionId));
            }
        }
        if (decoded.turnEnded) {
            m_turns = std::max(0, m_turns - 1);
            m_interrupted = false;
        }
    }
    emit(std::move(events));
}

void ClaudeSession::toolsResolvedLocked(const ToolsStatus& status,
                                        std::vector<EngineEvent>& events) {
    if (m_toolsResolved) {
        return;
    }
    m_tools = status;
    if (status.state == ToolsState::Pending) {
        return;
    }
    m_toolsResolved = true;
    m_wake.notify_all();
    if (status.state == ToolsState::Failed) {
        events.push_back(
            event(EngineEvent::Kind::Note, claude_texts::toolsNotLoaded(status.status)));
    }
}

void ClaudeSession::onExit(unsigned generation, int status, const std::string& errors) {
    std::vector<EngineEvent> events;
    {
        std::lock_guard lock(m_mutex);
        if (generation != m_generation) {
            return;
        }
        m_running = false;
        m_turns = 0;
        m_interrupted = false;
        m_wake.notify_all();
        events = m_decoder.abandonSteps();
        events.push_back(
            event(EngineEvent::Kind::Exited, claude_texts::stopped(exitReason(status, errors))));
    }
    emit(std::move(events));
}

void ClaudeSession::emit(std::vector<EngineEvent> events) {
    if (!m_events) {
        return;
    }
    for (EngineEvent& reported : events) {
        m_events(std::move(reported));
    }
}

std::unique_ptr<Engine> makeClaudeSession(EngineOptions options, EngineEvents events) {
    return std::make_unique<ClaudeSession>(std::move(options), std::move(events));
}

}  // namespace quillo::assistant
