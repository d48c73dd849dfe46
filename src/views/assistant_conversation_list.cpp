#include "assistant_conversation_list.h"

#include <QAction>
#include <QDateTime>
#include <QHBoxLayout>
#include <QLabel>
#include <QMessageBox>
#include <QVBoxLayout>

namespace quillo::views {

namespace {

constexpr int kIdRole = Qt::UserRole;

QToolButton* toolButton(const QString& text, const QString& icon, QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setText(text);
    button->setAccessibleName(text);
    button->setToolTip(text);
    button->setIcon(QIcon::fromTheme(icon));
    button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    button->setAutoRaise(true);
    return button;
}

}  // namespace

AssistantConversationList::AssistantConversationList(assistant::AssistantModel& model,
                                                     QWidget* parent)
    : QWidget(parent), m_model(model) {
    confirmDelete = [this](const QString& title) {
        return QMessageBox::question(
                   this, tr("Delete Conversation"),
                   tr("Delete “%1”? Its messages are removed from this computer.").arg(title),
                   QMessageBox::Yes | QMessageBox::Cancel, QMessageBox::Cancel) == QMessageBox::Yes;
    };
    auto* heading = new QLabel(tr("Conversations"), this);
    QFont bold = heading->font();
    bold.setBold(true);
    heading->setFont(bold);
    m_new = toolButton(tr("New"), QStringLiteral("document-new"), this);
    m_new->setAccessibleName(tr("New conversation"));
    m_new->setToolTip(tr("New conversation"));
    m_rename = toolButton(tr("Rename"), QStringLiteral("edit-rename"), this);
    m_rename->setToolButtonStyle(Qt::ToolButtonIconOnly);
    m_delete = toolButton(tr("Delete"), QStringLiteral("edit-delete"), this);
    m_delete->setToolButtonStyle(Qt::ToolButtonIconOnly);
    if (m_rename->icon().isNull()) {
        m_rename->setToolButtonStyle(Qt::ToolButtonTextOnly);
    }
    if (m_delete->icon().isNull()) {
        m_delete->setToolButtonStyle(Qt::ToolButtonTextOnly);
    }

    m_list = new QListWidget(this);
    m_list->setAccessibleName(tr("Conversations"));
    m_list->setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::DoubleClicked);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setUniformItemSizes(true);
    m_list->setTextElideMode(Qt::ElideRight);

    auto* top = new QHBoxLayout;
    top->setContentsMargins(0, 0, 0, 0);
    top->addWidget(heading, 1);
    top->addWidget(m_new);
    top->addWidget(m_rename);
    top->addWidget(m_delete);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addLayout(top);
    layout->addWidget(m_list, 1);

    // Delete with the key as well as the button, while the list has the focus.
    auto* remove = new QAction(tr("Delete"), m_list);
    remove->setShortcut(QKeySequence::Delete);
    remove->setShortcutContext(Qt::WidgetShortcut);
    m_list->addAction(remove);
    connect(remove, &QAction::triggered, this, [this] { deleteCurrent(); });

    connect(m_new, &QToolButton::clicked, this, [this] { emit newRequested(); });
    connect(m_rename, &QToolButton::clicked, this, [this] { renameCurrent(); });
    connect(m_delete, &QToolButton::clicked, this, [this] { deleteCurrent(); });
    connect(m_list, &QListWidget::currentItemChanged, this, [this] {
        updateButtons();
        if (!m_filling) {
            emit currentChanged(current());
        }
    });
    connect(m_list, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
        if (!m_filling) {
            renamed(item);
        }
    });
    refresh();
}

void AssistantConversationList::refresh() {
    const QString chosen = current();
    const auto& conversations = m_model.conversations();
    m_filling = true;
    // Items are reused in place, so an edit under way or the scroll position survives a change.
    while (m_list->count() > static_cast<int>(conversations.size())) {
        delete m_list->takeItem(m_list->count() - 1);
    }
    int chosenRow = -1;
    for (size_t i = 0; i < conversations.size(); ++i) {
        const assistant::Conversation& conversation = conversations[i];
        QListWidgetItem* item = m_list->item(static_cast<int>(i));
        if (!item) {
            item = new QListWidgetItem(m_list);
            item->setFlags(item->flags() | Qt::ItemIsEditable);
        }
        const QString id = QString::fromStdString(conversation.id);
        const QString title = QString::fromStdString(assistant::displayTitle(conversation));
        const QString when =
            QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(conversation.updated * 1000))
                .toString(QStringLiteral("d MMM yyyy, HH:mm"));
        if (item->data(kIdRole).toString() != id) {
            item->setData(kIdRole, id);
        }
        if (item->text() != title) {
            item->setText(title);
        }
        item->setToolTip(QString::fromStdString(assistant::engineName(conversation.engine)) +
                         " · " + when);
        if (id == chosen) {
            chosenRow = static_cast<int>(i);
        }
    }
    if (chosenRow >= 0 && m_list->currentRow() != chosenRow) {
        m_list->setCurrentRow(chosenRow);
    } else if (chosenRow < 0 && !chosen.isEmpty()) {
        m_list->setCurrentRow(m_list->count() > 0 ? 0 : -1);
    }
    m_filling = false;
    updateButtons();
    if (current() != chosen) {
        emit currentChanged(current());
    }
}

QString AssistantConversationList::current() const {
    QListWidgetItem* item = m_list->currentItem();
    return item ? item->data(kIdRole).toString() : QString();
}

void AssistantConversationList::setCurrent(const QString& id) {
    for (int row = 0; row < m_list->count(); ++row) {
        if (m_list->item(row)->data(kIdRole).toString() == id) {
            m_list->setCurrentRow(row);
            return;
        }
    }
}

void AssistantConversationList::renameCurrent() {
    if (QListWidgetItem* item = m_list->currentItem()) {
        m_list->setFocus(Qt::OtherFocusReason);
        m_list->editItem(item);
    }
}

void AssistantConversationList::deleteCurrent() {
    QListWidgetItem* item = m_list->currentItem();
    if (!item || !confirmDelete(item->text())) {
        return;
    }
    if (auto removed = m_model.remove(current().toStdString()); !removed) {
        emit failed(QString::fromStdString(removed.error().message));
    }
}

void AssistantConversationList::renamed(QListWidgetItem* item) {
    const std::string id = item->data(kIdRole).toString().toStdString();
    const assistant::Conversation* conversation = m_model.conversation(id);
    if (!conversation || item->text().toStdString() == assistant::displayTitle(*conversation)) {
        return;
    }
    auto result = m_model.rename(id, item->text().toStdString());
    if (!result) {
        emit failed(QString::fromStdString(result.error().message));
    }
    // The title as the model keeps it (tidied, or the old one after a failure).
    if (const assistant::Conversation* now = m_model.conversation(id)) {
        m_filling = true;
        item->setText(QString::fromStdString(assistant::displayTitle(*now)));
        m_filling = false;
    }
}

void AssistantConversationList::updateButtons() {
    const bool chosen = m_list->currentItem() != nullptr;
    m_rename->setEnabled(chosen);
    m_delete->setEnabled(chosen);
}

}  // namespace quillo::views
