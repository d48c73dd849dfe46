#pragma once

#include <functional>

#include <QListWidget>
#include <QToolButton>
#include <QWidget>

#include "assistant/assistant_model.h"

namespace quillo::views {

// The assistant's conversations, newest first, with New, Rename (in place) and Delete (after a
// confirmation). Thread: the GUI thread, over the model on the main queue.
class AssistantConversationList : public QWidget {
    Q_OBJECT

public:
    explicit AssistantConversationList(assistant::AssistantModel& model, QWidget* parent = nullptr);

    // Follows the model's list; keeps the chosen conversation while it is there.
    void refresh();
    // The chosen conversation's id; empty when none.
    QString current() const;
    void setCurrent(const QString& id);
    // Starts editing the chosen conversation's title in place.
    void renameCurrent();
    // Deletes the chosen conversation once `confirmDelete` agrees.
    void deleteCurrent();

    // Asked before a conversation is deleted, with its title. Default: a question box.
    std::function<bool(const QString& title)> confirmDelete;

signals:
    void currentChanged(const QString& id);
    void newRequested();
    // A rename or delete that failed, for the pane's status line.
    void failed(const QString& message);

private:
    void renamed(QListWidgetItem* item);
    void updateButtons();

    assistant::AssistantModel& m_model;
    QListWidget* m_list;
    QToolButton* m_new;
    QToolButton* m_rename;
    QToolButton* m_delete;
    bool m_filling = false;
};

}  // namespace quillo::views
