#include "recording_bar.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

#include "camera_control.h"
#include "source_list.h"
#include "source_picker.h"
#include "source_preview.h"

namespace quillo::views {

namespace {

// The record button's look in each mode; the rest of the bar keeps the desktop's style.
const char* const kRecordStyle = R"(
QPushButton#recordButton {
    border: none; border-radius: 17px; padding: 0 20px 0 16px; min-height: 34px;
    font-weight: 600; color: white; background: #d6383f;
}
QPushButton#recordButton:hover { background: #c22f36; }
QPushButton#recordButton:pressed { background: #a8262d; }
QPushButton#recordButton:focus { border: 2px solid #8fb8ef; }
QPushButton#recordButton[mode="stop"] { background: #2d3139; }
QPushButton#recordButton[mode="stop"]:hover { background: #3b404a; }
QPushButton#recordButton[mode="cancel"] {
    background: palette(button); color: palette(button-text); border: 1px solid palette(mid);
}
QPushButton#recordButton:disabled { background: #9aa0a8; color: #f4f4f4; }
)";

// A white dot (record) or square (stop) for the button.
QIcon markIcon(bool square) {
    QPixmap pixmap(32, 32);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(Qt::white);
    if (square) {
        painter.drawRoundedRect(QRectF(8, 8, 16, 16), 3, 3);
    } else {
        painter.drawEllipse(QRectF(6, 6, 20, 20));
    }
    painter.end();
    return QIcon(pixmap);
}

QString sizeText(Size size) {
    return QStringLiteral("%1 × %2")
        .arg(static_cast<int>(size.width))
        .arg(static_cast<int>(size.height));
}

}  // namespace

RecordingBar::RecordingBar(app::StudioModel& studio, QWidget* parent)
    : QWidget(parent), m_studio(studio) {
    setAccessibleName(tr("Recording"));
    setAutoFillBackground(false);

    m_record = new QAction(tr("Record"), this);
    connect(m_record, &QAction::triggered, this, [this] { m_studio.toggleRecording(); });
    m_choose = new QAction(tr("Choose Source…"), this);
    connect(m_choose, &QAction::triggered, this, [this] { openPicker(); });

    m_preview = new SourcePreview(studio, this);
    m_sourceButton = new QPushButton(this);
    m_sourceButton->setAccessibleName(tr("Choose Source"));
    m_sourceButton->setIconSize(QSize(20, 20));
    m_sourceButton->setFlat(false);
    m_sourceButton->setMinimumWidth(220);
    m_sourceButton->setMaximumWidth(460);
    m_sourceButton->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    m_sourceButton->setStyleSheet("QPushButton { text-align: left; padding: 5px 10px; }");
    connect(m_sourceButton, &QPushButton::clicked, this, [this] { openPicker(); });
    m_sourceDetail = new QLabel(this);
    m_sourceDetail->setForegroundRole(QPalette::PlaceholderText);
    m_sourceDetail->setAccessibleName(tr("Source size"));
    m_elapsed = new QLabel(this);
    m_elapsed->setAccessibleName(tr("Recording time"));
    QFont clock = m_elapsed->font();
    clock.setPointSizeF(clock.pointSizeF() * 1.25);
    clock.setWeight(QFont::DemiBold);
    clock.setStyleHint(QFont::Monospace);
    m_elapsed->setFont(clock);
    m_camera = new CameraControl(studio, this);
    m_cameraBubble = new CameraBubble(studio, this);
    m_recordButton = new QPushButton(this);
    m_recordButton->setObjectName("recordButton");
    m_recordButton->setStyleSheet(kRecordStyle);
    m_recordButton->setIconSize(QSize(16, 16));
    m_recordButton->setMinimumWidth(140);
    m_recordButton->setCursor(Qt::PointingHandCursor);
    connect(m_recordButton, &QPushButton::clicked, m_record, &QAction::trigger);

    auto* source = new QVBoxLayout;
    source->setSpacing(4);
    source->addStretch(1);
    source->addWidget(m_sourceButton);
    source->addWidget(m_sourceDetail);
    source->addStretch(1);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(14, 10, 16, 10);
    layout->setSpacing(14);
    layout->addWidget(m_preview);
    layout->addLayout(source, 1);
    layout->addStretch(0);
    layout->addWidget(m_elapsed);
    layout->addWidget(m_cameraBubble);
    layout->addWidget(m_camera);
    layout->addWidget(m_recordButton);

    m_changed = m_studio.changed.connect([this] { sync(); });
    sync();
}

