#include "inspector_redaction.h"

#include <QColorDialog>
#include <QComboBox>
#include <QFormLayout>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>
#include <QSignalBlocker>

#include "inspector_fields.h"
#include "inspector_slider.h"

namespace quillo::views {

namespace {

using project::Redaction;
using project::RedactionStyle;

QColor colourOf(const Redaction& redaction) {
    if (!redaction.color || redaction.color->size() != 3) {
        return Qt::black;
    }
    const auto& c = *redaction.color;
    return QColor::fromRgbF(static_cast<float>(c[0]), static_cast<float>(c[1]),
                            static_cast<float>(c[2]));
}

QIcon swatchIcon(const QColor& colour, const QColor& edge) {
    QPixmap pixmap(16, 16);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(edge);
    painter.setBrush(colour);
    painter.drawRoundedRect(QRectF(0.5, 0.5, 15, 15), 3, 3);
    return QIcon(pixmap);
}

}  // namespace

RedactionInspector::RedactionInspector(EditorSession& session, QWidget* parent)
    : QWidget(parent), m_session(session) {
    setAccessibleName(tr("Redaction"));
    m_style = new QComboBox(this);
    ignoreWheelUnlessFocused(m_style);
    m_style->setAccessibleName(tr("Redaction style"));
    m_style->addItem(tr("Blur"), static_cast<int>(RedactionStyle::Blur));
    m_style->addItem(tr("Pixelate"), static_cast<int>(RedactionStyle::Pixelate));
    m_style->addItem(tr("Solid box"), static_cast<int>(RedactionStyle::Box));
    m_strength = new InspectorSlider(tr("Redaction strength"), 0, 100, 1, 0, tr(" %"), this);
    m_colour = new QPushButton(tr("Choose…"), this);
    m_colour->setAccessibleName(tr("Box colour"));
    m_colour->setToolTip(tr("The colour of the solid box"));
    m_times = timesLabel(tr("Redaction time"), this);
    m_remove = removeButton(tr("Remove Redaction"), this);

    auto* form = inspectorForm(this);
    formRow(form, tr("Style"), m_style);
    formRow(form, tr("Strength"), m_strength);
    formRow(form, tr("Colour"), m_colour);
    formRow(form, tr("Time"), m_times);
    formRow(form, QString(), m_remove);

    connect(m_style, &QComboBox::activated, this, [this](int index) {
        auto style = static_cast<RedactionStyle>(m_style->itemData(index).toInt());
        change([style](Redaction& r) { r.style = style; });
    });
    connect(m_strength, &InspectorSlider::committed, this, [this](double percent) {
        change([percent](Redaction& r) { r.strength = percent / 100; });
    });
    connect(m_colour, &QPushButton::clicked, this, [this] { chooseColour(); });
    connect(m_remove, &QPushButton::clicked, this, [this] { m_session.removeSelection(); });
    refresh();
}

template <class F>
void RedactionInspector::change(F&& edit) {
    auto selected = m_session.selection();
    const auto& list = m_session.model().edits().redactionList();
    if (selected.kind != EditorSession::Kind::Redaction || selected.index >= list.size()) {
        return;
    }
    auto& editor = m_session.redactions();
    if (editor.selected() != selected.index) {
        editor.select(selected.index);
    }
    Redaction redaction = list[selected.index];
    edit(redaction);
    if (!(redaction == list[selected.index])) {
        editor.update(redaction);
        editor.commit();
    }
    refresh();
}

void RedactionInspector::chooseColour() {
    auto selected = m_session.selection();
    const auto& list = m_session.model().edits().redactionList();
    if (selected.kind != EditorSession::Kind::Redaction || selected.index >= list.size()) {
        return;
    }
    QColor chosen = QColorDialog::getColor(colourOf(list[selected.index]), this, tr("Box Colour"));
    if (!chosen.isValid()) {
        return;
    }
    change([&chosen](Redaction& r) {
        r.color = std::vector<double>{chosen.redF(), chosen.greenF(), chosen.blueF()};
    });
}

void RedactionInspector::refresh() {
    auto selected = m_session.selection();
    const auto& edits = m_session.model().edits();
    const auto& list = edits.redactionList();
    if (selected.kind != EditorSession::Kind::Redaction || selected.index >= list.size()) {
        return;
    }
    const Redaction& redaction = list[selected.index];
    {
        QSignalBlocker blocker(m_style);
        m_style->setCurrentIndex(m_style->findData(static_cast<int>(redaction.style)));
    }
    m_strength->setValue(redaction.strength * 100);
    m_colour->setIcon(swatchIcon(colourOf(redaction), palette().color(QPalette::Mid)));
    m_times->setText(finishedTimes(edits, redaction.start, redaction.end));
    bool editable = !m_session.model().exporting();
    bool box = redaction.style == RedactionStyle::Box;
    m_style->setEnabled(editable);
    // A box is solid: strength means nothing to it, its colour everything.
    m_strength->setEnabled(editable && !box);
    m_colour->setEnabled(editable && box);
    m_remove->setEnabled(editable);
}

}  // namespace quillo::views
