#include "inspector_panel.h"

#include <QLabel>
#include <QVBoxLayout>

#include "captions_inspector.h"
#include "dead_time_inspector.h"
#include "inspector_camera.h"
#include "inspector_cursor.h"
#include "inspector_redaction.h"
#include "inspector_section.h"
#include "inspector_segment.h"
#include "inspector_style.h"
#include "inspector_zoom.h"
#include "sensitive_inspector.h"

namespace quillo::views {

using Kind = EditorSession::Kind;

InspectorPanel::InspectorPanel(EditorSession& session, QWidget* parent)
    : QWidget(parent), m_session(session) {
    setAccessibleName(tr("Inspector"));
    m_title = new QLabel(this);
    QFont heading = m_title->font();
    heading.setBold(true);
    heading.setPointSizeF(heading.pointSizeF() * 1.15);
    m_title->setFont(heading);
    m_title->setAccessibleName(tr("Selection"));

    m_hint = new QLabel(this);
    m_hint->setWordWrap(true);
    m_hint->setForegroundRole(QPalette::PlaceholderText);
    m_hint->setAccessibleName(tr("Selection hint"));
    m_zoom = new ZoomInspector(session, this);
    m_segment = new SegmentInspector(session, this);
    m_redaction = new RedactionInspector(session, this);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 10, 12, 12);
    layout->setSpacing(8);
    layout->addWidget(m_title);
    // Only the page of the selection is shown, so the panel is no taller than it needs.
    for (QWidget* page : pages()) {
        layout->addWidget(page);
    }
    layout->addSpacing(6);

    auto section = [&](const QString& key, const QString& title, bool open, QWidget* content) {
        auto* box = new InspectorSection(key, title, open, this);
        content->setParent(box);
        box->addWidget(content);
        layout->addWidget(box);
    };
    section("style", tr("Style"), true, new StyleInspector(session));
    section("cursor", tr("Cursor"), true, new CursorInspector(session));
    section("camera", tr("Camera"), false, new CameraInspector(session));
    section("captions", tr("Captions"), false, new CaptionsInspector(session));
    section("deadTime", tr("Dead Time"), false, new DeadTimeInspector(session));
    section("sensitive", tr("Sensitive Info"), false, new SensitiveInspector(session));
    layout->addStretch(1);

    connect(&m_session, &EditorSession::selectionChanged, this, [this] { showSelection(); });
    connect(&m_session, &EditorSession::recipeChanged, this, [this] { showSelection(); });
    showSelection();
}

std::array<QWidget*, 4> InspectorPanel::pages() const {
    return {m_hint, m_zoom, m_segment, m_redaction};
}

void InspectorPanel::showPage(QWidget* shown) {
    for (QWidget* page : pages()) {
        page->setVisible(page == shown);
    }
}

void InspectorPanel::showSelection() {
    EditorSession::Selection selection = m_session.selection();
    const project::Edits& edits = m_session.model().edits();
    switch (selection.kind) {
        case Kind::Zoom:
            m_title->setText(tr("Zoom"));
            m_zoom->refresh();
            showPage(m_zoom);
            return;
        case Kind::Segment: {
            bool cut =
                selection.index < edits.timing().size() && edits.timing()[selection.index].isCut();
            m_title->setText(cut ? tr("Cut") : tr("Speed-up"));
            m_segment->refresh();
            showPage(m_segment);
            return;
        }
        case Kind::Redaction:
            m_title->setText(tr("Redaction"));
            m_redaction->refresh();
            showPage(m_redaction);
            return;
        case Kind::Caption:
            m_title->setText(tr("Caption Line"));
            m_hint->setText(tr("Edit the line's words and times under Captions below."));
            break;
        case Kind::Marker:
            m_title->setText(tr("Marker"));
            m_hint->setText(tr("Drag the marker on the timeline to move it, or press Delete."));
            break;
        case Kind::None:
            m_title->setText(tr("Selection"));
            m_hint->setText(tr("Select a zoom, cut or redaction on the timeline to edit it."));
            break;
    }
    showPage(m_hint);
}

}  // namespace quillo::views
