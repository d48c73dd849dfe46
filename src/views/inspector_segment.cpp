#include "inspector_segment.h"

#include <cmath>

#include <QButtonGroup>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>

#include "inspector_fields.h"

namespace quillo::views {

namespace {

QString speedText(double speed) { return QObject::tr("%1×").arg(speed, 0, 'g', 3); }

}  // namespace

SegmentInspector::SegmentInspector(EditorSession& session, QWidget* parent)
    : QWidget(parent), m_session(session) {
    setAccessibleName(tr("Cut or speed-up"));
    m_cut = new QRadioButton(tr("Cut"), this);
    m_cut->setAccessibleName(tr("Cut"));
    m_cut->setToolTip(tr("Leave this stretch out of the video"));
    m_speedUp = new QRadioButton(tr("Speed up"), this);
    m_speedUp->setAccessibleName(tr("Speed up"));
    m_speedUp->setToolTip(tr("Play this stretch faster"));
    auto* group = new QButtonGroup(this);
    group->addButton(m_cut);
    group->addButton(m_speedUp);
    auto* kind = new QWidget(this);
    auto* kindLayout = new QHBoxLayout(kind);
    kindLayout->setContentsMargins(0, 0, 0, 0);
    kindLayout->addWidget(m_cut);
    kindLayout->addWidget(m_speedUp);
    kindLayout->addStretch(1);

    m_speed = new QComboBox(this);
    ignoreWheelUnlessFocused(m_speed);
    m_speed->setAccessibleName(tr("Speed"));
    for (double speed : kSpeeds) {
        m_speed->addItem(speedText(speed), speed);
    }
    m_speed->setCurrentIndex(m_speed->findData(kDefaultSpeed));
    m_times = timesLabel(tr("Segment time"), this);
    m_remove = removeButton(tr("Remove"), this);

    auto* form = inspectorForm(this);
    formRow(form, tr("Kind"), kind);
    formRow(form, tr("Speed"), m_speed);
    formRow(form, tr("Time"), m_times);
    formRow(form, QString(), m_remove);

    connect(m_cut, &QRadioButton::toggled, this, [this](bool on) {
        if (on) {
            setSpeed(0);
        }
    });
    connect(m_speedUp, &QRadioButton::toggled, this, [this](bool on) {
        if (on) {
            setSpeed(m_speed->currentData().toDouble());
        }
    });
    connect(m_speed, &QComboBox::activated, this,
            [this](int index) { setSpeed(m_speed->itemData(index).toDouble()); });
    connect(m_remove, &QPushButton::clicked, this, [this] { m_session.removeSelection(); });
    refresh();
}

void SegmentInspector::setSpeed(double speed) {
    auto selected = m_session.selection();
    const auto& timing = m_session.model().edits().timing();
    if (selected.kind == EditorSession::Kind::Segment && selected.index < timing.size() &&
        timing[selected.index].speed != speed) {
        m_session.model().setSegment(selected.index, std::nullopt, std::nullopt, speed);
    }
    refresh();
}

void SegmentInspector::showSpeed(double speed) {
    QSignalBlocker blocker(m_speed);
    // Speeds outside the offered list (an agent's 2.5×) are shown as they are.
    int found = -1;
    for (int i = 0; i < m_speed->count(); ++i) {
        if (std::abs(m_speed->itemData(i).toDouble() - speed) < 1e-9) {
            found = i;
        }
    }
    if (found < 0) {
        int at = 0;
        while (at < m_speed->count() && m_speed->itemData(at).toDouble() < speed) {
            ++at;
        }
        m_speed->insertItem(at, speedText(speed), speed);
        found = at;
    }
    m_speed->setCurrentIndex(found);
}

void SegmentInspector::refresh() {
    auto selected = m_session.selection();
    const auto& edits = m_session.model().edits();
    const auto& timing = edits.timing();
    if (selected.kind != EditorSession::Kind::Segment || selected.index >= timing.size()) {
        return;
    }
    const project::TimeSegment& segment = timing[selected.index];
    {
        QSignalBlocker cutBlocker(m_cut);
        QSignalBlocker speedBlocker(m_speedUp);
        m_cut->setChecked(segment.isCut());
        m_speedUp->setChecked(!segment.isCut());
    }
    if (!segment.isCut()) {
        showSpeed(segment.speed);
    }
    m_times->setText(segment.isCut() ? tr("%1 s left out").arg(segment.length(), 0, 'f', 1)
                                     : finishedTimes(edits, segment.start, segment.end));
    bool editable = !m_session.model().exporting();
    m_cut->setEnabled(editable);
    m_speedUp->setEnabled(editable);
    m_speed->setEnabled(editable && !segment.isCut());
    m_remove->setEnabled(editable);
}

}  // namespace quillo::views
