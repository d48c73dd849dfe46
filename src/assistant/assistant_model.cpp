#include "assistant/assistant_model.h"

#include <system_error>

#include "assistant/cli_locator.h"
#include "base/log.h"
#include "base/paths.h"

namespace quillo::assistant {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kStopped = "Stopped.";

}  // namespace

// The running side of one open conversation.
struct AssistantModel::Session {
    std::unique_ptr<Engine> engine;
    int generation = 0;  // bumped whenever the engine is replaced, so late events are dropped
    bool busy = false;
    bool locating = false;
    std::string pending;  // the message to say once the CLI is found
    std::string status;
    // The assistant message of the turn under way (an index into the messages) and the id of
    // the text being streamed into it.
    std::optional<size_t> turnMessage;
    std::string streamId;
};

EngineKind engineFor(const AssistantSettings& settings) {
    return settings.engine == std::optional<std::string>("claude") ? EngineKind::Claude
                                                                   : EngineKind::Codex;
}

std::optional<LocatedCli> locateCli(EngineKind engine, const AssistantSettings& settings) {
    if (engine == EngineKind::Claude) {
        auto choice = ClaudeLocator().resolve();
        if (!choice) {
            return std::nullopt;
        }
        return LocatedCli{choice->path, choice->environment, std::nullopt};
    }
    auto choice = CodexLocator().resolve(settings.codexPath);
    if (!choice) {
        return std::nullopt;
    }
    return LocatedCli{choice->path, choice->environment, choice->note};
}

std::vector<std::string> defaultRelay() {
    std::error_code error;
    // The CLI starts the bridge itself, where /proc/self/exe would be the CLI.
    fs::path self = fs::read_symlink("/proc/self/exe", error);
    return {error ? std::string("quillo") : self.string(), "--mcp"};
}

AssistantModel::AssistantModel(AssistantDependencies dependencies)
    : m_deps(std::move(dependencies)) {
    if (!m_deps.locate) {
        m_deps.locate = locateCli;
    }
    if (m_deps.relay.empty()) {
        m_deps.relay = defaultRelay();
    }
    if (m_deps.workingDirectory.empty()) {
        m_deps.workingDirectory = supportFolder();
    }
    ConversationStore::Loaded loaded = m_deps.store.load();
    m_conversations = std::move(loaded.conversations);
    m_notices = std::move(loaded.notices);
}

AssistantModel::~AssistantModel() {
    m_alive.reset();
    for (auto& [id, session] : m_sessions) {
        if (session->engine) {
            session->engine->end();
        }
    }
    m_sessions.clear();
}

const Conversation* AssistantModel::conversation(const std::string& id) const {
    for (const Conversation& conversation : m_conversations) {
        if (conversation.id == id) {
            return &conversation;
        }
    }
    return nullptr;
}

Conversation* AssistantModel::find(const std::string& id) {
    return const_cast<Conversation*>(std::as_const(*this).conversation(id));
}

AssistantModel::Session& AssistantModel::session(const std::string& id) {
    std::unique_ptr<Session>& slot = m_sessions[id];
    if (!slot) {
        slot = std::make_unique<Session>();
    }
    return *slot;
}

bool AssistantModel::busy(const std::string& id) const {
    auto it = m_sessions.find(id);
    return it != m_sessions.end() && it->second->busy;
}

bool AssistantModel::running(const std::string& id) const {
    auto it = m_sessions.find(id);
    return it != m_sessions.end() && it->second->engine && it->second->engine->running();
}

std::string AssistantModel::status(const std::string& id) const {
    auto it = m_sessions.find(id);
    return it == m_sessions.end() ? std::string() : it->second->status;
}

const std::vector<ModelChoice>& AssistantModel::models(EngineKind engine) const {
    static const std::vector<ModelChoice> kNone;
    auto it = m_models.find(engine);
    return it == m_models.end() ? kNone : it->second;
}

std::string AssistantModel::newConversation() {
    const AssistantSettings settings = m_deps.settings();
    Conversation conversation = makeConversation(engineFor(settings));
    if (conversation.engine == EngineKind::Claude) {
        conversation.model = settings.claudeModel;
        conversation.effort = settings.claudeEffort;
    } else {
        conversation.model = settings.codexModel;
        conversation.effort = settings.codexEffort;
    }
    std::string id = conversation.id;
    m_conversations.insert(m_conversations.begin(), std::move(conversation));
    changed();
    return id;
}

void AssistantModel::addMessage(Conversation& conversation, MessageRole role, std::string text) {
    conversation.messages.push_back({role, std::move(text), {}});
    if (auto it = m_sessions.find(conversation.id); it != m_sessions.end()) {
        it->second->turnMessage.reset();
    }
}

void AssistantModel::touch(Conversation& conversation) {
    conversation.updated = std::max(currentTime(), conversation.updated);
    sortNewestFirst(m_conversations);
}

