#include "editor_view.h"

#include <algorithm>

#include <QHBoxLayout>
#include <QKeyEvent>
#include <QScrollArea>
#include <QSplitter>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include "base/clock.h"
#include "export_dialog.h"
#include "inspector_panel.h"
#include "preview_widget.h"
#include "timeline_widget.h"

namespace quillo::views {

namespace {

QPushButton* toolButton(const QString& text, const QString& tip, QWidget* parent) {
    auto* button = new QPushButton(text, parent);
    button->setToolTip(tip);
    button->setAccessibleName(text);
    button->setFocusPolicy(Qt::TabFocus);
    return button;
}

}  // namespace

EditorView::EditorView(app::StudioModel& studio, editor::EditorModel& model, QWidget* parent)
    : QWidget(parent), m_session(new EditorSession(studio, model, this)) {
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(QString::fromStdString(model.project().metadata.title));

    m_preview = new PreviewWidget(*m_session, this);
    m_timeline = new TimelineWidget(*m_session, this);
    m_inspector = new InspectorPanel(*m_session, this);

    // The transport bar under the preview.
    m_play = toolButton(tr("Play"), tr("Play or pause (Space)"), this);
    m_play->setIcon(style()->standardIcon(QStyle::SP_MediaPlay));
    connect(m_play, &QPushButton::clicked, this, [this] { m_session->togglePlaying(); });
    m_time = new QLabel(this);
    m_time->setAccessibleName(tr("Time"));
    m_time->setTextInteractionFlags(Qt::NoTextInteraction);
    QFont mono = m_time->font();
    mono.setFamily("monospace");
    mono.setStyleHint(QFont::Monospace);
    m_time->setFont(mono);
    auto* addZoom = toolButton(tr("Add Zoom"), tr("Zoom in at the playhead (Z)"), this);
    connect(addZoom, &QPushButton::clicked, this, [this] { m_session->model().addZoom(); });
    auto* addCut = toolButton(tr("Add Cut"), tr("Cut a piece at the playhead (C)"), this);
    connect(addCut, &QPushButton::clicked, this, [this] { m_session->model().addSegment(0); });
    auto* addSpeed =
        toolButton(tr("Speed Up"), tr("Play a piece at the playhead faster (S)"), this);
    connect(addSpeed, &QPushButton::clicked, this, [this] { m_session->model().addSegment(2); });
    auto* exportButton = toolButton(tr("Export…"), tr("Export the finished video (Ctrl+E)"), this);
    exportButton->setDefault(true);
    connect(exportButton, &QPushButton::clicked, this, [this] { showExport(); });

    auto* transport = new QHBoxLayout;
    transport->addWidget(m_play);
    transport->addWidget(m_time);
    transport->addStretch(1);
    transport->addWidget(m_preview->hideAreaButton());
    transport->addWidget(addZoom);
    transport->addWidget(addCut);
    transport->addWidget(addSpeed);
    transport->addSpacing(12);
    transport->addWidget(exportButton);

    auto* previewColumn = new QWidget(this);
    auto* previewLayout = new QVBoxLayout(previewColumn);
    previewLayout->setContentsMargins(0, 0, 0, 0);
    previewLayout->addWidget(m_preview, 1);
    previewLayout->addLayout(transport);

    auto* inspectorScroll = new QScrollArea(this);
    inspectorScroll->setWidget(m_inspector);
    inspectorScroll->setWidgetResizable(true);
    inspectorScroll->setFrameShape(QFrame::NoFrame);
    // The inspector is as wide as its controls need: it never scrolls sideways.
    inspectorScroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    inspectorScroll->setMinimumWidth(
        std::max(300, m_inspector->minimumSizeHint().width() +
                          style()->pixelMetric(QStyle::PM_ScrollBarExtent) + 4));
    inspectorScroll->setAccessibleName(tr("Inspector"));

    auto* top = new QSplitter(Qt::Horizontal, this);
    top->addWidget(previewColumn);
    top->addWidget(inspectorScroll);
    top->setStretchFactor(0, 3);
    top->setStretchFactor(1, 1);
    top->setChildrenCollapsible(false);
    top->setSizes({900, inspectorScroll->minimumWidth()});

    auto* split = new QSplitter(Qt::Vertical, this);
    split->addWidget(top);
    split->addWidget(m_timeline);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 1);
    split->setChildrenCollapsible(false);

