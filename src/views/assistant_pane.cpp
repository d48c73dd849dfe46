#include "assistant_pane.h"

#include <QHBoxLayout>
#include <QSplitter>
#include <QVBoxLayout>

#include "assistant_composer.h"
#include "assistant_conversation_list.h"
#include "assistant_model_choice.h"
#include "assistant_style.h"
#include "assistant_transcript.h"

namespace quillo::views {

namespace {

// The notices of files skipped at load, with a button to put them away (they come once a run).
QWidget* noticeBanner(const std::vector<std::string>& notices, QLabel*& text, QWidget* parent) {
    auto* banner = new QWidget(parent);
    banner->setAccessibleName(QObject::tr("Assistant notices"));
    text = new QLabel(banner);
    text->setAccessibleName(QObject::tr("Notices"));
    text->setWordWrap(true);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    QString lines;
    for (const std::string& notice : notices) {
        lines += (lines.isEmpty() ? "" : "\n") + QString::fromStdString(notice);
    }
    text->setText(lines);
    text->setAccessibleDescription(lines);
    auto* dismiss = new QToolButton(banner);
    dismiss->setText(QObject::tr("Dismiss"));
    dismiss->setAccessibleName(QObject::tr("Dismiss notices"));
    dismiss->setAutoRaise(true);
    auto* layout = new QHBoxLayout(banner);
    layout->setContentsMargins(8, 6, 4, 6);
    layout->addWidget(text, 1);
    layout->addWidget(dismiss, 0, Qt::AlignTop);
    banner->setAutoFillBackground(true);
    QPalette palette = banner->palette();
    palette.setColor(QPalette::Window, transcriptColours(palette).bubble);
    banner->setPalette(palette);
    QObject::connect(dismiss, &QToolButton::clicked, banner, &QWidget::hide);
    banner->setVisible(!notices.empty());
    return banner;
}

}  // namespace

AssistantPane::AssistantPane(assistant::AssistantModel& model, QWidget* parent)
    : QWidget(parent), m_model(model) {
    setAccessibleName(tr("Assistant"));
    m_notices = noticeBanner(model.notices(), m_noticeText, this);
    m_list = new AssistantConversationList(model, this);
    m_choice = new AssistantModelChoice(this);
    m_transcript = new AssistantTranscript(this);
    m_status = new QLabel(this);
    m_status->setAccessibleName(tr("Assistant status"));
    m_status->setWordWrap(true);
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_composer = new AssistantComposer(this);

    auto* chat = new QWidget(this);
    auto* chatLayout = new QVBoxLayout(chat);
    chatLayout->setContentsMargins(0, 0, 0, 0);
    chatLayout->setSpacing(4);
    chatLayout->addWidget(m_choice);
    chatLayout->addWidget(m_transcript, 1);
    chatLayout->addWidget(m_status);
    chatLayout->addWidget(m_composer);
    auto* split = new QSplitter(Qt::Vertical, this);
    split->setChildrenCollapsible(false);
    split->addWidget(m_list);
    split->addWidget(chat);
    split->setStretchFactor(0, 0);
    split->setStretchFactor(1, 1);
    split->setSizes({150, 600});
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->setSpacing(6);
    layout->addWidget(m_notices);
    layout->addWidget(split, 1);

    connect(m_list, &AssistantConversationList::currentChanged, this, [this] {
        m_message.clear();
        showCurrent();
    });
    connect(m_list, &AssistantConversationList::newRequested, this, [this] {
        startConversation();
        focusComposer();
    });
    connect(m_list, &AssistantConversationList::failed, this,
            [this](const QString& message) { showMessage(message); });
    connect(m_choice, &AssistantModelChoice::chosen, this,
            [this](std::optional<std::string> model, std::optional<std::string> effort) {
                auto set = m_model.setModel(currentConversation().toStdString(), std::move(model),
                                            std::move(effort));
                if (!set) {
                    showMessage(QString::fromStdString(set.error().message));
                }
            });
    connect(m_composer, &AssistantComposer::sendRequested, this,
            [this](const QString& text) { send(text); });
    connect(m_composer, &AssistantComposer::stopRequested, this,
            [this] { m_model.stop(currentConversation().toStdString()); });

    m_changed = m_model.changed.connect([this] { refresh(); });
    if (!m_model.conversations().empty()) {
        m_list->setCurrent(QString::fromStdString(m_model.conversations().front().id));
    }
    showCurrent();
}

AssistantPane::~AssistantPane() { m_model.changed.disconnect(m_changed); }

QString AssistantPane::currentConversation() const { return m_list->current(); }

void AssistantPane::focusComposer() { m_composer->focusField(); }

void AssistantPane::refresh() {
    m_message.clear();
    m_list->refresh();
    showCurrent();
}

void AssistantPane::showCurrent() {
    const std::string id = currentConversation().toStdString();
    const assistant::Conversation* conversation = m_model.conversation(id);
    const bool busy = conversation && m_model.busy(id);
    m_transcript->showConversation(conversation);
    static const std::vector<assistant::ModelChoice> kNone;
    m_choice->showChoice(conversation, conversation ? m_model.models(conversation->engine) : kNone,
                         busy);
    m_composer->setBusy(busy);
    const QString status = conversation ? QString::fromStdString(m_model.status(id)) : QString();
    m_status->setText(m_message.isEmpty() ? status : m_message);
    m_status->setAccessibleDescription(m_status->text());
    m_status->setVisible(!m_status->text().isEmpty());
}

void AssistantPane::showMessage(const QString& message) {
    showCurrent();
    m_message = message;
    m_status->setText(message);
    m_status->setAccessibleDescription(message);
    m_status->setVisible(!message.isEmpty());
}

void AssistantPane::startConversation() {
    const std::string id = m_model.newConversation();
    m_list->setCurrent(QString::fromStdString(id));
}

void AssistantPane::send(const QString& text) {
    if (currentConversation().isEmpty()) {
        startConversation();
    }
    auto sent = m_model.send(currentConversation().toStdString(), text.toStdString());
    if (!sent) {
        showMessage(QString::fromStdString(sent.error().message));
        return;
    }
    m_composer->clearText();
}

}  // namespace quillo::views
