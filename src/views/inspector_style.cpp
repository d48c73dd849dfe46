#include "inspector_style.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QSignalBlocker>

#include "inspector_fields.h"
#include "inspector_slider.h"
#include "inspector_swatch.h"

namespace quillo::views {

using project::AspectRatio;
using project::FrameStyle;

StyleInspector::StyleInspector(EditorSession& session, QWidget* parent)
    : QWidget(parent),
      m_session(session),
      m_lastFrame(session.studio().preferences().frameStyle()) {
    m_backdrop = new QCheckBox(tr("Backdrop"), this);
    m_backdrop->setAccessibleName(tr("Backdrop"));
    m_backdrop->setToolTip(tr("Set the recording on a gradient with rounded corners"));

    auto* swatches = new QWidget(this);
    swatches->setAccessibleName(tr("Backgrounds"));
    auto* swatchLayout = new QHBoxLayout(swatches);
    swatchLayout->setContentsMargins(0, 0, 0, 0);
    swatchLayout->setSpacing(2);
    for (size_t i = 0; i < project::kBackgrounds.size(); ++i) {
        auto* swatch = new SwatchButton(project::kBackgrounds[i], swatches);
        swatchLayout->addWidget(swatch);
        m_swatches.push_back(swatch);
        connect(swatch, &SwatchButton::clicked, this, [this, i] {
            changeFrame([i](FrameStyle& frame) { frame.background = static_cast<int64_t>(i); });
        });
    }
    swatchLayout->addStretch(1);

    m_padding = new InspectorSlider(tr("Padding"), 0, 25, 1, 0, tr(" %"), this);
    m_corners = new InspectorSlider(tr("Corner radius"), 0, 10, 0.5, 1, tr(" %"), this);
    m_shadow = new QCheckBox(tr("Shadow"), this);
    m_shadow->setAccessibleName(tr("Shadow"));
    m_aspect = new QComboBox(this);
    ignoreWheelUnlessFocused(m_aspect);
    m_aspect->setAccessibleName(tr("Canvas shape"));
    for (const auto& [aspect, raw] : EnumTable<AspectRatio>::cases) {
        QString label = aspect == AspectRatio::Original
                            ? tr("Original")
                            : QString::fromUtf8(raw.data(), static_cast<int>(raw.size()));
        m_aspect->addItem(label, static_cast<int>(aspect));
    }
    m_highlights = new QCheckBox(tr("Highlight clicks"), this);
    m_highlights->setAccessibleName(tr("Highlight clicks"));
    m_highlights->setToolTip(tr("Show a ripple where the pointer clicks"));

    auto* form = inspectorForm(this);
    form->addRow(m_backdrop);
    formRow(form, tr("Background"), swatches);
    formRow(form, tr("Padding"), m_padding);
    formRow(form, tr("Corners"), m_corners);
    formRow(form, QString(), m_shadow);
    formRow(form, tr("Shape"), m_aspect);
    form->addRow(m_highlights);

    connect(m_backdrop, &QCheckBox::toggled, this, [this](bool on) {
        m_session.model().setFrame(on ? std::optional(m_lastFrame) : std::nullopt);
        refresh();
    });
    connect(m_padding, &InspectorSlider::committed, this, [this](double percent) {
        changeFrame([percent](FrameStyle& frame) { frame.padding = percent / 100; });
    });
    connect(m_corners, &InspectorSlider::committed, this, [this](double percent) {
        changeFrame([percent](FrameStyle& frame) { frame.cornerRadius = percent / 100; });
    });
    connect(m_shadow, &QCheckBox::toggled, this,
            [this](bool on) { changeFrame([on](FrameStyle& frame) { frame.shadow = on; }); });
    connect(m_aspect, &QComboBox::activated, this, [this](int index) {
        auto aspect = static_cast<AspectRatio>(m_aspect->itemData(index).toInt());
        auto wanted = aspect == AspectRatio::Original ? std::nullopt : std::optional(aspect);
        if (m_session.model().edits().aspect.value_or(AspectRatio::Original) != aspect) {
            m_session.model().setAspect(wanted);
        }
        refresh();
    });
    connect(m_highlights, &QCheckBox::toggled, this, [this](bool on) {
        project::Edits candidate = m_session.model().edits();
        candidate.clickHighlights = on;
        m_session.model().commit(std::move(candidate), editor::Rebuild::No);
        refresh();
    });
    connect(&m_session, &EditorSession::recipeChanged, this, [this] { refresh(); });
    refresh();
}

template <class F>
void StyleInspector::changeFrame(F&& edit) {
    const auto& current = m_session.model().edits().frame;
    FrameStyle frame = current.value_or(m_lastFrame);
    edit(frame);
    if (!current || !(frame == *current)) {
        m_session.model().setFrame(frame);
    }
    refresh();
}

void StyleInspector::refresh() {
    const project::Edits& edits = m_session.model().edits();
    bool framed = edits.frame.has_value();
    if (framed) {
        m_lastFrame = *edits.frame;
    }
    const FrameStyle& shown = m_lastFrame;
    {
        QSignalBlocker blocker(m_backdrop);
        m_backdrop->setChecked(framed);
    }
    for (size_t i = 0; i < m_swatches.size(); ++i) {
        m_swatches[i]->setChecked(framed && shown.background == static_cast<int64_t>(i));
    }
    m_padding->setValue(shown.padding * 100);
    m_corners->setValue(shown.cornerRadius * 100);
    {
        QSignalBlocker blocker(m_shadow);
        m_shadow->setChecked(shown.shadow);
    }
    {
        QSignalBlocker blocker(m_aspect);
        m_aspect->setCurrentIndex(
            m_aspect->findData(static_cast<int>(edits.aspect.value_or(AspectRatio::Original))));
    }
    {
        QSignalBlocker blocker(m_highlights);
        m_highlights->setChecked(edits.clickHighlights.value_or(false));
    }
    bool editable = !m_session.model().exporting();
    m_backdrop->setEnabled(editable);
    // Picking a background also turns the backdrop on; the finer settings need it on.
    for (SwatchButton* swatch : m_swatches) {
        swatch->setEnabled(editable);
    }
    m_padding->setEnabled(editable && framed);
    m_corners->setEnabled(editable && framed);
    m_shadow->setEnabled(editable && framed);
    m_aspect->setEnabled(editable);
    m_highlights->setEnabled(editable);
}

}  // namespace quillo::views
