#include "preview_widget.h"

#include <algorithm>
#include <cmath>

#include <QAccessible>
#include <QAccessibleWidget>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QToolButton>

#include "render/canvas.h"

namespace quillo::views {

namespace {

// Space kept around the overlay button, in logical pixels.
constexpr int kButtonMargin = 8;
// A drag shorter than this (logical pixels) is a click.
constexpr double kDragThreshold = 4;

// The preview is a picture for assistive technology, not a generic container.
QAccessibleInterface* accessibleFactory(const QString& key, QObject* object) {
    if (key == QLatin1String("quillo::views::PreviewWidget") && object && object->isWidgetType()) {
        return new QAccessibleWidget(static_cast<QWidget*>(object), QAccessible::Graphic);
    }
    return nullptr;
}

}  // namespace

PreviewWidget::PreviewWidget(EditorSession& session, QWidget* parent)
    : QWidget(parent), m_session(session) {
    static const bool installed = [] {
        QAccessible::installFactory(accessibleFactory);
        return true;
    }();
    (void)installed;
    setAccessibleName(tr("Preview"));
    setAccessibleDescription(
        tr("The finished video at the playhead. Click to set the selected "
           "zoom's focus; Shift-drag to hide an area."));
    setMinimumSize(160, 90);
    setMouseTracking(false);
    setFocusPolicy(Qt::ClickFocus);

    m_hideArea = new QToolButton(this);
    m_hideArea->setText(tr("Hide Area"));
    m_hideArea->setAccessibleName(tr("Hide Area"));
    m_hideArea->setToolTip(tr("Drag over the picture to blur an area (or Shift-drag)"));
    m_hideArea->setCheckable(true);
    m_hideArea->setAutoRaise(false);
    m_hideArea->setFocusPolicy(Qt::TabFocus);
    connect(m_hideArea, &QToolButton::toggled, this, [this](bool on) {
        setCursor(on ? Qt::CrossCursor : Qt::ArrowCursor);
        m_dragStart.reset();
        update();
    });

    // The player calls from its own threads; everything it reports is handled here. Posted
    // calls to this widget are dropped with it, and the player is gone before it.
    PreviewPlayer::Listener listener;
    listener.frame = [this](std::shared_ptr<const PreviewFrame> frame) {
        QMetaObject::invokeMethod(
            this, [this, frame = std::move(frame)]() mutable { showFrame(std::move(frame)); },
            Qt::QueuedConnection);
    };
    listener.planned = [this](double fps) {
        QMetaObject::invokeMethod(
            this, [this, fps] { m_session.setFrameRate(fps); }, Qt::QueuedConnection);
    };
    listener.ended = [this](double t) {
        QMetaObject::invokeMethod(
            this, [this, t] { playbackEnded(t); }, Qt::QueuedConnection);
    };
    listener.failed = [this](const std::string& message) {
        QMetaObject::invokeMethod(
            this,
            [this, text = QString::fromStdString(message)] {
                m_error = text;
                update();
            },
            Qt::QueuedConnection);
    };
    m_player = std::make_unique<PreviewPlayer>(std::move(listener));

    connect(&session, &EditorSession::recipeChanged, this, [this] { updateRecipe(); });
    connect(&session, &EditorSession::keptTimeChanged, this, [this] { updateRecipe(); });
    connect(&session, &EditorSession::sideFilesChanged, this, [this] { updateRecipe(true); });
    connect(&session, &EditorSession::playheadMoved, this, &PreviewWidget::playheadMoved);
    connect(&session, &EditorSession::playbackChanged, this, &PreviewWidget::playbackChanged);
    placeButton();
    updateRecipe();
}

PreviewWidget::~PreviewWidget() {
    // Joins the player's threads before the members their calls would touch go.
    m_player.reset();
}

std::optional<PreviewPlacement> PreviewWidget::placement() const {
    if (!m_frame) {
        return std::nullopt;
    }
    const QSize pixels(m_frame->image.width, m_frame->image.height);
    return PreviewPlacement{previewImageRect(size(), pixels, devicePixelRatioF()), pixels,
                            m_frame->mapping, m_frame->source};
}

void PreviewWidget::updateRecipe(bool force) {
    const editor::EditorModel& model = m_session.model();
    if (!model.loaded()) {
        update();
        return;
    }
    PreviewRecipe recipe;
    recipe.folder = model.project().directory;
    recipe.edits = model.edits();
    recipe.size = previewRenderSize(render::canvasSize(recipe.edits, model.videoSize()), size(),
                                    devicePixelRatioF());
    if (!force && m_recipe && m_recipe->edits == recipe.edits && m_recipe->size == recipe.size &&
        m_recipe->folder == recipe.folder) {
        return;
    }
    m_recipe = recipe;
    m_player->setRecipe(std::move(recipe));
    if (m_session.playing()) {
        m_player->play(m_session.playhead(), m_session.rate());
    } else {
        m_player->showFrame(m_session.playhead());
    }
}

void PreviewWidget::playbackChanged() {
    if (m_session.playing()) {
        m_playbackTime.reset();
        m_player->play(m_session.playhead(), m_session.rate());
    } else {
        m_player->showFrame(m_session.playhead());
    }
}

void PreviewWidget::playheadMoved(double t) {
    if (!m_session.playing()) {
        m_player->showFrame(t);
    } else if (!m_playbackTime || *m_playbackTime != t) {
        // Someone else moved the playhead while playing: play on from there.
        m_playbackTime = t;
        m_player->play(t, m_session.rate());
    }
}

void PreviewWidget::showFrame(std::shared_ptr<const PreviewFrame> frame) {
    if (frame->playing != m_session.playing()) {
        return;  // left over from before playback started or stopped
    }
    m_frame = std::move(frame);
    m_error.clear();
    // The image borrows the frame's pixels; the frame lives as long as the image does.
    auto* keep = new std::shared_ptr<const PreviewFrame>(m_frame);
    m_image = QImage(
        m_frame->image.pixels.data(), m_frame->image.width, m_frame->image.height,
        m_frame->image.stride(), QImage::Format_ARGB32_Premultiplied,
        [](void* held) { delete static_cast<std::shared_ptr<const PreviewFrame>*>(held); }, keep);
    m_image.setDevicePixelRatio(devicePixelRatioF());
    if (m_frame->playing) {
        m_playbackTime = m_frame->time;
        m_session.setPlayhead(m_frame->time, true);
    }
    placeButton();
    update();
}

void PreviewWidget::playbackEnded(double t) {
    if (!m_session.playing()) {
        return;
    }
    m_playbackTime = t;
    m_session.setPlayhead(t, true);
    m_session.setPlaying(false);
}

void PreviewWidget::setFocusAt(QPointF p) {
    auto index = m_session.model().selectedZoom();
    auto where = placement();
    const auto& zooms = m_session.model().edits().zooms;
    if (!index || *index >= zooms.size() || !where || !where->onPicture(p)) {
        return;
    }
    Point unit = where->recordingPoint(p);
    project::ZoomSection zoom = zooms[*index];
    zoom.x = std::clamp(unit.x, 0.0, 1.0);
    zoom.y = std::clamp(unit.y, 0.0, 1.0);
    // A chosen point replaces following the pointer.
    if (zoom.follow.value_or(false)) {
        zoom.follow = false;
    }
    m_session.model().commitZoom(*index, zoom);
}

void PreviewWidget::placeButton() {
    if (m_hideArea->parentWidget() != this) {
        m_hideArea->setVisible(true);
        m_hideArea->setEnabled(!m_image.isNull());
        return;
    }
    // Nothing to draw on until there is a picture.
    m_hideArea->setVisible(!m_image.isNull());
    m_hideArea->adjustSize();
    QRectF shown = m_frame
                       ? previewImageRect(size(),
                                          m_frame->image.width > 0
                                              ? QSize(m_frame->image.width, m_frame->image.height)
                                              : size(),
                                          devicePixelRatioF())
                       : QRectF(rect());
    shown = shown.intersected(QRectF(rect()));
    const QSize button = m_hideArea->size();
    m_hideArea->move(static_cast<int>(shown.right()) - button.width() - kButtonMargin,
                     static_cast<int>(shown.top()) + kButtonMargin);
}

std::optional<double> PreviewWidget::shownTime() const {
    return m_frame ? std::optional(m_frame->time) : std::nullopt;
}

QString PreviewWidget::placeholderText() const {
    if (const auto& error = m_session.model().loadError()) {
        return QString::fromStdString(*error);
    }
    if (!m_error.isEmpty()) {
        return m_error;
    }
    return m_image.isNull() ? tr("Loading preview…") : QString();
}

void PreviewWidget::paintPlaceholder(QPainter& painter, const QString& text) {
    painter.setPen(palette().color(QPalette::PlaceholderText));
    painter.drawText(rect().adjusted(16, 16, -16, -16), Qt::AlignCenter | Qt::TextWordWrap, text);
}

void PreviewWidget::paintEvent(QPaintEvent*) {
    // Moved to a screen of another pixel ratio: render at the new size (nothing when unchanged).
    updateRecipe();
    QPainter painter(this);
    painter.fillRect(rect(), palette().color(QPalette::Window));
    const QString text = placeholderText();
    if (m_image.isNull()) {
        paintPlaceholder(painter, text);
        return;
    }
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF shown =
        previewImageRect(size(), QSize(m_image.width(), m_image.height()), devicePixelRatioF());
    painter.drawImage(shown, m_image);
    if (!text.isEmpty()) {
        paintPlaceholder(painter, text);
    }
    if (m_dragStart) {
        QRectF band = QRectF(*m_dragStart, m_dragNow).normalized().intersected(shown);
        QColor highlight = palette().color(QPalette::Highlight);
        QColor fill = highlight;
        fill.setAlpha(60);
        painter.setPen(QPen(highlight, 1.5, Qt::DashLine));
        painter.setBrush(fill);
        painter.drawRect(band);
    }
}

void PreviewWidget::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    placeButton();
    updateRecipe();
}

