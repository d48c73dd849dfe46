#include "assistant_composer.h"

#include <QHBoxLayout>
#include <QKeyEvent>

namespace quillo::views {

ComposerField::ComposerField(QWidget* parent) : QPlainTextEdit(parent) {
    setAccessibleName(tr("Message"));
    setAccessibleDescription(tr("Enter sends, Shift+Enter starts a new line"));
    setPlaceholderText(tr("Message the assistant…"));
    setTabChangesFocus(true);
    // Three lines; longer messages scroll.
    setFixedHeight(fontMetrics().lineSpacing() * 3 + 2 * (frameWidth() + 4));
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

void ComposerField::keyPressEvent(QKeyEvent* event) {
    const bool enter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (enter && !(event->modifiers() & Qt::ShiftModifier)) {
        event->accept();
        emit submitted();
        return;
    }
    if (enter) {
        // Shift+Enter: a plain new line (not the line separator Qt would insert).
        insertPlainText(QStringLiteral("\n"));
        event->accept();
        return;
    }
    QPlainTextEdit::keyPressEvent(event);
}

AssistantComposer::AssistantComposer(QWidget* parent) : QWidget(parent) {
    m_field = new ComposerField(this);
    m_button = new QPushButton(tr("Send"), this);
    m_button->setAccessibleName(tr("Send"));
    m_button->setDefault(false);
    m_button->setAutoDefault(false);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_field, 1);
    layout->addWidget(m_button, 0, Qt::AlignBottom);
    connect(m_field, &ComposerField::submitted, this, [this] {
        if (!m_busy) {
            submit();
        }
    });
    connect(m_button, &QPushButton::clicked, this, [this] {
        if (m_busy) {
            emit stopRequested();
        } else {
            submit();
        }
    });
}

void AssistantComposer::setBusy(bool busy) {
    if (busy == m_busy) {
        return;
    }
    m_busy = busy;
    m_button->setText(busy ? tr("Stop") : tr("Send"));
    m_button->setAccessibleName(m_button->text());
}

QString AssistantComposer::text() const { return m_field->toPlainText(); }

void AssistantComposer::clearText() { m_field->clear(); }

void AssistantComposer::focusField() { m_field->setFocus(Qt::OtherFocusReason); }

void AssistantComposer::submit() {
    const QString text = m_field->toPlainText();
    if (!text.trimmed().isEmpty()) {
        emit sendRequested(text);
    }
}

}  // namespace quillo::views
