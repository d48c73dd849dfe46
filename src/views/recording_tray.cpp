#include "recording_tray.h"

#include <QPainter>
#include <QPainterPath>

namespace quillo::views {

namespace {

QString qText(const std::string& text) { return QString::fromStdString(text); }

QPixmap drawn(RecordingTray::Look look, int size) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF box(size * 0.06, size * 0.06, size * 0.88, size * 0.88);
    switch (look) {
        case RecordingTray::Look::Idle: {
            // A lens in a rounded frame: Quillo at rest.
            painter.setPen(Qt::NoPen);
            painter.setBrush(QColor(0x6d, 0x4a, 0xff));
            painter.drawRoundedRect(box, size * 0.22, size * 0.22);
            painter.setBrush(Qt::white);
            painter.drawEllipse(box.center(), size * 0.24, size * 0.24);
            painter.setBrush(QColor(0xff, 0x4d, 0x6d));
            painter.drawEllipse(box.center(), size * 0.13, size * 0.13);
            break;
        }
        case RecordingTray::Look::Recording: {
            painter.setPen(QPen(QColor(0xd9, 0x1e, 0x36), size * 0.08));
            painter.setBrush(Qt::white);
            painter.drawEllipse(box.adjusted(size * 0.04, size * 0.04, -size * 0.04, -size * 0.04));
            painter.setPen(Qt::NoPen);
            painter.setBrush(QColor(0xe5, 0x22, 0x3c));
            painter.drawEllipse(box.center(), size * 0.24, size * 0.24);
            break;
        }
        case RecordingTray::Look::Paused: {
            painter.setPen(Qt::NoPen);
            painter.setBrush(QColor(0xf0, 0x9a, 0x1a));
            painter.drawEllipse(box);
            painter.setBrush(Qt::white);
            const double bar = size * 0.11;
            const double height = size * 0.38;
            const double top = box.center().y() - height / 2;
            painter.drawRoundedRect(QRectF(box.center().x() - bar * 1.6, top, bar, height), 1, 1);
            painter.drawRoundedRect(QRectF(box.center().x() + bar * 0.6, top, bar, height), 1, 1);
            break;
        }
    }
    return pixmap;
}

}  // namespace

QIcon RecordingTray::picture(Look look) {
    QIcon icon;
    for (int size : {16, 22, 24, 32, 48, 64}) {
        icon.addPixmap(drawn(look, size));
    }
    return icon;
}

RecordingTray::RecordingTray(app::StudioModel& studio, Hooks hooks, QObject* parent)
    : QObject(parent), m_studio(studio), m_hooks(std::move(hooks)) {
    m_menu.setAccessibleName(tr("Quillo"));
    m_source = m_menu.addAction(QString());
    m_source->setEnabled(false);
    m_menu.addSeparator();
    m_record = m_menu.addAction(QString(), this, [this] { m_studio.toggleRecording(); });
    m_pause = m_menu.addAction(QString(), this, [this] { m_studio.togglePause(); });
    m_menu.addSeparator();
    m_menu.addAction(tr("Record an App Window…"), this, [this] {
        if (m_hooks.chooseSource) {
            m_hooks.chooseSource(true);
        }
    });
    m_menu.addAction(tr("Record an Entire Display…"), this, [this] {
        if (m_hooks.chooseSource) {
            m_hooks.chooseSource(false);
        }
    });
    m_menu.addSeparator();
    m_menu.addAction(tr("Settings"), this, [this] {
        if (m_hooks.openSettings) {
            m_hooks.openSettings();
        }
    });
    m_menu.addAction(tr("Open Quillo"), this, [this] {
        if (m_hooks.showStudio) {
            m_hooks.showStudio();
        }
    });
    m_menu.addAction(tr("Quit Quillo"), this, [this] {
        if (m_hooks.quit) {
            m_hooks.quit();
        }
    });
    m_icon.setContextMenu(&m_menu);
    m_icon.setIcon(picture(Look::Idle));
    // A left click opens the studio; the menu is on the right button.
    connect(&m_icon, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason why) {
                if (why == QSystemTrayIcon::Trigger && m_hooks.showStudio) {
                    m_hooks.showStudio();
                }
            });
    m_changed = m_studio.changed.connect([this] { update(); });
    m_observer = m_studio.preferences().addObserver([this] { applyVisibility(); });
    update();
    applyVisibility();
}

RecordingTray::~RecordingTray() {
    m_studio.changed.disconnect(m_changed);
    m_studio.preferences().removeObserver(m_observer);
}

void RecordingTray::applyVisibility() {
    m_icon.setVisible(m_studio.preferences().get(app::prefs::showMenuBarIcon));
}

void RecordingTray::update() {
    using app::RecordingState;
    const RecordingState state = m_studio.state();
    const bool rolling = state == RecordingState::Starting || state == RecordingState::Recording;
    const auto& source = m_studio.source();
    m_source->setText(source ? tr("Source: %1").arg(qText(source->name))
                             : tr("No source selected"));
    m_record->setText(rolling ? tr("Stop Recording") : tr("Start Recording"));
    m_record->setEnabled(state != RecordingState::Saving);
    m_pause->setVisible(state == RecordingState::Recording);
    m_pause->setText(m_studio.paused() ? tr("Resume Recording") : tr("Pause Recording"));

    Look look = Look::Idle;
    QString tip = tr("Quillo");
    if (state == RecordingState::Recording) {
        look = m_studio.paused() ? Look::Paused : Look::Recording;
        tip = (m_studio.paused() ? tr("Quillo: paused at %1") : tr("Quillo: recording %1"))
                  .arg(qText(m_studio.menuBarElapsed()));
    } else if (state == RecordingState::CountingDown) {
        tip = tr("Quillo: starting in %1").arg(m_studio.countdownValue());
    } else if (state == RecordingState::Saving) {
        tip = tr("Quillo: saving the recording");
    }
    if (look != m_look) {
        m_look = look;
        m_icon.setIcon(picture(look));
    }
    if (m_icon.toolTip() != tip) {
        m_icon.setToolTip(tip);
    }
}

}  // namespace quillo::views
