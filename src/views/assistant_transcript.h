#pragma once

#include <string>
#include <vector>

#include <QTextBrowser>

#include "assistant/conversation.h"

namespace quillo::views {

// The messages of one conversation, as read-only selectable text: the person's messages, the
// assistant's replies (Markdown) as they stream in, its tool steps with a running, done or failed
// mark, notes and errors. Only what changed since the last call is laid out again, so a reply
// growing by deltas costs its own length. Thread: the GUI thread.
class AssistantTranscript : public QTextBrowser {
    Q_OBJECT

public:
    explicit AssistantTranscript(QWidget* parent = nullptr);

    // Shows `conversation` (none: empty). Keeps the view at the bottom when it was there.
    void showConversation(const assistant::Conversation* conversation);

protected:
    void changeEvent(QEvent* event) override;

private:
    void relayout();
    void append(const assistant::ChatMessage& message, const assistant::ChatMessage* previous);

    std::string m_id;
    assistant::EngineKind m_engine = assistant::EngineKind::Codex;
    std::vector<assistant::ChatMessage> m_shown;
    std::vector<int> m_starts;  // where each shown message begins in the document
    // The view follows new text while it is scrolled to the bottom. The document is laid out
    // after it changes, so this is kept across changes rather than read at each one.
    bool m_followBottom = true;
};

// The shell command in a missing-CLI message ("Install it (…)"), to show on a line of its own;
// empty when the text has none.
std::string installCommand(const std::string& text);

}  // namespace quillo::views
