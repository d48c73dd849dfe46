#include "sensitive_inspector.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

#include "analysis_parts.h"
#include "base/serial_queue.h"
#include "redaction/sensitive_scanner.h"
#include "sensitive_proposal_model.h"

namespace quillo::views {

namespace {
const QString kScanning = QStringLiteral("Reading the text on screen…");
}  // namespace

SensitiveInspector::SensitiveInspector(EditorSession& session, QWidget* parent)
    : QWidget(parent),
      m_session(session),
      m_scanner(std::make_shared<redaction::SensitiveScanner>()),
      m_queue(std::make_unique<SerialQueue>("app.quillo.sensitive.scan")) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);

    auto* intro = new QLabel(
        QStringLiteral("Finds email addresses, keys, card and phone numbers on screen and "
                       "proposes a blur over each."),
        this);
    intro->setWordWrap(true);
    intro->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(intro);

    auto* scanRow = new QHBoxLayout;
    m_scan = new QPushButton(QStringLiteral("Scan for Sensitive Info"), this);
    m_scan->setAccessibleName(QStringLiteral("Scan for sensitive info"));
    scanRow->addWidget(m_scan);
    scanRow->addStretch(1);
    layout->addLayout(scanRow);

    m_progress =
        new ProgressRow(QStringLiteral("Sensitive info scan"), QStringLiteral("Cancel"), this);
    layout->addWidget(m_progress);

    m_results = new QWidget(this);
    auto* results = new QVBoxLayout(m_results);
    results->setContentsMargins(0, 0, 0, 0);
    results->setSpacing(6);
    m_found = new QLabel(m_results);
    m_found->setWordWrap(true);
    results->addWidget(m_found);
    m_model = new SensitiveProposalModel(this);
    m_table = new RowTable(SensitiveProposalModel::Time, 6, m_results);
    m_table->setModel(m_model);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setMouseTracking(true);
    auto* header = m_table->horizontalHeader();
    header->setStretchLastSection(false);
    header->setSectionResizeMode(SensitiveProposalModel::Kind, QHeaderView::Stretch);
    header->setSectionResizeMode(SensitiveProposalModel::Time, QHeaderView::ResizeToContents);
    header->setSectionResizeMode(SensitiveProposalModel::Hide, QHeaderView::ResizeToContents);
    auto* hideButtons = new SensitiveHideDelegate(m_table);
    m_table->setItemDelegateForColumn(SensitiveProposalModel::Hide, hideButtons);
    m_table->setAccessibleName(QStringLiteral("Sensitive info found"));
    m_table->setAccessibleDescription(QStringLiteral("Press Enter to hide the selected item."));
    results->addWidget(m_table);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    m_dismiss = new QPushButton(QStringLiteral("Dismiss"), m_results);
    m_dismiss->setAccessibleName(QStringLiteral("Dismiss sensitive info proposals"));
    buttons->addWidget(m_dismiss);
    m_hideAll = new QPushButton(QStringLiteral("Hide All"), m_results);
    m_hideAll->setAccessibleName(QStringLiteral("Hide all sensitive info"));
    buttons->addWidget(m_hideAll);
    results->addLayout(buttons);
    layout->addWidget(m_results);

    onKeys(m_table, {Qt::Key_Return, Qt::Key_Enter}, [this] {
        if (m_table->currentIndex().isValid()) {
            hide(static_cast<size_t>(m_table->currentIndex().row()));
        }
    });
    // Queued: the click arrives inside the view's event handling, and hiding resets the table.
    connect(
        hideButtons, &SensitiveHideDelegate::hideRequested, this,
        [this](int row) { hide(static_cast<size_t>(row)); }, Qt::QueuedConnection);
    connect(m_table->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            [this](const QModelIndex& current) {
                const auto& proposals = m_session.redactions().proposals();
                if (current.isValid() && static_cast<size_t>(current.row()) < proposals.size()) {
                    m_session.setPlayhead(proposals[static_cast<size_t>(current.row())].start);
                }
            });
    connect(m_scan, &QPushButton::clicked, this, &SensitiveInspector::scan);
    connect(m_progress, &ProgressRow::stopRequested, this, &SensitiveInspector::cancel);
    connect(m_hideAll, &QPushButton::clicked, this, [this] { hide(std::nullopt); });
    connect(m_dismiss, &QPushButton::clicked, this, &SensitiveInspector::dismiss);
    connect(&m_session, &EditorSession::recipeChanged, this, &SensitiveInspector::refresh);
    refresh();
}

