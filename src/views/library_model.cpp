#include "library_model.h"

#include <QTimer>

#include "base/clock.h"

namespace quillo::views {

LibraryModel::LibraryModel(app::StudioModel& studio, ThumbnailCache& thumbnails, QObject* parent)
    : QAbstractListModel(parent), m_studio(studio), m_thumbnails(thumbnails) {
    m_connection = m_studio.projectsChanged.connect([this] { reload(); });
    connect(&m_thumbnails, &ThumbnailCache::ready, this, &LibraryModel::thumbnailArrived);
    reload();
}

LibraryModel::~LibraryModel() { m_studio.projectsChanged.disconnect(m_connection); }

void LibraryModel::reload() {
    std::vector<Row> rows;
    rows.reserve(m_studio.projects().size());
    for (const project::LocalProject& project : m_studio.projects()) {
        Row row;
        row.id = QString::fromStdString(project.id());
        row.title = QString::fromStdString(project.metadata.title);
        row.created = project.metadata.createdDate();
        if (project.metadata.duration) {
            row.duration = QString::fromStdString(clock(*project.metadata.duration));
        }
        row.movie = project.recordingFile().string();
        rows.push_back(std::move(row));
    }
    bool sameRows = rows.size() == m_rows.size() &&
                    std::equal(rows.begin(), rows.end(), m_rows.begin(),
                               [](const Row& a, const Row& b) { return a.id == b.id; });
    if (sameRows) {
        m_rows = std::move(rows);
        if (!m_rows.empty()) {
            emit dataChanged(index(0), index(static_cast<int>(m_rows.size()) - 1));
        }
        return;
    }
    beginResetModel();
    m_rows = std::move(rows);
    endResetModel();
}

const QString& LibraryModel::dateText(const Row& row) const {
    // Formatting dates is slow enough to matter for hundreds of rows: only cards being painted
    // ask for theirs.
    if (!row.date) {
        row.date = row.created ? QString::fromStdString(project::localizedDateTime(*row.created))
                               : QString();
    }
    return *row.date;
}

int LibraryModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

QVariant LibraryModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) {
        return {};
    }
    const Row& row = m_rows[static_cast<size_t>(index.row())];
    switch (role) {
        case Qt::DisplayRole:
        case Qt::EditRole:
        case Qt::AccessibleTextRole:
        case Qt::ToolTipRole:
            return row.title;
        case Qt::AccessibleDescriptionRole:
            return row.duration.isEmpty() ? dateText(row) : dateText(row) + ", " + row.duration;
        case IdRole:
            return row.id;
        case DateRole:
            return dateText(row);
        case DurationRole:
            return row.duration;
        case ThumbnailRole: {
            QImage image = m_thumbnails.image(row.movie);
            if (image.isNull() && !m_thumbnails.failed(row.movie)) {
                m_thumbnails.request(row.movie);
            }
            return image;
        }
        case ThumbnailFailedRole:
            return m_thumbnails.failed(row.movie);
        default:
            return {};
    }
}

Qt::ItemFlags LibraryModel::flags(const QModelIndex& index) const {
    if (!index.isValid()) {
        return Qt::NoItemFlags;
    }
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable | Qt::ItemNeverHasChildren;
}

bool LibraryModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    if (!index.isValid() || role != Qt::EditRole || index.row() >= rowCount()) {
        return false;
    }
    const Row& row = m_rows[static_cast<size_t>(index.row())];
    QString title = value.toString().trimmed();
    if (title.isEmpty() || title == row.title) {
        return false;
    }
    // The rename reloads the listing; doing it once the editor has closed keeps the view from
    // losing the editor in the middle of committing it.
    QTimer::singleShot(0, this, [this, id = row.id, title] {
        (void)m_studio.rename(id.toStdString(), title.toStdString());
    });
    return true;
}

int LibraryModel::rowOf(const QString& id) const {
    for (size_t i = 0; i < m_rows.size(); ++i) {
        if (m_rows[i].id == id) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void LibraryModel::thumbnailArrived(const QString& movie) {
    std::string path = movie.toStdString();
    for (size_t i = 0; i < m_rows.size(); ++i) {
        if (m_rows[i].movie == path) {
            QModelIndex at = index(static_cast<int>(i));
            emit dataChanged(at, at, {ThumbnailRole, ThumbnailFailedRole});
        }
    }
}

}  // namespace quillo::views
