#include "assistant_transcript.h"

#include <QEvent>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>

#include "assistant_style.h"

namespace quillo::views {

using assistant::ChatMessage;
using assistant::MessageRole;
using assistant::StepState;

std::string installCommand(const std::string& text) {
    static constexpr std::string_view kLead = "Install it (";
    const size_t start = text.find(kLead);
    if (start == std::string::npos) {
        return {};
    }
    const size_t from = start + kLead.size();
    // The command ends where the sentence goes on after the closing parenthesis.
    const size_t end = text.find(") ", from);
    return end == std::string::npos ? std::string() : text.substr(from, end - from);
}

AssistantTranscript::AssistantTranscript(QWidget* parent) : QTextBrowser(parent) {
    setAccessibleName(tr("Conversation"));
    setOpenExternalLinks(true);
    setTextInteractionFlags(Qt::TextBrowserInteraction | Qt::TextSelectableByKeyboard);
    setPlaceholderText(tr("Ask the assistant to record a demo, edit a recording or export it."));
    document()->setDocumentMargin(10);
    QScrollBar* bar = verticalScrollBar();
    connect(bar, &QScrollBar::rangeChanged, this, [this, bar](int, int maximum) {
        if (m_followBottom) {
            bar->setValue(maximum);
        }
    });
    connect(bar, &QScrollBar::valueChanged, this,
            [this, bar](int value) { m_followBottom = value >= bar->maximum() - 4; });
}

void AssistantTranscript::showConversation(const assistant::Conversation* conversation) {
    const std::string id = conversation ? conversation->id : std::string();
    if (id != m_id || (conversation && conversation->engine != m_engine)) {
        if (id != m_id) {
            m_followBottom = true;
        }
        m_id = id;
        m_engine = conversation ? conversation->engine : assistant::EngineKind::Codex;
        m_shown.clear();
        m_starts.clear();
        clear();
    }
    static const std::vector<ChatMessage> kNone;
    const std::vector<ChatMessage>& messages = conversation ? conversation->messages : kNone;
    // The first message that differs and everything after it are laid out again.
    size_t same = 0;
    while (same < m_shown.size() && same < messages.size() && m_shown[same] == messages[same]) {
        ++same;
    }
    if (same == m_shown.size() && same == messages.size()) {
        return;
    }
    QTextCursor cursor(document());
    if (same < m_starts.size()) {
        cursor.setPosition(m_starts[same]);
        cursor.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
        cursor.removeSelectedText();
        m_starts.resize(same);
    }
    m_shown.assign(messages.begin(), messages.begin() + same);
    for (size_t i = same; i < messages.size(); ++i) {
        append(messages[i], i > 0 ? &messages[i - 1] : nullptr);
    }
    if (m_followBottom) {
        verticalScrollBar()->setValue(verticalScrollBar()->maximum());
    }
}

void AssistantTranscript::relayout() {
    m_shown.clear();
    m_starts.clear();
    clear();
}

void AssistantTranscript::changeEvent(QEvent* event) {
    QTextBrowser::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && !m_shown.empty()) {
        // The colours come from the palette: lay everything out again in the new ones.
        std::vector<ChatMessage> shown = std::move(m_shown);
        relayout();
        for (size_t i = 0; i < shown.size(); ++i) {
            append(shown[i], i > 0 ? &shown[i - 1] : nullptr);
        }
    }
}

namespace {

// A new block after whatever the document holds (the first block is the empty one a document
// starts with).
void newBlock(QTextCursor& cursor, const QTextBlockFormat& format, const QTextCharFormat& chars) {
    cursor.movePosition(QTextCursor::End);
    if (cursor.document()->isEmpty()) {
        cursor.setBlockFormat(format);
        cursor.setBlockCharFormat(chars);
        cursor.setCharFormat(chars);
    } else {
        cursor.insertBlock(format, chars);
    }
}

QTextCharFormat charFormat(const QColor& colour, bool bold = false, bool italic = false) {
    QTextCharFormat format;
    format.setForeground(colour);
    format.setFontWeight(bold ? QFont::DemiBold : QFont::Normal);
    format.setFontItalic(italic);
    return format;
}

QString stepMark(StepState state) {
    switch (state) {
        case StepState::Running:
            return QStringLiteral("…");
        case StepState::Done:
            return QStringLiteral("✓");
        case StepState::Failed:
            return QStringLiteral("✗");
    }
    return {};
}

}  // namespace

void AssistantTranscript::append(const ChatMessage& message, const ChatMessage* previous) {
    const TranscriptColours colours = transcriptColours(palette());
    QTextCursor cursor(document());
    cursor.movePosition(QTextCursor::End);
    m_starts.push_back(document()->isEmpty() ? 0 : cursor.position());
    m_shown.push_back(message);

    QTextBlockFormat plain;
    plain.setTopMargin(2);
    QTextBlockFormat spaced = plain;
    spaced.setTopMargin(10);
    const QString text = QString::fromStdString(message.text);
    switch (message.role) {
        case MessageRole::User: {
            newBlock(cursor, spaced, charFormat(colours.muted, true));
            cursor.insertText(tr("You"));
            QTextBlockFormat bubble = plain;
            bubble.setBackground(colours.bubble);
            bubble.setLeftMargin(0);
            newBlock(cursor, bubble, charFormat(colours.text));
            // Lines typed with Shift+Enter stay lines.
            cursor.insertText(QString(text).replace('\n', QChar::LineSeparator));
            break;
        }
        case MessageRole::Assistant: {
            const bool continues = previous && previous->role == MessageRole::Assistant;
            if (!continues) {
                newBlock(cursor, spaced, charFormat(colours.muted, true));
                cursor.insertText(QString::fromStdString(assistant::engineName(m_engine)));
            }
            if (!message.text.empty()) {
                newBlock(cursor, plain, charFormat(colours.text));
                cursor.insertMarkdown(text);
            }
            for (const assistant::ToolStep& step : message.steps) {
                const QColor mark = step.state == StepState::Done     ? colours.done
                                    : step.state == StepState::Failed ? colours.error
                                                                      : colours.muted;
                newBlock(cursor, plain, charFormat(mark, true));
                cursor.insertText(stepMark(step.state) + QStringLiteral("  "));
                cursor.insertText(QString::fromStdString(step.name),
                                  charFormat(colours.text, true));
                if (!step.input.empty()) {
                    cursor.insertText(QStringLiteral("  ") + QString::fromStdString(step.input),
                                      charFormat(colours.muted));
                }
            }
            break;
        }
        case MessageRole::Note:
            newBlock(cursor, spaced, charFormat(colours.muted, false, true));
            cursor.insertText(text);
            break;
        case MessageRole::Error: {
            newBlock(cursor, spaced, charFormat(colours.error));
            cursor.insertText(text);
            if (std::string command = installCommand(message.text); !command.empty()) {
                QTextCharFormat code = charFormat(colours.text);
                code.setFontFixedPitch(true);
                code.setFontFamilies({QStringLiteral("monospace")});
                QTextBlockFormat box = plain;
                box.setBackground(colours.bubble);
                newBlock(cursor, box, code);
                cursor.insertText(QString::fromStdString(command));
            }
            break;
        }
    }
}

}  // namespace quillo::views
