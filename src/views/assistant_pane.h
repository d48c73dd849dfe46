#pragma once

#include <QLabel>
#include <QToolButton>
#include <QWidget>

#include "assistant/assistant_model.h"

namespace quillo::views {

class AssistantComposer;
class AssistantConversationList;
class AssistantModelChoice;
class AssistantTranscript;

// The assistant's chat beside the editor: the conversations, the chosen one's transcript, its
// engine and model, the status line and the message field. It shows the assistant model and
// holds no rules of its own. Thread: the GUI thread, which runs the model's main queue.
class AssistantPane : public QWidget {
    Q_OBJECT

public:
    // `model` outlives the pane.
    explicit AssistantPane(assistant::AssistantModel& model, QWidget* parent = nullptr);
    ~AssistantPane() override;

    // The conversation shown; empty when none.
    QString currentConversation() const;
    AssistantConversationList& conversationList() { return *m_list; }
    void focusComposer();

private:
    void refresh();
    void showCurrent();
    void send(const QString& text);
    void startConversation();
    void showMessage(const QString& message);

    assistant::AssistantModel& m_model;
    QWidget* m_notices;
    QLabel* m_noticeText;
    AssistantConversationList* m_list;
    AssistantModelChoice* m_choice;
    AssistantTranscript* m_transcript;
    QLabel* m_status;
    AssistantComposer* m_composer;
    QString m_message;  // a failed action's message, shown until the next change
    int m_changed = 0;
};

}  // namespace quillo::views
