#include "captions_line_model.h"

#include "analysis_parts.h"

namespace quillo::views {

void CaptionLineModel::setLines(const std::vector<captions::CaptionSegment>& segments,
                                const project::Edits& edits) {
    std::vector<double> starts;
    starts.reserve(segments.size());
    for (const auto& segment : segments) {
        starts.push_back(edits.outputTime(segment.start));
    }
    if (segments.size() == m_lines.size()) {
        m_lines = segments;
        m_outputStarts = std::move(starts);
        if (!m_lines.empty()) {
            emit dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
        }
        return;
    }
    beginResetModel();
    m_lines = segments;
    m_outputStarts = std::move(starts);
    endResetModel();
}

int CaptionLineModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_lines.size());
}

int CaptionLineModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant CaptionLineModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) {
        return {};
    }
    const auto row = static_cast<size_t>(index.row());
    const QString text = QString::fromStdString(m_lines[row].text);
    const QString time = clockText(m_outputStarts[row]);
    switch (role) {
        case Qt::DisplayRole:
        case Qt::EditRole:
            return index.column() == Time ? time : text;
        case Qt::AccessibleTextRole:
            return index.column() == Time ? QStringLiteral("Starts at %1").arg(time) : text;
        case Qt::ToolTipRole:
            return index.column() == Text ? text : QVariant();
        case Qt::TextAlignmentRole:
            return index.column() == Time ? QVariant(int(Qt::AlignRight | Qt::AlignTop))
                                          : QVariant(int(Qt::AlignLeft | Qt::AlignTop));
        default:
            return {};
    }
}

bool CaptionLineModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (role != Qt::EditRole || index.column() != Text || index.row() >= rowCount()) {
        return false;
    }
    const QString text = value.toString().simplified();
    if (text == QString::fromStdString(m_lines[static_cast<size_t>(index.row())].text)) {
        return false;
    }
    return m_onEdit && m_onEdit(index.row(), text);
}

Qt::ItemFlags CaptionLineModel::flags(const QModelIndex& index) const {
    Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    if (index.isValid() && index.column() == Text) {
        flags |= Qt::ItemIsEditable;
    }
    return flags;
}

}  // namespace quillo::views
