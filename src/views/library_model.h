#pragma once

#include <optional>
#include <string>
#include <vector>

#include <QAbstractListModel>
#include <QImage>

#include "app/studio_model.h"
#include "thumbnail_cache.h"

namespace quillo::views {

// The studio's listing as a Qt list model, one row a recording, newest first. Follows the
// studio's projectsChanged; a listing with the same recordings in the same order updates the
// rows in place (so selection and scrolling survive a rename), any other change resets the
// model. Asking for a row's thumbnail starts making it, so the cards painted first (the visible
// ones) get theirs first. Thread: the GUI thread.
class LibraryModel : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role {
        IdRole = Qt::UserRole + 1,  // QString: the recording's id (its folder)
        DateRole,                   // QString: created date and time, localized
        DurationRole,               // QString: "m:ss", empty when unknown
        ThumbnailRole,              // QImage: null until it arrives
        ThumbnailFailedRole,        // bool: no picture can be made
    };

    LibraryModel(app::StudioModel& studio, ThumbnailCache& thumbnails, QObject* parent = nullptr);
    ~LibraryModel() override;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    // Editing the display text renames the recording (after the editor has closed); an empty
    // or unchanged title changes nothing.
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;

    // The row of recording `id`, or -1.
    int rowOf(const QString& id) const;

private:
    struct Row {
        QString id;
        QString title;
        std::optional<project::Instant> created;
        mutable std::optional<QString> date;  // formatted when first asked for (painted)
        QString duration;
        std::string movie;
    };

    void reload();
    const QString& dateText(const Row& row) const;
    void thumbnailArrived(const QString& movie);

    app::StudioModel& m_studio;
    ThumbnailCache& m_thumbnails;
    std::vector<Row> m_rows;
    int m_connection = 0;
};

}  // namespace quillo::views
