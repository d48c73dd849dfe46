#pragma once

#include <QPlainTextEdit>
#include <QPushButton>
#include <QWidget>

namespace quillo::views {

// The message field: Enter sends, Shift+Enter starts a new line.
class ComposerField : public QPlainTextEdit {
    Q_OBJECT

public:
    explicit ComposerField(QWidget* parent = nullptr);

signals:
    void submitted();

protected:
    void keyPressEvent(QKeyEvent* event) override;
};

// Where the person writes to the assistant: the message field and a button that sends it, or
// stops the answer while a turn runs. Thread: the GUI thread.
class AssistantComposer : public QWidget {
    Q_OBJECT

public:
    explicit AssistantComposer(QWidget* parent = nullptr);

    // While a turn runs the button stops it and Enter sends nothing.
    void setBusy(bool busy);
    bool busy() const { return m_busy; }
    QString text() const;
    void clearText();
    void focusField();

signals:
    // The text typed, to send (only when there is some).
    void sendRequested(const QString& text);
    void stopRequested();

private:
    void submit();

    ComposerField* m_field;
    QPushButton* m_button;
    bool m_busy = false;
};

}  // namespace quillo::views
