#include "inspector_zoom.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>

#include "inspector_fields.h"
#include "inspector_slider.h"

namespace quillo::views {

ZoomInspector::ZoomInspector(EditorSession& session, QWidget* parent)
    : QWidget(parent), m_session(session) {
    setAccessibleName(tr("Zoom"));
    m_scale = new InspectorSlider(tr("Zoom scale"), 1, 4, 0.1, 1, tr("×"), this);
    m_x = new InspectorSlider(tr("Focus across"), 0, 100, 1, 0, tr(" %"), this);
    m_y = new InspectorSlider(tr("Focus down"), 0, 100, 1, 0, tr(" %"), this);
    m_follow = new QCheckBox(tr("Follow the pointer"), this);
    m_follow->setAccessibleName(tr("Follow the pointer"));
    m_follow->setToolTip(tr("Keep the pointer or the text caret in view instead of a fixed point"));
    m_times = timesLabel(tr("Zoom time"), this);
    m_remove = removeButton(tr("Remove Zoom"), this);

    auto* form = inspectorForm(this);
    formRow(form, tr("Scale"), m_scale);
    formRow(form, tr("Across"), m_x);
    formRow(form, tr("Down"), m_y);
    formRow(form, QString(), m_follow);
    formRow(form, tr("Time"), m_times);
    formRow(form, QString(), m_remove);

    connect(m_scale, &InspectorSlider::committed, this,
            [this](double scale) { change([scale](auto& zoom) { zoom.scale = scale; }); });
    connect(m_x, &InspectorSlider::committed, this,
            [this](double x) { change([x](auto& zoom) { zoom.x = x / 100; }); });
    connect(m_y, &InspectorSlider::committed, this,
            [this](double y) { change([y](auto& zoom) { zoom.y = y / 100; }); });
    connect(m_follow, &QCheckBox::toggled, this, [this](bool on) {
        // Absent and false both mean a fixed focus; keep the recipe minimal.
        change([on](auto& zoom) { zoom.follow = on ? std::optional(true) : std::nullopt; });
    });
    connect(m_remove, &QPushButton::clicked, this, [this] { m_session.removeSelection(); });
    refresh();
}

template <class F>
void ZoomInspector::change(F&& edit) {
    auto selected = m_session.selection();
    const auto& zooms = m_session.model().edits().zooms;
    if (selected.kind != EditorSession::Kind::Zoom || selected.index >= zooms.size()) {
        return;
    }
    project::ZoomSection zoom = zooms[selected.index];
    edit(zoom);
    if (zoom == zooms[selected.index]) {
        return;
    }
    m_session.model().commitZoom(selected.index, zoom);
    // A refused change (an export running) must not stay on screen.
    refresh();
}

void ZoomInspector::refresh() {
    auto selected = m_session.selection();
    const auto& edits = m_session.model().edits();
    if (selected.kind != EditorSession::Kind::Zoom || selected.index >= edits.zooms.size()) {
        return;
    }
    const project::ZoomSection& zoom = edits.zooms[selected.index];
    m_scale->setValue(zoom.scale);
    m_x->setValue(zoom.x * 100);
    m_y->setValue(zoom.y * 100);
    {
        QSignalBlocker blocker(m_follow);
        m_follow->setChecked(zoom.follow.value_or(false));
    }
    m_times->setText(finishedTimes(edits, zoom.start, zoom.end));
    bool editable = !m_session.model().exporting();
    // A zoom that follows the pointer has no fixed focus to edit.
    m_x->setEnabled(editable && !zoom.follow.value_or(false));
    m_y->setEnabled(editable && !zoom.follow.value_or(false));
    for (QWidget* control : {static_cast<QWidget*>(m_scale), static_cast<QWidget*>(m_follow),
                             static_cast<QWidget*>(m_remove)}) {
        control->setEnabled(editable);
    }
}

}  // namespace quillo::views