    m_status = new QLabel(this);
    m_status->setAccessibleName(tr("Editor status"));
    m_status->setWordWrap(true);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 8, 8, 4);
    layout->addWidget(split, 1);
    layout->addWidget(m_status);

    connect(m_session, &EditorSession::recipeChanged, this, [this] { refresh(); });
    connect(m_session, &EditorSession::playheadMoved, this, [this] { showTime(); });
    connect(m_session, &EditorSession::playbackChanged, this, [this] {
        bool playing = m_session->playing();
        m_play->setText(playing ? tr("Pause") : tr("Play"));
        m_play->setAccessibleName(m_play->text());
        m_play->setIcon(
            style()->standardIcon(playing ? QStyle::SP_MediaPause : QStyle::SP_MediaPlay));
    });
    refresh();
}

EditorView::~EditorView() {
    // The views use the session until they are gone, so they go first (Qt would delete the
    // session first: it was made first).
    qDeleteAll(findChildren<QWidget*>(Qt::FindDirectChildrenOnly));
}

void EditorView::refresh() {
    const auto& model = m_session->model();
    QString text;
    if (model.loadError()) {
        text = QString::fromStdString(*model.loadError());
    } else if (!model.status().empty()) {
        text = QString::fromStdString(model.status());
    } else if (model.notice()) {
        text = QString::fromStdString(*model.notice());
    }
    m_status->setText(text);
    QPalette palette = m_status->palette();
    palette.setColor(QPalette::WindowText, model.hasError()
                                               ? QColor(0xd0, 0x30, 0x30)
                                               : this->palette().color(QPalette::WindowText));
    m_status->setPalette(palette);
    showTime();
}

void EditorView::showTime() {
    const auto& edits = m_session->model().edits();
    double now = edits.outputTime(m_session->playhead());
    m_time->setText(
        QString::fromStdString(clock(now, true) + " / " + clock(edits.outputDuration(), true)));
}

void EditorView::showExport() {
    m_session->setPlaying(false);
    ExportDialog dialog(*m_session, this);
    dialog.exec();
}

void EditorView::keyPressEvent(QKeyEvent* event) {
    auto& model = m_session->model();
    bool plain = (event->modifiers() & ~(Qt::KeypadModifier | Qt::ShiftModifier)) == 0;
    if (!plain) {
        QWidget::keyPressEvent(event);
        return;
    }
    bool shift = event->modifiers() & Qt::ShiftModifier;
    switch (event->key()) {
        case Qt::Key_Space:
            m_session->togglePlaying();
            break;
        case Qt::Key_Left:
            m_session->stepFrames(shift ? -10 : -1);
            break;
        case Qt::Key_Right:
            m_session->stepFrames(shift ? 10 : 1);
            break;
        case Qt::Key_J:
            m_session->shuttle(-1);
            break;
        case Qt::Key_K:
            m_session->shuttle(0);
            break;
        case Qt::Key_L:
            m_session->shuttle(1);
            break;
        case Qt::Key_Home:
            m_session->setPlayhead(model.edits().trimStart);
            break;
        case Qt::Key_End:
            m_session->setPlayhead(model.edits().trimEnd);
            break;
        case Qt::Key_I:
            model.markIn();
            break;
        case Qt::Key_O:
            model.markOut();
            break;
        case Qt::Key_Z:
            model.addZoom();
            break;
        case Qt::Key_C:
            model.addSegment(0);
            break;
        case Qt::Key_S:
            model.addSegment(2);
            break;
        case Qt::Key_Delete:
        case Qt::Key_Backspace:
            m_session->removeSelection();
            break;
        case Qt::Key_Escape:
            m_session->select({});
            break;
        default:
            QWidget::keyPressEvent(event);
            return;
    }
    event->accept();
}

}  // namespace quillo::views