void PreviewWidget::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    const QPointF p = event->position();
    auto where = placement();
    if (!where || !where->onPicture(p)) {
        return;
    }
    if ((event->modifiers() & Qt::ShiftModifier) || m_hideArea->isChecked()) {
        m_dragStart = p;
        m_dragNow = p;
        update();
        return;
    }
    setFocusAt(p);
}

void PreviewWidget::mouseMoveEvent(QMouseEvent* event) {
    if (m_dragStart) {
        m_dragNow = event->position();
        update();
    }
}

void PreviewWidget::mouseReleaseEvent(QMouseEvent* event) {
    if (!m_dragStart || event->button() != Qt::LeftButton) {
        return;
    }
    const QPointF start = *m_dragStart;
    const QPointF end = event->position();
    m_dragStart.reset();
    update();
    auto where = placement();
    if (!where || std::abs(end.x() - start.x()) < kDragThreshold ||
        std::abs(end.y() - start.y()) < kDragThreshold) {
        return;
    }
    if (auto area = where->recordingRect(start, end)) {
        // The area starts at the playhead, which playback does not hand to the model.
        m_session.setPlaying(false);
        m_session.addRedaction(*area);
    }
}

void PreviewWidget::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape && (m_dragStart || m_hideArea->isChecked())) {
        if (m_dragStart) {
            m_dragStart.reset();
        } else {
            m_hideArea->setChecked(false);
        }
        update();
        return;
    }
    // Everything else is the editor's: playback, frame steps and shuttle.
    event->ignore();
}

}  // namespace quillo::views
