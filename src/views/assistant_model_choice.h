#pragma once

#include <optional>
#include <string>
#include <vector>

#include <QComboBox>
#include <QLabel>
#include <QWidget>

#include "assistant/conversation.h"

namespace quillo::views {

// The engine a conversation runs on, and its model and effort from the menu the engine
// reported. The effort is offered only for a model that has effort levels. Thread: the GUI
// thread.
class AssistantModelChoice : public QWidget {
    Q_OBJECT

public:
    explicit AssistantModelChoice(QWidget* parent = nullptr);

    // Shows the conversation's engine and choice; `models` is its engine's menu (may be empty
    // until the CLI has started). Nothing can be chosen while `locked`.
    void showChoice(const assistant::Conversation* conversation,
                    const std::vector<assistant::ModelChoice>& models, bool locked);

signals:
    // None: the CLI's default.
    void chosen(std::optional<std::string> model, std::optional<std::string> effort);

private:
    void fillEfforts(const std::optional<std::string>& effort);
    std::optional<std::string> chosenModel() const;
    std::optional<std::string> chosenEffort() const;
    void emitChoice();

    QLabel* m_engine;
    QComboBox* m_model;
    QComboBox* m_effort;
    std::vector<assistant::ModelChoice> m_models;
    bool m_filling = false;
};

}  // namespace quillo::views
