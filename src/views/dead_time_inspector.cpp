#include "dead_time_inspector.h"

#include <QApplication>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

#include "analysis_parts.h"
#include "base/serial_queue.h"
#include "dead_time_proposal_model.h"
#include "editor/dead_time_remover.h"

namespace quillo::views {

using editor::DeadTimeAction;
using editor::DeadTimeOptions;

namespace {

QComboBox* choices(const auto& values, double current, const QString& suffix, QWidget* parent) {
    auto* box = new QComboBox(parent);
    for (double value : values) {
        box->addItem(QString::fromStdString(editor::formatNumber(value)) + suffix, value);
    }
    // A stored value off the list (set by an agent or an older version) is offered as it is.
    int index = box->findData(current);
    if (index < 0) {
        box->addItem(QString::fromStdString(editor::formatNumber(current)) + suffix, current);
        index = box->count() - 1;
    }
    box->setCurrentIndex(index);
    return box;
}

}  // namespace

DeadTimeInspector::DeadTimeInspector(EditorSession& session, QWidget* parent)
    : QWidget(parent),
      m_session(session),
      m_remover(std::make_unique<editor::DeadTimeRemover>(session.model())),
      m_queue(std::make_unique<SerialQueue>("app.quillo.deadtime.find")) {
    const DeadTimeOptions preferred = session.studio().preferences().deadTimeOptions();
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);

    auto* form = new QFormLayout;
    form->setContentsMargins(0, 0, 0, 0);
    form->setHorizontalSpacing(12);
    form->setVerticalSpacing(6);
    form->setFieldGrowthPolicy(QFormLayout::AllNonFixedFieldsGrow);
    m_length =
        choices(DeadTimeOptions::kLengths, preferred.minimumLength, QStringLiteral(" s"), this);
    m_length->setAccessibleName(QStringLiteral("Shortest idle stretch"));
    form->addRow(QStringLiteral("Longer than"), m_length);
    m_action = new QComboBox(this);
    for (auto action : {DeadTimeAction::Auto, DeadTimeAction::SpeedUp, DeadTimeAction::Cut}) {
        m_action->addItem(QString::fromUtf8(editor::deadTimeActionLabel(action)),
                          static_cast<int>(action));
    }
    m_action->setCurrentIndex(m_action->findData(static_cast<int>(preferred.action)));
    m_action->setAccessibleName(QStringLiteral("Dead time action"));
    form->addRow(QStringLiteral("Action"), m_action);
    m_speed = choices(DeadTimeOptions::kSpeeds, preferred.speed, QStringLiteral("×"), this);
    m_speed->setAccessibleName(QStringLiteral("Dead time speed"));
    form->addRow(QStringLiteral("Speed"), m_speed);
    layout->addLayout(form);

    m_rule = new QLabel(this);
    m_rule->setWordWrap(true);
    m_rule->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(m_rule);

    auto* findRow = new QHBoxLayout;
    m_find = new QPushButton(QStringLiteral("Find Dead Time"), this);
    m_find->setAccessibleName(QStringLiteral("Find dead time"));
    findRow->addWidget(m_find);
    findRow->addStretch(1);
    layout->addLayout(findRow);

    m_progress =
        new ProgressRow(QStringLiteral("Dead time search"), QStringLiteral("Cancel"), this);
    layout->addWidget(m_progress);

    m_results = new QWidget(this);
    auto* results = new QVBoxLayout(m_results);
    results->setContentsMargins(0, 0, 0, 0);
    results->setSpacing(6);
    m_found = new QLabel(m_results);
    m_found->setWordWrap(true);
    results->addWidget(m_found);
    m_model = new DeadTimeProposalModel(this);
    m_table = new RowTable(DeadTimeProposalModel::Length, 6, m_results);
    m_table->setModel(m_model);
    m_table->horizontalHeader()->setSectionResizeMode(DeadTimeProposalModel::Range,
                                                      QHeaderView::ResizeToContents);
    m_table->horizontalHeader()->setSectionResizeMode(DeadTimeProposalModel::Length,
                                                      QHeaderView::ResizeToContents);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setAccessibleName(QStringLiteral("Dead time proposals"));
    results->addWidget(m_table);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    m_dismiss = new QPushButton(QStringLiteral("Dismiss"), m_results);
    m_dismiss->setAccessibleName(QStringLiteral("Dismiss dead time proposals"));
    buttons->addWidget(m_dismiss);
    m_apply = new QPushButton(QStringLiteral("Apply"), m_results);
    m_apply->setAccessibleName(QStringLiteral("Apply dead time proposals"));
    buttons->addWidget(m_apply);
    results->addLayout(buttons);
    layout->addWidget(m_results);
    m_results->hide();

    connect(m_find, &QPushButton::clicked, this, &DeadTimeInspector::find);
    connect(m_progress, &ProgressRow::stopRequested, this, &DeadTimeInspector::cancel);
    connect(m_apply, &QPushButton::clicked, this, &DeadTimeInspector::apply);
    connect(m_dismiss, &QPushButton::clicked, this, &DeadTimeInspector::dismiss);
    for (QComboBox* box : {m_length, m_action, m_speed}) {
        connect(box, &QComboBox::currentIndexChanged, this, &DeadTimeInspector::optionsChanged);
    }
    connect(&m_session, &EditorSession::recipeChanged, this, [this] {
        if (m_listing) {
            showProposals();
        }
    });
    connect(this, &DeadTimeInspector::proposalsChanged, this, &DeadTimeInspector::publishProposals);
    optionsChanged();
}

