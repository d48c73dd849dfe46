#include "codex_session.h"

#include <unistd.h>

#include "assistant/codex_texts.h"

namespace quillo::assistant {

namespace texts = codex_texts;

namespace {

EngineEvent event(EngineEvent::Kind kind, std::string text = {}) {
    EngineEvent result;
    result.kind = kind;
    result.text = std::move(text);
    return result;
}

bool isExecutable(const std::filesystem::path& path) {
    std::error_code error;
    return !path.empty() && std::filesystem::is_regular_file(path, error) &&
           ::access(path.c_str(), X_OK) == 0;
}

}  // namespace

CodexSession::CodexSession(EngineOptions options, EngineEvents events)
    : m_options(std::move(options)), m_events(std::move(events)) {
    if (m_options.resume) {
        m_threadId = *m_options.resume;
    }
}

CodexSession::~CodexSession() { end(); }

Result<void> CodexSession::say(const std::string& text) {
    Events events;
    std::unique_ptr<ChildProcess> finished;
    {
        std::lock_guard lock(m_mutex);
        if (m_busy) {
            return AppError(texts::kBusy);
        }
        if (!m_running) {
            finished = std::move(m_child);  // its exit has been reported: the reader is done
            if (auto started = start(events); !started) {
                return started;
            }
        } else if (!m_ready && !settingUp()) {
            startThread();  // the last attempt at a thread failed: try again
        }
        m_busy = true;
        m_waiting = text;
        if (m_ready) {
            sendTurn(events);
        }
    }
    finished.reset();
    emit(std::move(events));
    return {};
}

Result<void> CodexSession::start(Events& events) {
    if (!isExecutable(m_options.executable)) {
        return AppError(texts::kMissing);
    }
    ProcessSpec spec;
    spec.executable = m_options.executable;
    spec.arguments = codex::commandLine(m_options);
    spec.environment = m_options.environment;
    spec.workingDirectory = m_options.workingDirectory;
    const long generation = ++m_generation;
    auto child = ChildProcess::start(
        spec, [this, generation](std::string line) { onLine(generation, line); },
        [this, generation](int status, std::string errors) { onExit(generation, status, errors); });
    if (!child) {
        return AppError(codex::filled(texts::kCantStart, "reason", child.error().message),
                        child.error().detail);
    }
    m_child = std::move(child).value();
    m_running = true;
    m_calls.clear();
    m_decoder.reset();
    m_ready = false;
    m_turnId.clear();
    m_interruptWanted = false;
    events.push_back(event(EngineEvent::Kind::Status, texts::kStarting));
    call(Call::Initialize, "initialize", codex::initializeParams());
    return {};
}

long CodexSession::call(Call what, std::string_view method, Json params) {
    const long id = m_nextId++;
    m_calls[id] = what;
    if (m_child) {
        // A process that has gone reports its exit; the request is dropped with it.
        (void)m_child->writeLine(toCompactJson(codex::request(id, method, std::move(params))));
    }
    return id;
}

void CodexSession::startThread() {
    if (m_threadId.empty()) {
        call(Call::ThreadStart, "thread/start", codex::threadStartParams(m_options));
    } else {
        call(Call::ThreadResume, "thread/resume", codex::threadResumeParams(m_options, m_threadId));
    }
}

bool CodexSession::settingUp() const {
    for (const auto& [id, what] : m_calls) {
        if (what == Call::Initialize || what == Call::ThreadStart || what == Call::ThreadResume) {
            return true;
        }
    }
    return false;
}

void CodexSession::sendTurn(Events& events) {
    if (!m_waiting) {
        return;
    }
    const std::string text = std::move(*m_waiting);
    m_waiting.reset();
    if (m_threadId.empty()) {
        for (auto& ended : m_decoder.failTurn({})) {
            events.push_back(std::move(ended));
        }
        m_busy = false;
        return;
    }
    call(Call::TurnStart, "turn/start", codex::turnStartParams(m_options, m_threadId, text));
}

void CodexSession::onLine(long generation, const std::string& line) {
    auto parsed = parseJson(line);
    if (!parsed || !parsed->is_object()) {
        return;  // not the protocol (stray output of the CLI)
    }
    const Json& message = *parsed;
    Events events;
    {
        std::lock_guard lock(m_mutex);
        if (generation != m_generation) {
            return;
        }
        const bool hasId = message.contains("id");
        if (hasId && message.contains("method")) {
            if (m_child) {
                (void)m_child->writeLine(toCompactJson(codex::answerToServerRequest(message)));
            }
        } else if (hasId) {
            const Json& id = message["id"];
            auto found = id.is_number_integer() ? m_calls.find(id.get<long>()) : m_calls.end();
            if (found != m_calls.end()) {
                const Call what = found->second;
                m_calls.erase(found);
                onAnswer(what, message, events);
            }
        } else {
            events = m_decoder.decode(message);
            for (const auto& decoded : events) {
                if (decoded.kind == EngineEvent::Kind::TurnEnded) {
                    m_busy = false;
                    m_turnId.clear();
                    m_interruptWanted = false;
                }
            }
        }
    }
    emit(std::move(events));
}

void CodexSession::onAnswer(Call what, const Json& message, Events& events) {
    const bool failed = message.contains("error");
    const Json result = message.value("result", Json::object());
    const std::string error = failed ? codex::errorText(message["error"]) : std::string();
    switch (what) {
        case Call::Initialize:
            if (failed) {
                events.push_back(event(EngineEvent::Kind::Status));
                for (auto& ended : m_decoder.failTurn(error)) {
                    events.push_back(std::move(ended));
                }
                m_waiting.reset();
                m_busy = false;
                return;
            }
            (void)m_child->writeLine(toCompactJson(codex::notification("initialized")));
            call(Call::Models, "model/list", Json::object());
            startThread();
            return;
        case Call::Models:
            if (!failed) {
                EngineEvent models = event(EngineEvent::Kind::Models);
                models.models = codex::modelChoices(result);
                if (!models.models.empty()) {
                    events.push_back(std::move(models));
                }
            }
            return;
        case Call::ThreadResume:
            if (failed || codex::threadId(result).empty()) {
                events.push_back(event(EngineEvent::Kind::Note,
                                       codex::filled(texts::kResumeFailed, "reason",
                                                     failed ? error : texts::kNoAnswer)));
                m_threadId.clear();
                call(Call::ThreadStart, "thread/start", codex::threadStartParams(m_options));
                return;
            }
            onThread(result, events);
            return;
        case Call::ThreadStart:
            if (failed) {
                events.push_back(event(EngineEvent::Kind::Status));
                m_waiting.reset();
                for (auto& ended : m_decoder.failTurn(error)) {
                    events.push_back(std::move(ended));
                }
                m_busy = false;
                return;
            }
            onThread(result, events);
            return;
        case Call::TurnStart:
            if (failed) {
                for (auto& ended : m_decoder.failTurn(error)) {
                    events.push_back(std::move(ended));
                }
                m_busy = false;
                return;
            }
            if (m_busy) {
                m_turnId = result.value("turn", Json::object()).value("id", std::string());
                if (m_interruptWanted && !m_turnId.empty()) {
                    m_interruptWanted = false;
                    call(Call::Interrupt, "turn/interrupt",
                         codex::turnInterruptParams(m_threadId, m_turnId));
                }
            }
            return;
        case Call::Interrupt:
            return;  // the turn's end reports it
    }
}

void CodexSession::onThread(const Json& result, Events& events) {
    m_threadId = codex::threadId(result);
    m_ready = true;
    events.push_back(event(EngineEvent::Kind::SessionId, m_threadId));
    events.push_back(event(EngineEvent::Kind::Status));
    sendTurn(events);
}

void CodexSession::interrupt() {
    Events events;
    {
        std::lock_guard lock(m_mutex);
        if (!m_busy) {
            return;
        }
        m_decoder.markInterrupted();
        if (m_waiting) {
            // Not sent yet: the thread is still being set up.
            m_waiting.reset();
            events = m_decoder.failTurn({});
            m_busy = false;
        } else if (std::string turn = m_turnId.empty() ? m_decoder.turnId() : m_turnId;
                   !turn.empty()) {
            call(Call::Interrupt, "turn/interrupt", codex::turnInterruptParams(m_threadId, turn));
        } else {
            m_interruptWanted = true;
        }
    }
    emit(std::move(events));
}

void CodexSession::onExit(long generation, int status, const std::string& errors) {
    Events events;
    {
        std::lock_guard lock(m_mutex);
        if (generation != m_generation) {
            return;  // ended on purpose
        }
        m_running = false;
        events = m_decoder.abandonSteps();
        std::string reason = codex::exitReason(errors);
        if (reason.empty()) {
            reason = status > 128
                         ? codex::filled(texts::kSignal, "signal", std::to_string(status - 128))
                         : codex::filled(texts::kExitStatus, "status", std::to_string(status));
        }
        events.push_back(
            event(EngineEvent::Kind::Exited, codex::filled(texts::kStopped, "reason", reason)));
        forgetProcess();
    }
    emit(std::move(events));
}

void CodexSession::end() {
    std::unique_ptr<ChildProcess> child;
    {
        std::lock_guard lock(m_mutex);
        ++m_generation;  // what the old process still reports is dropped
        child = std::move(m_child);
        m_running = false;
        forgetProcess();
    }
    if (child) {
        child->terminate();
    }
}

void CodexSession::forgetProcess() {
    m_busy = false;
    m_ready = false;
    m_waiting.reset();
    m_calls.clear();
    m_decoder.reset();
    m_turnId.clear();
}

bool CodexSession::running() const {
    std::lock_guard lock(m_mutex);
    return m_running;
}

bool CodexSession::busy() const {
    std::lock_guard lock(m_mutex);
    return m_busy;
}

void CodexSession::emit(Events events) {
    if (!m_events) {
        return;
    }
    for (auto& each : events) {
        m_events(std::move(each));
    }
}

std::unique_ptr<Engine> makeCodexSession(EngineOptions options, EngineEvents events) {
    return std::make_unique<CodexSession>(std::move(options), std::move(events));
}

}  // namespace quillo::assistant