void AssistantModel::persist(const Conversation& conversation) {
    if (conversation.messages.empty() && conversation.title.empty()) {
        return;
    }
    if (auto saved = m_deps.store.save(conversation); !saved) {
        logError("assistant", saved.error().message + " " + saved.error().detail);
        session(conversation.id).status = saved.error().message;
    }
}

Result<void> AssistantModel::send(const std::string& id, const std::string& text) {
    Conversation* conversation = find(id);
    if (conversation == nullptr) {
        return AppError("That conversation isn't there anymore.");
    }
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) {
        return AppError("Type a message to send.");
    }
    Session& session = this->session(id);
    if (session.busy) {
        return AppError("The assistant is still answering. Wait for it or stop it first.");
    }
    if (conversation->title.empty()) {
        conversation->title = titleFromMessage(text);
    }
    addMessage(*conversation, MessageRole::User, text);
    session.busy = true;
    session.streamId.clear();
    if (session.engine) {
        if (auto said = session.engine->say(text); !said) {
            addMessage(*conversation, MessageRole::Error, said.error().message);
            session.busy = false;
        }
        persist(*conversation);
        touch(*conversation);
        changed();
        return {};
    }
    // No CLI yet: find it away from this queue, then start it with the message.
    const AssistantSettings settings = m_deps.settings();
    if (!conversation->sessionId) {
        const EngineKind chosen = engineFor(settings);
        if (chosen != conversation->engine) {
            conversation->engine = chosen;
            conversation->model =
                chosen == EngineKind::Claude ? settings.claudeModel : settings.codexModel;
            conversation->effort =
                chosen == EngineKind::Claude ? settings.claudeEffort : settings.codexEffort;
        }
    }
    const EngineKind engine = conversation->engine;
    session.locating = true;
    session.pending = text;
    session.status = "Looking for " + engineName(engine) + "…";
    const int generation = ++session.generation;
    persist(*conversation);
    touch(*conversation);
    std::weak_ptr<int> alive = m_alive;
    auto locate = m_deps.locate;
    TaskQueue& main = m_deps.mainQueue;
    m_deps.workQueue.post([this, alive, locate, &main, id, generation, engine, settings] {
        std::optional<LocatedCli> cli = locate(engine, settings);
        main.post([this, alive, id, generation, cli = std::move(cli)]() mutable {
            if (alive.lock()) {
                startEngine(id, generation, std::move(cli));
            }
        });
    });
    changed();
    return {};
}

void AssistantModel::startEngine(const std::string& id, int generation,
                                 std::optional<LocatedCli> cli) {
    Conversation* conversation = find(id);
    auto it = m_sessions.find(id);
    if (conversation == nullptr || it == m_sessions.end() || it->second->generation != generation ||
        !it->second->locating) {
        return;  // stopped, deleted or replaced meanwhile
    }
    Session& session = *it->second;
    session.locating = false;
    session.status.clear();
    if (!cli) {
        addMessage(*conversation, MessageRole::Error,
                   std::string(conversation->engine == EngineKind::Claude ? kClaudeMissing
                                                                          : kCodexMissing));
        session.busy = false;
        persist(*conversation);
        changed();
        return;
    }
    if (cli->note) {
        addMessage(*conversation, MessageRole::Note, *cli->note);
    }
    const AssistantSettings settings = m_deps.settings();
    EngineOptions options;
    options.executable = cli->executable;
    options.environment = cli->environment;
    options.workingDirectory = m_deps.workingDirectory;
    options.relay = m_deps.relay;
    options.instructions = m_deps.instructions;
    options.writes = settings.writes;
    options.model = conversation->model;
    options.effort = conversation->effort;
    options.resume = conversation->sessionId;
    std::weak_ptr<int> alive = m_alive;
    TaskQueue& main = m_deps.mainQueue;
    EngineEvents events = [this, alive, &main, id, generation](EngineEvent event) {
        main.post([this, alive, id, generation, event = std::move(event)]() mutable {
            if (alive.lock()) {
                apply(id, generation, std::move(event));
            }
        });
    };
    session.engine = m_deps.makeEngine(conversation->engine, std::move(options), std::move(events));
    const std::string text = std::move(session.pending);
    session.pending.clear();
    if (auto said = session.engine->say(text); !said) {
        addMessage(*conversation, MessageRole::Error, said.error().message);
        session.busy = false;
        session.engine->end();
        session.engine.reset();
        ++session.generation;
    }
    persist(*conversation);
    changed();
}

ChatMessage& AssistantModel::streamingMessage(Conversation& conversation, Session& session,
                                              const std::string& streamId, bool forStep) {
    auto& messages = conversation.messages;
    const bool current = session.turnMessage && *session.turnMessage + 1 == messages.size();
    // Text after a step starts a new message, so text and steps keep their order.
    if (current && (forStep || messages.back().steps.empty())) {
        ChatMessage& message = messages.back();
        if (!forStep && streamId != session.streamId && !message.text.empty()) {
            message.text += "\n\n";
        }
        if (!forStep) {
            session.streamId = streamId;
        }
        return message;
    }
    messages.push_back({MessageRole::Assistant, {}, {}});
    session.turnMessage = messages.size() - 1;
    if (!forStep) {
        session.streamId = streamId;
    }
    return messages.back();
}

