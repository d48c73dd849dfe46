#include "captions_style_form.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QSignalBlocker>
#include <QSpinBox>

namespace quillo::views {

using project::CaptionBackground;
using project::CaptionPosition;
using project::CaptionStyle;

CaptionStyleForm::CaptionStyleForm(EditorSession& session, QWidget* parent)
    : QWidget(parent), m_session(session) {
    auto* form = new QFormLayout(this);
    form->setContentsMargins(0, 0, 0, 0);
    form->setHorizontalSpacing(12);
    form->setVerticalSpacing(6);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignVCenter);

    m_visible = new QCheckBox(QStringLiteral("Show captions in the video"), this);
    m_visible->setAccessibleName(QStringLiteral("Show captions"));
    form->addRow(m_visible);

    m_position = new QComboBox(this);
    m_position->addItem(QStringLiteral("Bottom"), static_cast<int>(CaptionPosition::Bottom));
    m_position->addItem(QStringLiteral("Top"), static_cast<int>(CaptionPosition::Top));
    m_position->setAccessibleName(QStringLiteral("Caption position"));
    form->addRow(QStringLiteral("Position"), m_position);

    m_background = new QComboBox(this);
    m_background->addItem(QStringLiteral("Pill"), static_cast<int>(CaptionBackground::Pill));
    m_background->addItem(QStringLiteral("None"), static_cast<int>(CaptionBackground::None));
    m_background->setAccessibleName(QStringLiteral("Caption background"));
    form->addRow(QStringLiteral("Background"), m_background);

    m_size = new QDoubleSpinBox(this);
    m_size->setRange(0.5, 2.5);
    m_size->setSingleStep(0.1);
    m_size->setDecimals(1);
    m_size->setSuffix(QStringLiteral("×"));
    // Typing commits once, on Enter or leaving the field, not on every digit.
    m_size->setKeyboardTracking(false);
    m_size->setAccessibleName(QStringLiteral("Caption size"));
    form->addRow(QStringLiteral("Size"), m_size);

    m_lineLength = new QSpinBox(this);
    m_lineLength->setRange(12, 80);
    m_lineLength->setSuffix(QStringLiteral(" characters"));
    m_lineLength->setKeyboardTracking(false);
    m_lineLength->setAccessibleName(QStringLiteral("Caption line length"));
    form->addRow(QStringLiteral("Line length"), m_lineLength);

    m_highlight = new QCheckBox(QStringLiteral("Highlight each word as it is spoken"), this);
    m_highlight->setAccessibleName(QStringLiteral("Highlight words"));
    form->addRow(m_highlight);

    connect(m_visible, &QCheckBox::toggled, this,
            [this](bool on) { change([on](CaptionStyle& style) { style.visible = on; }); });
    connect(m_position, &QComboBox::activated, this, [this] {
        auto where = static_cast<CaptionPosition>(m_position->currentData().toInt());
        change([where](CaptionStyle& style) { style.position = where; });
    });
    connect(m_background, &QComboBox::activated, this, [this] {
        auto behind = static_cast<CaptionBackground>(m_background->currentData().toInt());
        change([behind](CaptionStyle& style) { style.background = behind; });
    });
    connect(m_size, &QDoubleSpinBox::valueChanged, this,
            [this](double size) { change([size](CaptionStyle& style) { style.size = size; }); });
    connect(m_lineLength, &QSpinBox::valueChanged, this, [this](int length) {
        change([length](CaptionStyle& style) { style.maxCharacters = length; });
    });
    connect(m_highlight, &QCheckBox::toggled, this,
            [this](bool on) { change([on](CaptionStyle& style) { style.highlightWords = on; }); });
    connect(&m_session, &EditorSession::recipeChanged, this, &CaptionStyleForm::refresh);
    refresh();
}

void CaptionStyleForm::refresh() {
    const auto& captions = m_session.model().edits().captions;
    const CaptionStyle style = captions.value_or(CaptionStyle{}).clamped();
    m_refreshing = true;
    m_visible->setChecked(captions && style.visible);
    m_position->setCurrentIndex(m_position->findData(static_cast<int>(style.position)));
    m_background->setCurrentIndex(m_background->findData(static_cast<int>(style.background)));
    m_size->setValue(style.size);
    m_lineLength->setValue(static_cast<int>(style.maxCharacters));
    m_highlight->setChecked(style.highlightWords);
    m_refreshing = false;
}

void CaptionStyleForm::change(const std::function<void(CaptionStyle&)>& edit) {
    if (m_refreshing) {
        return;
    }
    editor::EditorModel& model = m_session.model();
    project::Edits candidate = model.edits();
    // Styling captions that are not in the recipe yet keeps them hidden until shown.
    CaptionStyle style = candidate.captions.value_or(CaptionStyle{.visible = false});
    edit(style);
    candidate.captions = style.clamped();
    if (candidate == model.edits()) {
        return;
    }
    if (!model.commit(std::move(candidate), editor::Rebuild::No)) {
        emit failed(QString::fromStdString(model.status()));
        refresh();
    }
}

}  // namespace quillo::views
