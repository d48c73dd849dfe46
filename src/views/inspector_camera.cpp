#include "inspector_camera.h"

#include <filesystem>

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <QSignalBlocker>

#include "inspector_fields.h"
#include "inspector_slider.h"
#include "project/local_project.h"

namespace quillo::views {

namespace {

using project::CameraLayout;
using project::CameraShape;
using project::CameraStyle;

QString layoutName(CameraLayout layout) {
    switch (layout) {
        case CameraLayout::TopLeft:
            return QObject::tr("Top left");
        case CameraLayout::TopRight:
            return QObject::tr("Top right");
        case CameraLayout::BottomLeft:
            return QObject::tr("Bottom left");
        case CameraLayout::BottomRight:
            return QObject::tr("Bottom right");
        case CameraLayout::SideLeft:
            return QObject::tr("Side by side, camera left");
        case CameraLayout::SideRight:
            return QObject::tr("Side by side, camera right");
        case CameraLayout::CameraOnly:
            return QObject::tr("Camera only");
        case CameraLayout::ScreenOnly:
            return QObject::tr("Screen only");
    }
    return {};
}

}  // namespace

CameraInspector::CameraInspector(EditorSession& session, QWidget* parent)
    : QWidget(parent), m_session(session) {
    m_layout = new QComboBox(this);
    ignoreWheelUnlessFocused(m_layout);
    m_layout->setAccessibleName(tr("Camera layout"));
    for (const auto& [layout, raw] : EnumTable<CameraLayout>::cases) {
        m_layout->addItem(layoutName(layout), static_cast<int>(layout));
    }
    m_shape = new QComboBox(this);
    ignoreWheelUnlessFocused(m_shape);
    m_shape->setAccessibleName(tr("Camera shape"));
    m_shape->addItem(tr("Circle"), static_cast<int>(CameraShape::Circle));
    m_shape->addItem(tr("Rounded"), static_cast<int>(CameraShape::Rounded));
    m_size = new InspectorSlider(tr("Camera size"), 10, 50, 1, 0, tr(" %"), this);
    m_size->setToolTip(
        tr("Share of the canvas's short edge (corners) or of its width (side by "
           "side)"));
    m_radius = new InspectorSlider(tr("Camera corner radius"), 0, 50, 1, 0, tr(" %"), this);
    m_mirror = new QCheckBox(tr("Mirror"), this);
    m_mirror->setAccessibleName(tr("Mirror the camera"));
    m_shadow = new QCheckBox(tr("Shadow"), this);
    m_shadow->setAccessibleName(tr("Camera shadow"));
    m_note = new QLabel(tr("This recording has no camera footage."), this);
    m_note->setWordWrap(true);
    m_note->setForegroundRole(QPalette::PlaceholderText);

    auto* form = inspectorForm(this);
    formRow(form, tr("Layout"), m_layout);
    formRow(form, tr("Shape"), m_shape);
    formRow(form, tr("Size"), m_size);
    formRow(form, tr("Corners"), m_radius);
    form->addRow(m_mirror);
    form->addRow(m_shadow);
    form->addRow(m_note);

    connect(m_layout, &QComboBox::activated, this, [this](int index) {
        auto layout = static_cast<CameraLayout>(m_layout->itemData(index).toInt());
        change([layout](CameraStyle& style) { style.layout = layout; });
    });
    connect(m_shape, &QComboBox::activated, this, [this](int index) {
        auto shape = static_cast<CameraShape>(m_shape->itemData(index).toInt());
        change([shape](CameraStyle& style) { style.shape = shape; });
    });
    connect(m_size, &InspectorSlider::committed, this, [this](double percent) {
        change([percent](CameraStyle& style) { style.size = percent / 100; });
    });
    connect(m_radius, &InspectorSlider::committed, this, [this](double percent) {
        change([percent](CameraStyle& style) { style.cornerRadius = percent / 100; });
    });
    connect(m_mirror, &QCheckBox::toggled, this,
            [this](bool on) { change([on](CameraStyle& style) { style.mirror = on; }); });
    connect(m_shadow, &QCheckBox::toggled, this,
            [this](bool on) { change([on](CameraStyle& style) { style.shadow = on; }); });
    connect(&m_session, &EditorSession::recipeChanged, this, [this] { refresh(); });
    refresh();
}

template <class F>
void CameraInspector::change(F&& edit) {
    project::Edits candidate = m_session.model().edits();
    CameraStyle style = candidate.camera.value_or(CameraStyle{});
    edit(style);
    if (candidate.camera != style) {
        candidate.camera = style;
        m_session.model().commit(std::move(candidate), editor::Rebuild::No);
    }
    refresh();
}

void CameraInspector::refresh() {
    CameraStyle style = m_session.model().edits().camera.value_or(CameraStyle{});
    {
        QSignalBlocker blocker(m_layout);
        m_layout->setCurrentIndex(m_layout->findData(static_cast<int>(style.layout)));
    }
    {
        QSignalBlocker blocker(m_shape);
        m_shape->setCurrentIndex(m_shape->findData(static_cast<int>(style.shape)));
    }
    m_size->setValue(style.size * 100);
    m_radius->setValue(style.cornerRadius * 100);
    {
        QSignalBlocker blocker(m_mirror);
        m_mirror->setChecked(style.mirror);
    }
    {
        QSignalBlocker blocker(m_shadow);
        m_shadow->setChecked(style.shadow);
    }
    std::error_code error;
    const bool footage = std::filesystem::exists(
        m_session.model().project().file(project::LocalProject::kCamera), error);
    m_note->setVisible(!footage);
    const bool editable = footage && !m_session.model().exporting();
    const bool shown = style.layout != CameraLayout::ScreenOnly;
    m_layout->setEnabled(editable);
    for (QWidget* control : {static_cast<QWidget*>(m_shape), static_cast<QWidget*>(m_size),
                             static_cast<QWidget*>(m_mirror), static_cast<QWidget*>(m_shadow)}) {
        control->setEnabled(editable && shown);
    }
    m_radius->setEnabled(editable && shown && style.shape == CameraShape::Rounded);
}

}  // namespace quillo::views
