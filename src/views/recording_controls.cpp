#include "recording_controls.h"

#include <algorithm>
#include <array>

#include <QBitmap>
#include <QFrame>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>

#include "base/clock.h"
#include "overlay_window.h"

namespace quillo::views {

namespace {

constexpr int kHeight = 44;
constexpr int kEdgeGap = 24;  // from the screen's edge
constexpr int kTickMs = 250;
const QColor kPill(24, 24, 28, 235);
const QColor kOpaquePill(30, 30, 35);
const QColor kRed(255, 69, 88);
const QColor kAmber(245, 166, 35);

enum class Glyph { Pause, Resume, Stop, Discard, Dot, PausedDot };

QIcon glyph(Glyph kind) {
    constexpr int kSize = 20;
    constexpr double kScale = 2;
    QPixmap pixmap(static_cast<int>(kSize * kScale), static_cast<int>(kSize * kScale));
    pixmap.setDevicePixelRatio(kScale);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    const QColor white(245, 245, 247);
    switch (kind) {
        case Glyph::Pause:
            painter.setBrush(white);
            painter.drawRoundedRect(QRectF(5, 4, 3.6, 12), 1.2, 1.2);
            painter.drawRoundedRect(QRectF(11.4, 4, 3.6, 12), 1.2, 1.2);
            break;
        case Glyph::Resume: {
            QPainterPath path;
            path.moveTo(6, 3.8);
            path.lineTo(16, 10);
            path.lineTo(6, 16.2);
            path.closeSubpath();
            painter.setBrush(white);
            painter.setPen(QPen(white, 1.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
            painter.drawPath(path);
            break;
        }
        case Glyph::Stop:
            painter.setBrush(kRed);
            painter.drawRoundedRect(QRectF(4.5, 4.5, 11, 11), 2.5, 2.5);
            break;
        case Glyph::Discard: {
            QPen pen(white, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
            painter.setPen(pen);
            painter.setBrush(Qt::NoBrush);
            painter.drawLine(QPointF(3.8, 5.5), QPointF(16.2, 5.5));
            painter.drawLine(QPointF(8, 5.5), QPointF(8.6, 3.3));
            painter.drawLine(QPointF(8.6, 3.3), QPointF(11.4, 3.3));
            painter.drawLine(QPointF(11.4, 3.3), QPointF(12, 5.5));
            QPainterPath can;
            can.moveTo(5.4, 5.5);
            can.lineTo(6.3, 16.4);
            can.lineTo(13.7, 16.4);
            can.lineTo(14.6, 5.5);
            painter.drawPath(can);
            painter.drawLine(QPointF(8.6, 8.5), QPointF(8.8, 13.6));
            painter.drawLine(QPointF(11.4, 8.5), QPointF(11.2, 13.6));
            break;
        }
        case Glyph::Dot:
        case Glyph::PausedDot:
            painter.setBrush(kind == Glyph::Dot ? kRed : kAmber);
            painter.drawEllipse(QPointF(10, 10), 5, 5);
            break;
    }
    return QIcon(pixmap);
}

QToolButton* button(QWidget* parent, const QString& name, const QIcon& icon) {
    auto* made = new QToolButton(parent);
    made->setText(name);
    made->setAccessibleName(name);
    made->setToolTip(name);
    made->setIcon(icon);
    made->setIconSize(QSize(20, 20));
    made->setFixedSize(32, 32);
    made->setFocusPolicy(Qt::NoFocus);
    made->setCursor(Qt::PointingHandCursor);
    return made;
}

QToolButton* textButton(QWidget* parent, const QString& name, const char* objectName) {
    auto* made = new QToolButton(parent);
    made->setObjectName(objectName);
    made->setText(name);
    made->setAccessibleName(name);
    made->setToolButtonStyle(Qt::ToolButtonTextOnly);
    made->setFixedHeight(30);
    made->setFocusPolicy(Qt::NoFocus);
    made->setCursor(Qt::PointingHandCursor);
    return made;
}

const char* kStyle = R"(
QLabel { color: #f5f5f7; }
QLabel#clock { font-size: 15px; font-weight: 600; }
QLabel#question { font-size: 13px; font-weight: 600; }
QToolButton { border: none; border-radius: 8px; color: #f5f5f7; background: transparent; }
QToolButton:hover { background: rgba(255, 255, 255, 30); }
QToolButton:pressed { background: rgba(255, 255, 255, 55); }
QToolButton#keep { background: rgba(255, 255, 255, 36); padding: 0 12px; font-weight: 600; }
QToolButton#keep:hover { background: rgba(255, 255, 255, 60); }
QToolButton#confirm { background: #e5334a; padding: 0 12px; font-weight: 600; }
QToolButton#confirm:hover { background: #f04a5f; }
)";

}  // namespace

RecordingControls::RecordingControls(app::StudioModel& studio) : m_studio(studio) {
    setObjectName("recordingControls");
    setWindowTitle(tr("Recording controls"));
    setAccessibleName(tr("Recording controls"));
    makeOverlayWindow(*this, false);
    m_blends = desktopBlends();
    setStyleSheet(kStyle);
    setCursor(Qt::OpenHandCursor);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(22, 6, 6, 6);
    layout->setSpacing(0);

    m_controls = new QWidget(this);
    auto* controls = new QHBoxLayout(m_controls);
    controls->setContentsMargins(0, 0, 0, 0);
    controls->setSpacing(2);
    auto* dot = new QLabel(m_controls);
    dot->setObjectName("dot");
    dot->setAccessibleName(tr("Recording"));
    dot->setPixmap(glyph(Glyph::Dot).pixmap(QSize(20, 20)));
    m_clock = new QLabel(clock(0).c_str(), m_controls);
    m_clock->setObjectName("clock");
    m_clock->setAccessibleName(tr("Elapsed time"));
    m_clock->setMinimumWidth(46);
    m_pause = button(m_controls, tr("Pause Recording"), glyph(Glyph::Pause));
    m_stop = button(m_controls, tr("Stop Recording"), glyph(Glyph::Stop));
    m_discard = button(m_controls, tr("Discard Recording"), glyph(Glyph::Discard));
    auto* divider = new QFrame(m_controls);
    divider->setFixedSize(1, 20);
    divider->setStyleSheet("background: rgba(255, 255, 255, 40);");
    controls->addWidget(dot);
    controls->addSpacing(4);
    controls->addWidget(m_clock);
    controls->addSpacing(4);
    controls->addWidget(divider);
    controls->addSpacing(6);
    controls->addWidget(m_pause);
    controls->addWidget(m_stop);
    controls->addWidget(m_discard);
    layout->addWidget(m_controls);

    m_question = new QWidget(this);
    auto* question = new QHBoxLayout(m_question);
    question->setContentsMargins(0, 0, 0, 0);
    question->setSpacing(8);
    auto* text = new QLabel(tr("Discard this recording?"), m_question);
    text->setObjectName("question");
    m_keep = textButton(m_question, tr("Keep Recording"), "keep");
    m_confirm = textButton(m_question, tr("Discard"), "confirm");
    question->addWidget(text);
    question->addSpacing(6);
    question->addWidget(m_keep);
    question->addWidget(m_confirm);
    layout->addWidget(m_question);
    m_question->hide();

    connect(m_pause, &QToolButton::clicked, this, [this] { m_studio.togglePause(); });
    connect(m_stop, &QToolButton::clicked, this, [this] { m_studio.stop(); });
    connect(m_discard, &QToolButton::clicked, this, [this] { ask(true); });
    connect(m_keep, &QToolButton::clicked, this, [this] { ask(false); });
    connect(m_confirm, &QToolButton::clicked, this, [this] {
        ask(false);
        m_studio.discard();
    });
    m_tick.setInterval(kTickMs);
    connect(&m_tick, &QTimer::timeout, this, &RecordingControls::follow);
    m_changed = m_studio.changed.connect([this] { follow(); });
    follow();
    reshape();
}

RecordingControls::~RecordingControls() { m_studio.changed.disconnect(m_changed); }

void RecordingControls::follow() {
    m_clock->setText(QString::fromStdString(clock(m_studio.elapsed(monotonicSeconds()))));
    m_clock->setAccessibleDescription(m_clock->text());
    bool paused = m_studio.paused();
    if (paused != m_paused) {
        m_paused = paused;
        QString name = paused ? tr("Resume Recording") : tr("Pause Recording");
        m_pause->setText(name);
        m_pause->setAccessibleName(name);
        m_pause->setToolTip(name);
        m_pause->setIcon(glyph(paused ? Glyph::Resume : Glyph::Pause));
        findChild<QLabel*>("dot")->setPixmap(
            glyph(paused ? Glyph::PausedDot : Glyph::Dot).pixmap(QSize(20, 20)));
    }
    if (m_asking && m_studio.state() != app::RecordingState::Recording) {
        ask(false);
    }
}

void RecordingControls::ask(bool on) {
    m_asking = on;
    m_controls->setVisible(!on);
    m_question->setVisible(on);
    reshape();
}

// The pill's size follows its content; without a compositing manager the window is cut to the
// rounded shape.
void RecordingControls::reshape() {
    QPoint centre = geometry().center();
    bool shown = isVisible();
    adjustSize();
    setFixedSize(sizeHint().width(), kHeight);
    if (shown) {
        move(centre.x() - width() / 2, y());
    }
    if (!m_blends) {
        QBitmap shape(size());
        shape.fill(Qt::color0);
        QPainter painter(&shape);
        painter.setRenderHint(QPainter::Antialiasing, false);
        painter.setPen(Qt::NoPen);
        painter.setBrush(Qt::color1);
        painter.drawRoundedRect(rect(), kHeight / 2.0, kHeight / 2.0);
        painter.end();
        setMask(shape);
    }
}

QPoint RecordingControls::defaultPlace(const QRect& screen, const QRect& source) const {
    const int w = width();
    const int h = height();
    const int middleX = screen.center().x() - w / 2;
    const int middleY = screen.center().y() - h / 2;
    const std::array<QPoint, 6> spots{
        QPoint(middleX, screen.bottom() - kEdgeGap - h),
        QPoint(middleX, screen.top() + kEdgeGap),
        QPoint(screen.left() + kEdgeGap, screen.bottom() - kEdgeGap - h),
        QPoint(screen.right() - kEdgeGap - w, screen.bottom() - kEdgeGap - h),
        QPoint(screen.left() + kEdgeGap, middleY),
        QPoint(screen.right() - kEdgeGap - w, middleY),
    };
    for (const QPoint& spot : spots) {
        if (!QRect(spot, size()).intersects(source)) {
            return spot;
        }
    }
    return spots.front();  // a whole display: it is left out of the picture anyway
}

void RecordingControls::present(const QRect& source) {
    follow();
    reshape();
    QRect screen = screenAreaFor(source);
    QPoint place = defaultPlace(screen, source);
    if (m_placed) {
        // Where the user put it, kept on a screen that still exists.
        place = *m_placed;
        QScreen* on = QGuiApplication::screenAt(QRect(place, size()).center());
        QRect area = on != nullptr ? on->geometry() : screen;
        place.setX(std::clamp(place.x(), area.left(), area.right() - width()));
        place.setY(std::clamp(place.y(), area.top(), area.bottom() - height()));
    }
    move(place);
    if (!isVisible()) {
        show();
    }
    m_tick.start();
}

void RecordingControls::hideEvent(QHideEvent* event) {
    m_tick.stop();
    if (m_asking) {
        ask(false);
    }
    QWidget::hideEvent(event);
}

void RecordingControls::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(m_blends ? QPen(QColor(255, 255, 255, 28), 1) : Qt::NoPen);
    painter.setBrush(m_blends ? kPill : kOpaquePill);
    const QRectF body = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    painter.drawRoundedRect(body, body.height() / 2, body.height() / 2);
    // The grip: where the pill is taken to drag it aside.
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(255, 255, 255, 90));
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 2; ++column) {
            painter.drawEllipse(QPointF(10 + column * 5, kHeight / 2.0 - 5 + row * 5), 1.2, 1.2);
        }
    }
}

void RecordingControls::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        m_dragFrom = event->position().toPoint();
        setCursor(Qt::ClosedHandCursor);
    }
}

void RecordingControls::mouseMoveEvent(QMouseEvent* event) {
    if (m_dragFrom) {
        move(event->globalPosition().toPoint() - *m_dragFrom);
        m_placed = pos();
    }
}

void RecordingControls::mouseReleaseEvent(QMouseEvent* /*event*/) {
    m_dragFrom.reset();
    setCursor(Qt::OpenHandCursor);
}

}  // namespace quillo::views
