#pragma once

#include <QString>
#include <QWidget>

class QFormLayout;
class QVBoxLayout;

namespace quillo::views {

class SettingsBinder;

// One page of the settings window: one form of labelled controls and notes, divided into
// sections under headings, so every section's labels line up. Thread: the GUI thread.
class SettingsPage : public QWidget {
    Q_OBJECT

public:
    explicit SettingsPage(const QString& title, QWidget* parent = nullptr);

    // Starts a section under `heading`.
    void section(const QString& heading);
    // A labelled control; the label is the control's buddy (so its mnemonic focuses it).
    void row(const QString& label, QWidget* control);
    // A control that carries its own text (a checkbox), spanning the form.
    void row(QWidget* control);
    // A line of explanation in the secondary text colour.
    void note(const QString& text);
    void finish();

private:
    QVBoxLayout* m_layout = nullptr;
    QFormLayout* m_form = nullptr;
};

// The pages of the settings window, each covering its share of the preference keys.
SettingsPage* generalPage(SettingsBinder& binder);
SettingsPage* recordingPage(SettingsBinder& binder);
SettingsPage* editingPage(SettingsBinder& binder);
SettingsPage* agentsPage(SettingsBinder& binder);
SettingsPage* assistantPage(SettingsBinder& binder);

}  // namespace quillo::views
