#pragma once

#include <vector>

#include <QAbstractTableModel>

#include "editor/dead_time.h"
#include "project/edits.h"

namespace quillo::views {

// Proposed dead-time stretches as a table: where each lies in the finished video, how long it
// is, and what removal would do with it. Read-only. GUI thread only.
class DeadTimeProposalModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column { Range, Length, Action, ColumnCount };

    explicit DeadTimeProposalModel(QObject* parent = nullptr) : QAbstractTableModel(parent) {}

    // Shows `proposals` (recording time) mapped to the finished video through `edits`; the same
    // rows again leave the view's current row alone.
    void setProposals(std::vector<editor::dead_time::Segment> proposals,
                      const project::Edits& edits);
    const std::vector<editor::dead_time::Segment>& proposals() const { return m_proposals; }
    // The recording seconds all proposals span together.
    double totalLength() const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

private:
    std::vector<editor::dead_time::Segment> m_proposals;
    std::vector<std::pair<double, double>> m_output;  // finished-video start and end, one a row
};

// "Cut" or "Speed up 4×" for one proposal.
QString deadTimeActionText(const editor::dead_time::Segment& proposal);

}  // namespace quillo::views
