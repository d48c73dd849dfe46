#pragma once

#include <functional>
#include <vector>

#include <QAbstractTableModel>

#include "captions/caption_track.h"
#include "project/edits.h"

namespace quillo::views {

// The caption lines as a table: when each starts in the finished video, and its text, which is
// editable. Edits are handed to `onEdit` (row, new text); the model shows them once the track it
// is given changes. GUI thread only.
class CaptionLineModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column { Time, Text, ColumnCount };
    using EditHandler = std::function<bool(int row, const QString& text)>;

    explicit CaptionLineModel(QObject* parent = nullptr) : QAbstractTableModel(parent) {}

    void setEditHandler(EditHandler handler) { m_onEdit = std::move(handler); }
    // Shows `segments` with start times mapped through `edits`. Rows are updated in place when
    // the count stays the same, so an open editor and the selection survive a save.
    void setLines(const std::vector<captions::CaptionSegment>& segments,
                  const project::Edits& edits);
    const std::vector<captions::CaptionSegment>& lines() const { return m_lines; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

private:
    std::vector<captions::CaptionSegment> m_lines;
    std::vector<double> m_outputStarts;  // seconds of the finished video, one a line
    EditHandler m_onEdit;
};

}  // namespace quillo::views