RecordingBar::~RecordingBar() { m_studio.changed.disconnect(m_changed); }

void RecordingBar::openPicker() {
    if (m_studio.state() != app::RecordingState::Idle) {
        return;
    }
    if (!m_picker) {
        m_picker = new SourcePicker(m_studio, window());
    }
    m_picker->show();
    m_picker->raise();
    m_picker->activateWindow();
}

void RecordingBar::sync() {
    using app::RecordingState;
    RecordingState state = m_studio.state();
    bool idle = state == RecordingState::Idle;

    const auto& source = m_studio.source();
    QString name;
    QString detail;
    QIcon icon;
    if (!source) {
        name = tr("Choose a Window or Display…");
        detail = tr("Nothing is shared yet");
    } else if (source->kind == "window") {
        QString app = QString::fromStdString(source->detail);
        QString title = QString::fromStdString(source->name);
        name = app.isEmpty() ? title : app + " — " + title;
        icon = appIcon(app.isEmpty() ? title : app);
        detail = tr("Window · %1").arg(sizeText(m_studio.sourceSize()));
    } else {
        name = tr("Entire Display");
        icon = displayIcon();
        detail = tr("Display · %1").arg(sizeText(m_studio.sourceSize()));
    }
    QString shown = m_sourceButton->fontMetrics().elidedText(name + "  ▾", Qt::ElideMiddle, 420);
    if (m_sourceButton->text() != shown) {
        m_sourceButton->setText(shown);
        m_sourceButton->setIcon(icon);
        m_sourceButton->setToolTip(name);
    }
    m_sourceButton->setAccessibleDescription(source ? name : QString());
    m_sourceDetail->setText(detail);
    m_sourceButton->setEnabled(idle && !m_studio.choosing());
    m_choose->setEnabled(idle && !m_studio.choosing());

    QString text;
    QString mode = "record";
    switch (state) {
        case RecordingState::Idle:
            text = tr("Record");
            break;
        case RecordingState::CountingDown:
            text = tr("Cancel Countdown");
            mode = "cancel";
            break;
        case RecordingState::Starting:
        case RecordingState::Recording:
            text = tr("Stop");
            mode = "stop";
            break;
        case RecordingState::Saving:
            text = tr("Saving…");
            mode = "stop";
            break;
    }
    if (m_recordButton->text() != text) {
        m_recordButton->setText(text);
        m_recordButton->setAccessibleName(text);
        m_recordButton->setIcon(mode == "cancel" ? QIcon() : markIcon(mode == "stop"));
        m_recordButton->setProperty("mode", mode);
        m_recordButton->style()->unpolish(m_recordButton);
        m_recordButton->style()->polish(m_recordButton);
    }
    m_recordButton->setEnabled(state != RecordingState::Saving);
    m_record->setEnabled(state != RecordingState::Saving);

    bool clock = state == RecordingState::Recording;
    m_elapsed->setVisible(clock);
    if (clock) {
        QString elapsed = QString::fromStdString(m_studio.menuBarElapsed());
        m_elapsed->setText(m_studio.paused() ? tr("%1 paused").arg(elapsed) : elapsed);
    }
    m_preview->follow();
    m_preview->update();
    m_camera->sync();
    m_cameraBubble->follow();
}

void RecordingBar::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    QColor window = palette().color(QPalette::Window);
    QColor base = palette().color(QPalette::Base);
    painter.fillRect(rect(), QColor::fromRgbF((window.redF() + base.redF()) / 2,
                                              (window.greenF() + base.greenF()) / 2,
                                              (window.blueF() + base.blueF()) / 2));
    QColor line = palette().color(QPalette::Text);
    line.setAlpha(30);
    painter.fillRect(QRect(0, height() - 1, width(), 1), line);
}

}  // namespace quillo::views
