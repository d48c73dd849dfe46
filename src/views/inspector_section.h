#pragma once

#include <QString>
#include <QWidget>

class QToolButton;
class QVBoxLayout;

namespace quillo::views {

// A titled, collapsible group of the inspector: a header button that opens and closes the body.
// Whether a section is open is remembered per `key` across tabs and runs. GUI thread only.
class InspectorSection : public QWidget {
    Q_OBJECT

public:
    // `key` names the remembered state ("style", "cursor", …); `openByDefault` applies until the
    // user first opens or closes the section.
    InspectorSection(const QString& key, const QString& title, bool openByDefault,
                     QWidget* parent = nullptr);

    // The body's layout; the section owns what is added to it.
    QVBoxLayout* body() const { return m_bodyLayout; }
    // Adds a widget to the body.
    void addWidget(QWidget* widget);

    bool isOpen() const;
    void setOpen(bool open);

private:
    void showOpen(bool open);

    QString m_key;
    QToolButton* m_header = nullptr;
    QWidget* m_body = nullptr;
    QVBoxLayout* m_bodyLayout = nullptr;
};

}  // namespace quillo::views