SensitiveInspector::~SensitiveInspector() {
    m_cancel.cancel();
    m_queue.reset();  // waits for a running scan to stop
    if (m_session.redactions().scanning()) {
        m_session.redactions().setScan(false, 0);
    }
}

void SensitiveInspector::scan() {
    m_cancel.cancel();
    m_cancel = CancelToken();
    const int generation = ++m_generation;
    const editor::EditorModel& model = m_session.model();
    const double start = model.edits().trimStart;
    const double end = model.edits().trimEnd;
    QPointer<SensitiveInspector> self(this);
    m_queue->post([self, generation, start, end, token = m_cancel, scanner = m_scanner,
                   movie = model.project().recordingFile()] {
        auto report = [self, generation](double fraction) {
            QMetaObject::invokeMethod(
                qApp,
                [self, generation, fraction] {
                    if (self && generation == self->m_generation) {
                        self->m_session.redactions().setScan(true, fraction);
                        self->m_progress->showProgress(kScanning, fraction);
                    }
                },
                Qt::QueuedConnection);
        };
        auto found =
            scanner->scan(movie, start, end, redaction::sensitive_scan::kInterval, report, token);
        QMetaObject::invokeMethod(
            qApp,
            [self, generation, found = std::move(found)]() mutable {
                if (self) {
                    self->scanned(generation, std::move(found));
                }
            },
            Qt::QueuedConnection);
    });
    m_session.redactions().setScan(true, 0);
    m_scan->setEnabled(false);
    m_progress->setMessage({});
    m_progress->showProgress(kScanning, 0.0);
}

void SensitiveInspector::cancel() {
    m_cancel.cancel();
    ++m_generation;
    m_session.redactions().setScan(false, 0);
    m_progress->hideProgress();
    m_scan->setEnabled(true);
}

void SensitiveInspector::scanned(int generation,
                                 Result<std::vector<project::Redaction>> proposals) {
    if (generation != m_generation) {
        return;
    }
    m_session.redactions().setScan(false, 0);
    m_progress->hideProgress();
    m_scan->setEnabled(true);
    if (!proposals) {
        m_progress->setMessage(QString::fromStdString(proposals.error().message), true);
        return;
    }
    if (proposals->empty()) {
        m_progress->setMessage(QStringLiteral("Nothing private was found on screen."));
    }
    m_session.redactions().setProposals(std::move(*proposals));
    refresh();
    emit proposalsChanged();
}

void SensitiveInspector::refresh() {
    const auto& proposals = m_session.redactions().proposals();
    m_model->setProposals(proposals, m_session.model().edits());
    const int count = m_model->rowCount();
    m_results->setVisible(count > 0);
    m_found->setText(count == 1 ? QStringLiteral("1 item found. Hide it with a blur, or dismiss.")
                                : QStringLiteral("%1 items found. Hide them with a blur, or "
                                                 "dismiss the ones that are fine to show.")
                                      .arg(count));
}

void SensitiveInspector::hide(std::optional<size_t> index) {
    auto& redactions = m_session.redactions();
    const size_t before = redactions.proposals().size();
    if (!redactions.accept(index)) {
        m_progress->setMessage(QString::fromStdString(m_session.model().status()), true);
        return;
    }
    const size_t hidden = before - redactions.proposals().size();
    refresh();
    m_progress->setMessage(hidden == 1 ? QStringLiteral("Added 1 blur.")
                                       : QStringLiteral("Added %1 blurs.").arg(hidden));
    emit proposalsChanged();
}

void SensitiveInspector::dismiss() {
    m_session.redactions().dismissProposals();
    refresh();
    m_progress->setMessage({});
    emit proposalsChanged();
}

}  // namespace quillo::views