void AssistantModel::apply(const std::string& id, int generation, EngineEvent event) {
    Conversation* conversation = find(id);
    auto it = m_sessions.find(id);
    if (conversation == nullptr || it == m_sessions.end() || it->second->generation != generation) {
        return;
    }
    Session& session = *it->second;
    using Kind = EngineEvent::Kind;
    switch (event.kind) {
        case Kind::Status:
            session.status = std::move(event.text);
            break;
        case Kind::SessionId:
            // An empty id: the saved session is gone, so the next start begins a new one.
            if (event.text.empty() ? conversation->sessionId.has_value()
                                   : conversation->sessionId != event.text) {
                conversation->sessionId = event.text.empty()
                                              ? std::nullopt
                                              : std::optional<std::string>(std::move(event.text));
                persist(*conversation);
            }
            break;
        case Kind::Models:
            m_models[conversation->engine] = std::move(event.models);
            break;
        case Kind::TextDelta:
            streamingMessage(*conversation, session, event.id, false).text += event.text;
            break;
        case Kind::StepStarted:
            streamingMessage(*conversation, session, event.id, true)
                .steps.push_back(
                    {event.id, event.name, summarizeInput(event.input), StepState::Running});
            persist(*conversation);
            break;
        case Kind::StepFinished:
            for (auto message = conversation->messages.rbegin();
                 message != conversation->messages.rend(); ++message) {
                for (ToolStep& step : message->steps) {
                    if (step.id == event.id && step.state == StepState::Running) {
                        step.state = event.failed ? StepState::Failed : StepState::Done;
                    }
                }
            }
            persist(*conversation);
            break;
        case Kind::Note:
            addMessage(*conversation, MessageRole::Note, std::move(event.text));
            persist(*conversation);
            break;
        case Kind::TurnEnded:
            if (event.text == kStopped) {
                addMessage(*conversation, MessageRole::Note, std::string(kStopped));
            } else if (event.failed) {
                addMessage(*conversation, MessageRole::Error,
                           event.text.empty() ? engineName(conversation->engine) + " hit an error."
                                              : std::move(event.text));
            }
            turnOver(id);
            break;
        case Kind::Exited:
            addMessage(*conversation, MessageRole::Error, std::move(event.text));
            // The next turn starts a fresh CLI that resumes the saved session.
            session.engine.reset();
            ++session.generation;
            turnOver(id);
            break;
    }
    changed();
}

void AssistantModel::turnOver(const std::string& id) {
    Session& session = this->session(id);
    session.busy = false;
    session.status.clear();
    session.turnMessage.reset();
    if (Conversation* conversation = find(id)) {
        persist(*conversation);
        touch(*conversation);
    }
}

void AssistantModel::stop(const std::string& id) {
    auto it = m_sessions.find(id);
    if (it == m_sessions.end() || !it->second->busy) {
        return;
    }
    Session& session = *it->second;
    if (session.locating) {
        session.locating = false;
        ++session.generation;
        if (Conversation* conversation = find(id)) {
            addMessage(*conversation, MessageRole::Note, std::string(kStopped));
        }
        turnOver(id);
        changed();
    } else if (session.engine) {
        session.engine->interrupt();
    }
}

void AssistantModel::endSession(const std::string& id) {
    auto it = m_sessions.find(id);
    if (it == m_sessions.end()) {
        return;
    }
    if (it->second->engine) {
        it->second->engine->end();
    }
    m_sessions.erase(it);
}

Result<void> AssistantModel::rename(const std::string& id, const std::string& title) {
    Conversation* conversation = find(id);
    if (conversation == nullptr) {
        return AppError("That conversation isn't there anymore.");
    }
    std::string name = titleFromMessage(title);
    if (name.empty()) {
        return AppError("Give the conversation a name.");
    }
    conversation->title = std::move(name);
    if (auto saved = m_deps.store.save(*conversation); !saved) {
        return saved;
    }
    changed();
    return {};
}

Result<void> AssistantModel::remove(const std::string& id) {
    if (find(id) == nullptr) {
        return AppError("That conversation isn't there anymore.");
    }
    if (auto removed = m_deps.store.remove(id); !removed) {
        return removed;
    }
    endSession(id);
    std::erase_if(m_conversations, [&](const Conversation& item) { return item.id == id; });
    changed();
    return {};
}

Result<void> AssistantModel::setModel(const std::string& id, std::optional<std::string> model,
                                      std::optional<std::string> effort) {
    Conversation* conversation = find(id);
    if (conversation == nullptr) {
        return AppError("That conversation isn't there anymore.");
    }
    if (busy(id)) {
        return AppError("The assistant is still answering. Wait for it or stop it first.");
    }
    conversation->model = std::move(model);
    conversation->effort = std::move(effort);
    persist(*conversation);
    endSession(id);
    changed();
    return {};
}

}  // namespace quillo::assistant
