#pragma once

#include <vector>

#include <QAbstractListModel>
#include <QIcon>
#include <QImage>
#include <QSortFilterProxyModel>

#include "base/result.h"
#include "capture/display_backend.h"

namespace quillo::views {

// One shareable source as the picker lists it.
struct SourceEntry {
    capture::SourceRef ref;
    QString name;    // the app's name, or the monitor's
    QString detail;  // the window's title, or the monitor's size
    QIcon icon;      // the app's icon, or a monitor
    Rect area;       // on screen, in pixels (what the thumbnail shows)
    QImage thumbnail;
    bool thumbnailFailed = false;
};

// The windows of other apps (front to back, as the backend lists them) and then every monitor.
// Windows of this process are left out: Quillo never records itself.
Result<std::vector<SourceEntry>> listSources(capture::DisplayBackend& backend);

// The app's icon from the icon theme, tried by the app's name as desktop ids and executables
// are usually named, else a generic program icon.
QIcon appIcon(const QString& app);
// A monitor, from the icon theme or drawn.
QIcon displayIcon();

// The sources as list rows: the display text is the name, the accessible text names the
// source in full ("xterm, ~/notes" / "Display HDMI-1, 1920 × 1080").
class SourceListModel : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role {
        DetailRole = Qt::UserRole + 1,
        ThumbnailRole,        // QImage, null until made
        ThumbnailFailedRole,  // bool
        DisplayKindRole,      // bool: a monitor rather than a window
        SearchTextRole,       // what the search field matches
    };

    using QAbstractListModel::QAbstractListModel;

    void setSources(std::vector<SourceEntry> sources);
    const std::vector<SourceEntry>& sources() const { return m_sources; }
    // A thumbnail arrived (null: it could not be made).
    void setThumbnail(const capture::SourceRef& ref, const QImage& image);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

private:
    std::vector<SourceEntry> m_sources;
};

// Rows whose name, title or kind contains every word of the search text, ignoring case.
class SourceFilter : public QSortFilterProxyModel {
    Q_OBJECT

public:
    using QSortFilterProxyModel::QSortFilterProxyModel;
    void setSearch(const QString& text);

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override;

private:
    QStringList m_words;
};

}  // namespace quillo::views
