#include "camera_control.h"

#include <QActionGroup>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>

#include "app/studio_model.h"
#include "capture/camera_recorder.h"

namespace quillo::views {

namespace {

constexpr int kInterval = 100;      // ms: ten looks a second
constexpr int kIdleInterval = 400;  // ms: while the camera is off

// A camera body with its lens, in the text colour.
QIcon cameraIcon(const QColor& colour) {
    QPixmap pixmap(40, 40);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(colour, 3));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(4, 11, 24, 19), 4, 4);
    QPainterPath lens;
    lens.moveTo(28, 17);
    lens.lineTo(36, 12);
    lens.lineTo(36, 29);
    lens.lineTo(28, 24);
    lens.closeSubpath();
    painter.setBrush(colour);
    painter.drawPath(lens);
    painter.end();
    return QIcon(pixmap);
}

}  // namespace

CameraBubble::CameraBubble(app::StudioModel& studio, QWidget* parent)
    : QWidget(parent), m_studio(studio) {
    setFixedSize(sizeHint());
    setAccessibleName(tr("Camera preview"));
    m_timer.setInterval(kInterval);
    connect(&m_timer, &QTimer::timeout, this, [this] { tick(); });
    setVisible(false);
    follow();
}

void CameraBubble::follow() {
    const bool running = m_studio.camera().running();
    if (isHidden() == running) {
        setVisible(running);
    }
    // While the camera is off the timer only watches for it to start (the setting may be
    // switched anywhere: here, in the settings, in the file).
    m_timer.setInterval(running ? kInterval : kIdleInterval);
    if (!m_timer.isActive()) {
        m_timer.start();
    }
    if (running) {
        tick();
    } else if (m_picture) {
        m_picture.reset();
        update();
    }
}

void CameraBubble::tick() {
    const bool running = m_studio.camera().running();
    if (running == isHidden()) {
        follow();
        return;
    }
    if (!running || (window() && window()->isMinimized())) {
        return;
    }
    auto latest = m_studio.camera().preview();
    if (latest != m_picture) {
        m_picture = std::move(latest);
        update();
    }
}

void CameraBubble::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF circle = QRectF(rect()).adjusted(1, 1, -1, -1);
    QPainterPath clip;
    clip.addEllipse(circle);
    painter.fillPath(clip, palette().color(QPalette::Dark));
    if (m_picture && m_picture->width > 0 && m_picture->height > 0) {
        const QImage image(m_picture->bgra.data(), m_picture->width, m_picture->height,
                           m_picture->width * 4, QImage::Format_ARGB32_Premultiplied);
        // Scaled to fill the circle, the longer side cropped, mirrored as recordings will be.
        const qreal scale =
            std::max(circle.width() / m_picture->width, circle.height() / m_picture->height);
        const QSizeF shown(m_picture->width * scale, m_picture->height * scale);
        QRectF target(circle.center() - QPointF(shown.width() / 2, shown.height() / 2), shown);
        painter.save();
        painter.setClipPath(clip);
        if (m_studio.preferences().get(app::prefs::cameraMirror)) {
            painter.translate(circle.center().x() * 2, 0);
            painter.scale(-1, 1);
        }
        painter.drawImage(target, image);
        painter.restore();
    }
    QColor ring = palette().color(QPalette::Text);
    ring.setAlpha(60);
    painter.setPen(QPen(ring, 1));
    painter.setBrush(Qt::NoBrush);
    painter.drawEllipse(circle);
}

CameraControl::CameraControl(app::StudioModel& studio, QWidget* parent)
    : QToolButton(parent), m_studio(studio) {
    setText(tr("Camera"));
    setAccessibleName(tr("Camera"));
    setToolTip(tr("Record the camera beside the screen"));
    setCheckable(true);
    setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    setIcon(cameraIcon(palette().color(QPalette::ButtonText)));
    setIconSize(QSize(20, 20));
    setPopupMode(QToolButton::MenuButtonPopup);
    setMenu(new QMenu(tr("Cameras"), this));
    connect(menu(), &QMenu::aboutToShow, this, [this] { refreshDevices(); });
    connect(this, &QToolButton::toggled, this, [this](bool on) {
        app::Preferences& preferences = m_studio.preferences();
        if (preferences.get(app::prefs::cameraEnabled) != on) {
            (void)preferences.set(app::prefs::cameraEnabled, on);
        }
    });
    refreshDevices();
    m_observer = m_studio.preferences().addObserver([this] { sync(); });
    sync();
}

CameraControl::~CameraControl() { m_studio.preferences().removeObserver(m_observer); }

void CameraControl::refreshDevices() {
    QMenu* devices = menu();
    devices->clear();
    auto* group = new QActionGroup(devices);
    const std::optional<std::string> chosen = m_studio.preferences().get(app::prefs::cameraDevice);
    auto add = [&](const QString& label, const std::optional<std::string>& id) {
        QAction* action = devices->addAction(label);
        action->setCheckable(true);
        action->setChecked(chosen == id);
        group->addAction(action);
        connect(action, &QAction::triggered, this, [this, id] {
            app::Preferences& preferences = m_studio.preferences();
            (void)preferences.set(app::prefs::cameraDevice, id);
            if (!preferences.get(app::prefs::cameraEnabled)) {
                (void)preferences.set(app::prefs::cameraEnabled, true);
            }
        });
    };
    add(tr("Default camera"), std::nullopt);
    const auto attached = capture::CameraRecorder::devices();
    if (!attached.empty()) {
        devices->addSeparator();
    }
    for (const auto& device : attached) {
        add(QString::fromStdString(device.name), device.id);
    }
    if (attached.empty()) {
        devices->addAction(tr("No camera found"))->setEnabled(false);
    }
}

void CameraControl::sync() {
    const bool on = m_studio.preferences().get(app::prefs::cameraEnabled);
    if (isChecked() != on) {
        QSignalBlocker quiet(this);
        setChecked(on);
    }
    setEnabled(m_studio.state() == app::RecordingState::Idle);
}

}  // namespace quillo::views