DeadTimeInspector::~DeadTimeInspector() {
    m_cancel.cancel();
    m_queue.reset();  // waits for a running analysis to stop
}

void DeadTimeInspector::publishProposals() {
    // The timeline shows what would be cut or sped up while the list is up.
    std::vector<project::TimeSegment> shown;
    for (const auto& proposal : proposals()) {
        shown.push_back({proposal.start, proposal.end, proposal.speed});
    }
    m_session.setDeadTimeProposals(std::move(shown));
}

const std::vector<editor::dead_time::Segment>& DeadTimeInspector::proposals() const {
    return m_model->proposals();
}

DeadTimeOptions DeadTimeInspector::options() const {
    DeadTimeOptions options;
    options.minimumLength = m_length->currentData().toDouble();
    options.action = static_cast<DeadTimeAction>(m_action->currentData().toInt());
    options.speed = m_speed->currentData().toDouble();
    return options;
}

void DeadTimeInspector::optionsChanged() {
    const DeadTimeOptions current = options();
    m_speed->setEnabled(current.action != DeadTimeAction::Cut);
    m_rule->setText(QString::fromStdString(current.rule()));
    if (m_listing) {
        showProposals();
    }
}

void DeadTimeInspector::find() {
    m_progress->setMessage({});
    if (m_remover->hasTimeline()) {
        // Analysed before for this trim: only the options may have changed.
        m_listing = true;
        showProposals();
        return;
    }
    m_cancel.cancel();
    m_cancel = CancelToken();
    const int generation = ++m_generation;
    const editor::EditorModel& model = m_session.model();
    const double start = model.edits().trimStart;
    const double end = model.edits().trimEnd;
    QPointer<DeadTimeInspector> self(this);
    m_queue->post([self, generation, start, end, token = m_cancel,
                   movie = model.project().recordingFile(), track = model.cursorTrack()] {
        auto report = [self, generation](double fraction) {
            QMetaObject::invokeMethod(
                qApp,
                [self, generation, fraction] {
                    if (self && generation == self->m_generation) {
                        self->m_progress->showProgress(
                            QStringLiteral("Looking for idle stretches…"), fraction);
                    }
                },
                Qt::QueuedConnection);
        };
        auto timeline =
            editor::dead_time::analyze(movie, track ? &*track : nullptr, start, end, report, token);
        QMetaObject::invokeMethod(
            qApp,
            [self, generation, timeline = std::move(timeline), start, end]() mutable {
                if (self) {
                    self->analysed(generation, std::move(timeline), start, end);
                }
            },
            Qt::QueuedConnection);
    });
    m_find->setEnabled(false);
    m_progress->showProgress(QStringLiteral("Looking for idle stretches…"), 0.0);
}

void DeadTimeInspector::cancel() {
    m_cancel.cancel();
    ++m_generation;
    m_progress->hideProgress();
    m_find->setEnabled(true);
}

void DeadTimeInspector::analysed(int generation, Result<editor::ActivityTimeline> timeline,
                                 double start, double end) {
    if (generation != m_generation) {
        return;
    }
    m_progress->hideProgress();
    m_find->setEnabled(true);
    if (!timeline) {
        m_progress->setMessage(QString::fromStdString(timeline.error().message), true);
        return;
    }
    m_remover->adopt(std::move(timeline.value()), start, end);
    m_listing = true;
    showProposals();
}

void DeadTimeInspector::showProposals() {
    auto proposals = m_remover->proposals(options());
    if (!m_remover->hasTimeline()) {
        // The trim changed since the analysis: what it found no longer applies.
        m_listing = false;
        proposals.clear();
    }
    m_model->setProposals(std::move(proposals), m_session.model().edits());
    const int count = m_model->rowCount();
    m_results->setVisible(m_listing);
    m_table->setVisible(count > 0);
    m_apply->setEnabled(count > 0);
    if (count == 0) {
        m_found->setText(QString::fromStdString(editor::DeadTimeResult{}.summary()));
    } else {
        const QString stretches = count == 1 ? QStringLiteral("1 idle stretch")
                                             : QStringLiteral("%1 idle stretches").arg(count);
        m_found->setText(
            QStringLiteral("%1, %2 in all.").arg(stretches, lengthText(m_model->totalLength())));
    }
    emit proposalsChanged();
}

void DeadTimeInspector::apply() {
    auto removed = m_remover->remove(options());
    if (!removed) {
        m_progress->setMessage(QString::fromStdString(removed.error().message), true);
        return;
    }
    dismiss();
    m_progress->setMessage(QString::fromStdString(removed->summary()));
}

void DeadTimeInspector::dismiss() {
    m_listing = false;
    m_model->setProposals({}, m_session.model().edits());
    m_results->hide();
    m_progress->setMessage({});
    emit proposalsChanged();
}

}  // namespace quillo::views
