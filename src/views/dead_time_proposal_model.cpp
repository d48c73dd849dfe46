#include "dead_time_proposal_model.h"

#include "analysis_parts.h"
#include "editor/dead_time_options.h"

namespace quillo::views {

QString deadTimeActionText(const editor::dead_time::Segment& proposal) {
    if (proposal.speed == 0) {
        return QStringLiteral("Cut");
    }
    return QStringLiteral("Speed up %1×")
        .arg(QString::fromStdString(editor::formatNumber(proposal.speed)));
}

void DeadTimeProposalModel::setProposals(std::vector<editor::dead_time::Segment> proposals,
                                         const project::Edits& edits) {
    std::vector<std::pair<double, double>> output;
    for (const auto& proposal : proposals) {
        output.emplace_back(edits.outputTime(proposal.start), edits.outputTime(proposal.end));
    }
    if (proposals == m_proposals && output == m_output) {
        return;
    }
    beginResetModel();
    m_proposals = std::move(proposals);
    m_output = std::move(output);
    endResetModel();
}

double DeadTimeProposalModel::totalLength() const {
    double total = 0;
    for (const auto& proposal : m_proposals) {
        total += proposal.end - proposal.start;
    }
    return total;
}

int DeadTimeProposalModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_proposals.size());
}

int DeadTimeProposalModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant DeadTimeProposalModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) {
        return {};
    }
    const auto row = static_cast<size_t>(index.row());
    const auto& proposal = m_proposals[row];
    if (role == Qt::TextAlignmentRole) {
        return index.column() == Length ? QVariant(int(Qt::AlignRight | Qt::AlignVCenter))
                                        : QVariant(int(Qt::AlignLeft | Qt::AlignVCenter));
    }
    if (role != Qt::DisplayRole && role != Qt::AccessibleTextRole) {
        return {};
    }
    switch (index.column()) {
        case Range:
            return role == Qt::DisplayRole
                       ? QStringLiteral("%1 – %2").arg(clockText(m_output[row].first),
                                                       clockText(m_output[row].second))
                       : QStringLiteral("From %1 to %2")
                             .arg(clockText(m_output[row].first), clockText(m_output[row].second));
        case Length:
            return lengthText(proposal.end - proposal.start);
        case Action:
            return deadTimeActionText(proposal);
        default:
            return {};
    }
}

}  // namespace quillo::views
