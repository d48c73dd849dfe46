#include "settings_pages.h"

#include <cstdlib>
#include <string_view>

#include <QCheckBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPixmap>
#include <QSpinBox>
#include <QVBoxLayout>

#include "base/paths.h"
#include "captions/caption_transcriber.h"
#include "codex_choice.h"
#include "settings_binder.h"

namespace quillo::views {

namespace prefs = app::prefs;

namespace {

QString qText(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

QIcon swatch(const project::Backdrop& backdrop) {
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QLinearGradient gradient(0, 0, 0, 32);
    auto colour = [](const project::Colour& c) {
        return QColor::fromRgbF(static_cast<float>(c.red), static_cast<float>(c.green),
                                static_cast<float>(c.blue));
    };
    gradient.setColorAt(0, colour(backdrop.top));
    gradient.setColorAt(1, colour(backdrop.bottom));
    painter.setPen(QColor(0, 0, 0, 40));
    painter.setBrush(gradient);
    painter.drawRoundedRect(QRectF(1, 1, 30, 30), 7, 7);
    return QIcon(pixmap);
}

QString aspectLabel(project::AspectRatio aspect) {
    switch (aspect) {
        case project::AspectRatio::Original:
            return QObject::tr("Original");
        case project::AspectRatio::Wide16x9:
            return QObject::tr("Widescreen 16:9");
        case project::AspectRatio::Classic4x3:
            return QObject::tr("Standard 4:3");
        case project::AspectRatio::Square1x1:
            return QObject::tr("Square 1:1");
        case project::AspectRatio::Portrait9x16:
            return QObject::tr("Vertical 9:16");
    }
    return {};
}

QString layoutLabel(project::CameraLayout layout) {
    using L = project::CameraLayout;
    switch (layout) {
        case L::TopLeft:
            return QObject::tr("Top left");
        case L::TopRight:
            return QObject::tr("Top right");
        case L::BottomLeft:
            return QObject::tr("Bottom left");
        case L::BottomRight:
            return QObject::tr("Bottom right");
        case L::SideLeft:
            return QObject::tr("Side by side, camera left");
        case L::SideRight:
            return QObject::tr("Side by side, camera right");
        case L::CameraOnly:
            return QObject::tr("Camera only");
        case L::ScreenOnly:
            return QObject::tr("Screen only");
    }
    return {};
}

QString paceLabel(app::DemoPace pace) {
    switch (pace) {
        case app::DemoPace::Calm:
            return QObject::tr("Calm");
        case app::DemoPace::Normal:
            return QObject::tr("Normal");
        case app::DemoPace::Brisk:
            return QObject::tr("Brisk");
    }
    return {};
}

}  // namespace

SettingsPage::SettingsPage(const QString& title, QWidget* parent) : QWidget(parent) {
    setAccessibleName(title);
    m_layout = new QVBoxLayout(this);
    m_layout->setContentsMargins(24, 18, 24, 18);
    m_form = new QFormLayout;
    m_form->setHorizontalSpacing(14);
    m_form->setVerticalSpacing(8);
    m_form->setFieldGrowthPolicy(QFormLayout::FieldsStayAtSizeHint);
    m_form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_form->setFormAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_layout->addLayout(m_form);
}

void SettingsPage::section(const QString& heading) {
    auto* label = new QLabel(heading, this);
    QFont font = label->font();
    font.setWeight(QFont::DemiBold);
    font.setPointSizeF(font.pointSizeF() * 1.1);
    label->setFont(font);
    label->setAccessibleName(heading);
    if (m_form->rowCount() > 0) {
        label->setContentsMargins(0, 14, 0, 0);
    }
    m_form->addRow(label);
}

void SettingsPage::row(const QString& label, QWidget* control) {
    auto* text = new QLabel(label, this);
    text->setBuddy(control);
    m_form->addRow(text, control);
}

// Controls with their own text sit in the field column, under the other controls.
void SettingsPage::row(QWidget* control) { m_form->addRow(QString(), control); }

void SettingsPage::note(const QString& text) {
    auto* label = new QLabel(text, this);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    label->setMaximumWidth(440);
    QFont font = label->font();
    if (font.pointSizeF() > 0) {
        font.setPointSizeF(font.pointSizeF() - 0.5);
    }
    label->setFont(font);
    m_form->addRow(QString(), label);
}

void SettingsPage::finish() { m_layout->addStretch(1); }

SettingsPage* generalPage(SettingsBinder& binder) {
    auto* page = new SettingsPage(QObject::tr("General"));
    page->section(QObject::tr("Library"));
    QWidget* folder =
        binder.folder(prefs::libraryPath, QString::fromStdString(defaultLibraryRoot().string()),
                      QObject::tr("Recordings folder"));
    folder->setMinimumWidth(420);
    page->row(QObject::tr("Recordings folder:"), folder);
    page->note(
        QObject::tr("Quillo uses a new folder the next time it starts. The QUILLO_LIBRARY "
                    "environment variable takes precedence."));
    page->section(QObject::tr("Windows"));
    page->row(
        binder.check(prefs::openAfterRecording, QObject::tr("Open new recordings in the editor")));
    page->row(binder.check(prefs::restoreTabs,
                           QObject::tr("Reopen the previous session's tabs at launch")));
    page->row(binder.check(prefs::showMenuBarIcon, QObject::tr("Show the tray icon")));
    page->finish();
    return page;
}

bool waylandSession() {
    const char* display = std::getenv("WAYLAND_DISPLAY");
    const char* type = std::getenv("XDG_SESSION_TYPE");
    return (display != nullptr && *display != 0) ||
           (type != nullptr && std::string_view(type) == "wayland");
}

SettingsPage* recordingPage(SettingsBinder& binder) {
    auto* page = new SettingsPage(QObject::tr("Recording"));
    page->section(QObject::tr("Capture"));
    QComboBox* shortcut = binder.choice<app::RecordShortcut>(
        prefs::recordShortcut,
        [](app::RecordShortcut value) { return qText(app::shortcutLabel(value)); },
        QObject::tr("Record shortcut"));
    page->row(QObject::tr("Record shortcut:"), shortcut);
    if (waylandSession()) {
        // Wayland gives apps no global shortcuts of their own here.
        page->note(
            QObject::tr("On Wayland, add a keyboard shortcut in your desktop's settings "
                        "that runs: quillo --toggle-recording"));
    }
    page->row(
        QObject::tr("Countdown:"),
        binder.integerChoice(
            prefs::countdown,
            {{QObject::tr("None"), 0},
             {QObject::tr("3 seconds"), 3},
             {QObject::tr("5 seconds"), 5},
             {QObject::tr("10 seconds"), 10}},
            [](int64_t s) { return QObject::tr("%1 seconds").arg(s); }, QObject::tr("Countdown")));
    page->row(
        QObject::tr("Frame rate:"),
        binder.integerChoice(
            prefs::captureFPS,
            {{QObject::tr("24 fps"), 24}, {QObject::tr("30 fps"), 30}, {QObject::tr("60 fps"), 60}},
            [](int64_t fps) { return QObject::tr("%1 fps").arg(fps); }, QObject::tr("Frame rate")));
    page->row(
        QObject::tr("Resolution:"),
        binder.realChoice(
            prefs::captureMaxDimension,
            {{QObject::tr("1080p (1920 px)"), 1920},
             {QObject::tr("1440p (2560 px)"), 2560},
             {QObject::tr("4K (3840 px)"), 3840},
             {QObject::tr("5K (5120 px)"), 5120}},
            [](double px) { return QObject::tr("%1 px").arg(px); }, QObject::tr("Resolution")));
    page->note(
        QObject::tr("Frame rate and resolution apply the next time you choose a window or "
                    "display. Smooth cursor records the pointer separately so the editor "
                    "can smooth, resize, or hide it."));
    page->row(binder.check(prefs::smoothCursor, QObject::tr("Smooth cursor")));
    page->section(QObject::tr("Sound"));
    page->row(binder.check(prefs::systemAudio, QObject::tr("Record the computer's sound")));
    page->row(binder.check(prefs::microphone, QObject::tr("Record the microphone")));
    page->section(QObject::tr("While recording"));
    page->row(binder.check(prefs::stepAside, QObject::tr("Hide Quillo's window while recording")));
    page->row(
        binder.check(prefs::floatingControls, QObject::tr("Show floating recording controls")));
    page->section(QObject::tr("Camera"));
    page->row(binder.check(prefs::cameraEnabled, QObject::tr("Record the camera")));
    page->row(QObject::tr("Camera device:"),
              binder.text(prefs::cameraDevice, QObject::tr("Default camera"),
                          QObject::tr("Camera device")));
    page->finish();
    return page;
}

SettingsPage* editingPage(SettingsBinder& binder) {
    auto* page = new SettingsPage(QObject::tr("Editing"));
    page->section(QObject::tr("New recordings"));
    page->row(binder.check(prefs::autoPolish, QObject::tr("Polish new recordings automatically")));
    page->row(binder.check(prefs::autoZoom, QObject::tr("Zoom in on clicks and typing")));
    page->row(QObject::tr("Zoom scale:"),
              binder.real(prefs::autoZoomScale, 1, 4, 0.1, 1, "×", QObject::tr("Zoom scale")));
    page->row(binder.check(prefs::zoomFollowsCursor, QObject::tr("Zooms follow the pointer")));
    page->row(binder.check(prefs::clickHighlights, QObject::tr("Highlight clicks")));
    page->row(QObject::tr("Canvas shape:"),
              binder.choice<project::AspectRatio>(prefs::defaultAspect, aspectLabel,
                                                  QObject::tr("Canvas shape")));
    page->row(
        binder.check(prefs::checkSensitiveInfo, QObject::tr("Check for sensitive information")));

    page->section(QObject::tr("Backdrop"));
    page->row(binder.check(prefs::backdrop, QObject::tr("Frame recordings on a backdrop")));
    QComboBox* background = binder.integerChoice(
        prefs::backdropBackground,
        [] {
            std::vector<std::pair<QString, int64_t>> choices;
            for (size_t i = 0; i < project::kBackgrounds.size(); ++i) {
                choices.emplace_back(qText(project::kBackgrounds[i].name), static_cast<int64_t>(i));
            }
            return choices;
        }(),
        [](int64_t index) { return QObject::tr("Background %1").arg(index); },
        QObject::tr("Background"));
    for (int i = 0; i < static_cast<int>(project::kBackgrounds.size()); ++i) {
        background->setItemIcon(i, swatch(project::kBackgrounds[static_cast<size_t>(i)]));
    }
    page->row(QObject::tr("Background:"), background);
    page->row(QObject::tr("Padding:"), binder.real(prefs::backdropPadding, 0, 0.25, 0.01, 0, "%",
                                                   QObject::tr("Padding"), 100));
    page->row(QObject::tr("Corner radius:"), binder.real(prefs::backdropCorner, 0, 0.1, 0.01, 0,
                                                         "%", QObject::tr("Corner radius"), 100));
    page->row(binder.check(prefs::backdropShadow, QObject::tr("Drop shadow")));

    page->section(QObject::tr("Cursor"));
    page->row(binder.check(prefs::cursorVisible, QObject::tr("Show the cursor")));
    page->row(QObject::tr("Size:"),
              binder.real(prefs::cursorSize, 0.5, 4, 0.1, 1, "×", QObject::tr("Cursor size")));
    page->row(QObject::tr("Smoothing:"), binder.real(prefs::cursorSmoothing, 0, 1, 0.05, 2, "s",
                                                     QObject::tr("Cursor smoothing")));
    page->row(
        binder.check(prefs::cursorHideWhenIdle, QObject::tr("Hide the cursor when it rests")));

    page->section(QObject::tr("Dead time"));
    page->row(binder.check(prefs::deadTimeAuto, QObject::tr("Remove dead time automatically")));
    page->row(QObject::tr("Shortest pause:"), binder.real(prefs::deadTimeMinimum, 0.5, 60, 0.5, 1,
                                                          "s", QObject::tr("Shortest pause")));
    page->row(QObject::tr("Action:"),
              binder.choice<editor::DeadTimeAction>(
                  prefs::deadTimeAction,
                  [](editor::DeadTimeAction a) { return qText(editor::deadTimeActionLabel(a)); },
                  QObject::tr("Dead time action")));
    page->row(QObject::tr("Speed-up:"),
              binder.real(prefs::deadTimeSpeed, 2, 8, 1, 0, "×", QObject::tr("Speed-up")));

    page->section(QObject::tr("Captions"));
    page->row(binder.check(prefs::autoCaptions, QObject::tr("Caption new recordings")));
    std::vector<std::pair<QString, QString>> languages = {
        {QObject::tr("System language"), QString()}};
    for (const char* locale : {"en_US", "en_GB", "de_DE", "fr_FR", "es_ES", "it_IT", "pt_BR",
                               "nl_NL", "ja_JP", "zh_CN"}) {
        languages.emplace_back(
            QString::fromStdString(captions::CaptionTranscriber::languageName(locale)), locale);
    }
    page->row(QObject::tr("Language:"), binder.textChoice(prefs::captionLanguage, languages, false,
                                                          QObject::tr("Caption language")));
    page->row(QObject::tr("Text size:"), binder.real(prefs::captionSize, 0.5, 2.5, 0.1, 1, "×",
                                                     QObject::tr("Caption text size")));
    page->row(QObject::tr("Position:"), binder.choice<project::CaptionPosition>(
                                            prefs::captionPosition,
                                            [](project::CaptionPosition p) {
                                                return p == project::CaptionPosition::Top
                                                           ? QObject::tr("Top")
                                                           : QObject::tr("Bottom");
                                            },
                                            QObject::tr("Caption position")));
    page->row(QObject::tr("Background:"), binder.choice<project::CaptionBackground>(
                                              prefs::captionBackground,
                                              [](project::CaptionBackground b) {
                                                  return b == project::CaptionBackground::Pill
                                                             ? QObject::tr("Dark pill")
                                                             : QObject::tr("None (shadowed text)");
                                              },
                                              QObject::tr("Caption background")));
    page->row(QObject::tr("Line length:"),
              binder.integer(prefs::captionLineLength, 12, 80, QObject::tr("characters"),
                             QObject::tr("Caption line length")));
    page->row(binder.check(prefs::captionHighlightWords,
                           QObject::tr("Highlight each word as it's spoken")));

    page->section(QObject::tr("Camera"));
    page->row(QObject::tr("Layout:"),
              binder.choice<project::CameraLayout>(prefs::cameraLayout, layoutLabel,
                                                   QObject::tr("Camera layout")));
    page->row(QObject::tr("Shape:"), binder.choice<project::CameraShape>(
                                         prefs::cameraShape,
                                         [](project::CameraShape s) {
                                             return s == project::CameraShape::Circle
                                                        ? QObject::tr("Circle")
                                                        : QObject::tr("Rounded rectangle");
                                         },
                                         QObject::tr("Camera shape")));
    page->row(binder.check(prefs::cameraMirror, QObject::tr("Mirror the camera")));

    page->section(QObject::tr("Export"));
    page->row(QObject::tr("Preset:"),
              binder.choice<render::ExportPreset>(
                  prefs::exportPreset,
                  [](render::ExportPreset p) {
                      return qText(render::presetInfo(p).title) + " — " +
                             QString::fromStdString(render::presetDetail(p));
                  },
                  QObject::tr("Export preset")));
    page->row(
        binder.check(prefs::exportFollows, QObject::tr("Reframed exports follow the action")));
    page->row(
        QObject::tr("GIF frame rate:"),
        binder.integer(prefs::gifFPS, 5, 30, QObject::tr("fps"), QObject::tr("GIF frame rate")));
    page->finish();
    return page;
}

SettingsPage* agentsPage(SettingsBinder& binder) {
    auto* page = new SettingsPage(QObject::tr("Agents"));
    page->section(QObject::tr("Agent access"));
    page->row(binder.check(prefs::agentServerEnabled,
                           QObject::tr("Let agents control Quillo (MCP server)")));
    page->note(
        QObject::tr("Agents such as coding assistants connect through “quillo --mcp” to "
                    "record, edit and export."));
    page->section(QObject::tr("Scripted demos"));
    page->row(QObject::tr("Pace:"),
              binder.choice<app::DemoPace>(prefs::demoPace, paceLabel, QObject::tr("Demo pace")));
    page->row(binder.check(prefs::demoRehearse,
                           QObject::tr("Rehearse a scripted demo before recording")));
    page->finish();
    return page;
}

SettingsPage* assistantPage(SettingsBinder& binder) {
    auto* page = new SettingsPage(QObject::tr("Assistant"));
    page->section(QObject::tr("Assistant"));
    page->row(QObject::tr("Engine:"),
              binder.textChoice(prefs::assistantEngine,
                                {{QObject::tr("Codex"), QString()},
                                 {QObject::tr("Claude Code"), QStringLiteral("claude")}},
                                false, QObject::tr("Assistant engine")));
    std::vector<std::pair<QString, QString>> efforts = {{QObject::tr("Default"), QString()},
                                                        {QObject::tr("Low"), "low"},
                                                        {QObject::tr("Medium"), "medium"},
                                                        {QObject::tr("High"), "high"}};
    page->row(QObject::tr("Codex:"), new CodexChoice(binder.preferences()));
    page->row(
        QObject::tr("Codex model:"),
        binder.text(prefs::assistantModel, QObject::tr("Default"), QObject::tr("Codex model")));
    page->row(QObject::tr("Codex effort:"),
              binder.textChoice(prefs::assistantEffort, efforts, true,
                                QObject::tr("Codex reasoning effort")));
    page->row(
        QObject::tr("Claude Code model:"),
        binder.text(prefs::claudeModel, QObject::tr("Default"), QObject::tr("Claude Code model")));
    page->row(
        QObject::tr("Claude Code effort:"),
        binder.textChoice(prefs::claudeEffort, efforts, true, QObject::tr("Claude Code effort")));
    page->row(binder.check(prefs::assistantWrites,
                           QObject::tr("Let the assistant change files in a recording's folder")));
    page->row(binder.check(prefs::assistantOpen, QObject::tr("Show the assistant panel")));
    page->finish();
    return page;
}

}  // namespace quillo::views
