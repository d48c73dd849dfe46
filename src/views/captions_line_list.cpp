#include "captions_line_list.h"

#include <algorithm>

#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

#include "analysis_parts.h"
#include "captions_line_model.h"

namespace quillo::views {

CaptionLineList::CaptionLineList(EditorSession& session, QWidget* parent)
    : QWidget(parent), m_session(session) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(6);

    m_model = new CaptionLineModel(this);
    m_model->setEditHandler([this](int row, const QString& text) { return saveText(row, text); });
    m_table = new RowTable(CaptionLineModel::Time, 8, this);
    m_table->setModel(m_model);
    m_table->horizontalHeader()->setSectionResizeMode(CaptionLineModel::Time,
                                                      QHeaderView::ResizeToContents);
    m_table->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                             QAbstractItemView::AnyKeyPressed);
    m_table->setAccessibleName(QStringLiteral("Caption lines"));
    m_table->setAccessibleDescription(
        QStringLiteral("Press F2 to edit a line's text, Delete to remove it."));
    layout->addWidget(m_table, 1);

    m_empty = new QLabel(QStringLiteral("No captions yet."), this);
    m_empty->setForegroundRole(QPalette::PlaceholderText);
    m_empty->setAccessibleName(QStringLiteral("Caption lines"));
    layout->addWidget(m_empty);

    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    m_delete = new QPushButton(QStringLiteral("Delete Line"), this);
    m_delete->setAccessibleName(QStringLiteral("Delete caption line"));
    m_delete->setEnabled(false);
    buttons->addWidget(m_delete);
    layout->addLayout(buttons);

    onKeys(m_table, {Qt::Key_Delete, Qt::Key_Backspace}, [this] { deleteCurrent(); });
    connect(m_delete, &QPushButton::clicked, this, &CaptionLineList::deleteCurrent);

    connect(m_table->selectionModel(), &QItemSelectionModel::currentRowChanged, this,
            [this](const QModelIndex& current) {
                m_delete->setEnabled(current.isValid());
                if (!m_following && current.isValid()) {
                    lineChosen(current.row());
                }
            });
    connect(&m_session, &EditorSession::sideFilesChanged, this, &CaptionLineList::reload);
    connect(&m_session, &EditorSession::recipeChanged, this, &CaptionLineList::reload);
    connect(&m_session, &EditorSession::selectionChanged, this, &CaptionLineList::followSelection);
    reload();
}

void CaptionLineList::reload() {
    const auto& track = m_session.captions();
    m_model->setLines(track ? track->segments : std::vector<captions::CaptionSegment>{},
                      m_session.model().edits());
    const bool any = m_model->rowCount() > 0;
    m_table->setVisible(any);
    m_empty->setVisible(!any);
    m_delete->setEnabled(any && m_table->currentIndex().isValid());
    followSelection();
}

void CaptionLineList::followSelection() {
    const auto selection = m_session.selection();
    m_following = true;
    if (selection.kind == EditorSession::Kind::Caption &&
        static_cast<int>(selection.index) < m_model->rowCount()) {
        const QModelIndex index = m_model->index(static_cast<int>(selection.index), 0);
        if (m_table->currentIndex().row() != index.row()) {
            m_table->setCurrentIndex(index);
        }
        m_table->scrollTo(index);
    } else if (m_table->currentIndex().isValid()) {
        m_table->selectionModel()->clear();
    }
    m_following = false;
    m_delete->setEnabled(m_table->currentIndex().isValid());
}

void CaptionLineList::lineChosen(int row) {
    const auto& lines = m_model->lines();
    if (row < 0 || static_cast<size_t>(row) >= lines.size()) {
        return;
    }
    m_session.setPlayhead(lines[static_cast<size_t>(row)].start);
    m_session.select({EditorSession::Kind::Caption, static_cast<size_t>(row)});
}

bool CaptionLineList::saveText(int row, const QString& text) {
    const auto& track = m_session.captions();
    if (!track || static_cast<size_t>(row) >= track->segments.size()) {
        return false;
    }
    captions::CaptionTrack changed = *track;
    changed.segments[static_cast<size_t>(row)].setText(text.toStdString());
    if (auto saved = m_session.saveCaptions(changed); !saved) {
        emit failed(QString::fromStdString(saved.error().message));
        return false;
    }
    return true;
}

void CaptionLineList::deleteCurrent() {
    const int row = m_table->currentIndex().row();
    const auto& track = m_session.captions();
    if (row < 0 || !track || static_cast<size_t>(row) >= track->segments.size()) {
        return;
    }
    captions::CaptionTrack changed = *track;
    changed.segments.erase(changed.segments.begin() + row);
    m_session.select({});
    if (auto saved = m_session.saveCaptions(changed); !saved) {
        emit failed(QString::fromStdString(saved.error().message));
        return;
    }
    // The next line (or the new last one) takes the place of the deleted one, for repeated deletes.
    if (m_model->rowCount() > 0) {
        const int next = std::min(row, m_model->rowCount() - 1);
        m_table->setCurrentIndex(m_model->index(next, CaptionLineModel::Text));
    }
}

}  // namespace quillo::views
