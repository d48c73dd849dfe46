#include "source_list.h"

#include <unistd.h>

#include <QFileInfo>
#include <QPainter>
#include <QPainterPath>

namespace quillo::views {

namespace {

QString sizeText(const Rect& area) {
    return QStringLiteral("%1 × %2")
        .arg(static_cast<int>(area.width))
        .arg(static_cast<int>(area.height));
}

// A rounded tile with the app's initial, for apps the icon theme doesn't know.
QIcon letterIcon(const QString& app) {
    QPixmap pixmap(64, 64);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    // A calm colour picked from the name, so one app keeps its colour.
    QColor colour = QColor::fromHsl(static_cast<int>(qHash(app) % 360), 120, 120);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawRoundedRect(QRectF(4, 4, 56, 56), 14, 14);
    QFont font;
    font.setPixelSize(34);
    font.setWeight(QFont::DemiBold);
    painter.setFont(font);
    painter.setPen(Qt::white);
    QString letter = app.isEmpty() ? QStringLiteral("?") : app.left(1).toUpper();
    painter.drawText(QRectF(0, 0, 64, 64), Qt::AlignCenter, letter);
    painter.end();
    return QIcon(pixmap);
}

}  // namespace

QIcon displayIcon() {
    QIcon themed = QIcon::fromTheme(QStringLiteral("video-display"));
    if (!themed.isNull()) {
        return themed;
    }
    QPixmap pixmap(64, 64);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor ink(70, 78, 92);
    painter.setPen(QPen(ink, 4));
    painter.setBrush(QColor(150, 190, 235));
    painter.drawRoundedRect(QRectF(6, 10, 52, 34), 4, 4);
    painter.setPen(QPen(ink, 4, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(QPointF(32, 46), QPointF(32, 54));
    painter.drawLine(QPointF(20, 55), QPointF(44, 55));
    painter.end();
    return QIcon(pixmap);
}

QIcon appIcon(const QString& app) {
    QString lower = app.toLower();
    QStringList names{lower, QString(lower).replace(' ', '-')};
    // "gnome-terminal-server" is shown as "gnome-terminal", "firefox-esr" as "firefox".
    for (const QString& suffix : {QStringLiteral("-server"), QStringLiteral("-esr"),
                                  QStringLiteral("-bin"), QStringLiteral("-wrapped")}) {
        if (lower.endsWith(suffix)) {
            names << lower.left(lower.size() - suffix.size());
        }
    }
    for (const QString& name : names) {
        if (!name.isEmpty() && QIcon::hasThemeIcon(name)) {
            return QIcon::fromTheme(name);
        }
    }
    return letterIcon(app);
}

Result<std::vector<SourceEntry>> listSources(capture::DisplayBackend& backend) {
    auto windows = backend.windows();
    if (!windows) {
        return windows.error();
    }
    auto monitors = backend.monitors();
    if (!monitors) {
        return monitors.error();
    }
    std::vector<SourceEntry> entries;
    const int32_t self = static_cast<int32_t>(getpid());
    for (const capture::WindowInfo& window : *windows) {
        if (window.pid == self || window.frame.width < 1 || window.frame.height < 1) {
            continue;
        }
        SourceEntry entry;
        entry.ref = {capture::SourceRef::Kind::Window, window.id};
        entry.name = QString::fromStdString(window.app);
        entry.detail = QString::fromStdString(window.title);
        if (entry.name.isEmpty()) {
            entry.name = entry.detail.isEmpty() ? QObject::tr("Window") : entry.detail;
        }
        entry.icon = appIcon(entry.name);
        entry.area = window.frame;
        entries.push_back(std::move(entry));
    }
    for (const capture::MonitorInfo& monitor : *monitors) {
        SourceEntry entry;
        entry.ref = {capture::SourceRef::Kind::Display, monitor.id};
        entry.name = QObject::tr("Display %1").arg(QString::fromStdString(monitor.name));
        entry.detail = sizeText(monitor.frame);
        entry.icon = displayIcon();
        entry.area = monitor.frame;
        entries.push_back(std::move(entry));
    }
    return entries;
}

void SourceListModel::setSources(std::vector<SourceEntry> sources) {
    beginResetModel();
    m_sources = std::move(sources);
    endResetModel();
}

void SourceListModel::setThumbnail(const capture::SourceRef& ref, const QImage& image) {
    for (size_t row = 0; row < m_sources.size(); ++row) {
        if (m_sources[row].ref == ref) {
            m_sources[row].thumbnail = image;
            m_sources[row].thumbnailFailed = image.isNull();
            QModelIndex at = index(static_cast<int>(row));
            emit dataChanged(at, at, {ThumbnailRole, ThumbnailFailedRole});
        }
    }
}

int SourceListModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_sources.size());
}

QVariant SourceListModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount()) {
        return {};
    }
    const SourceEntry& entry = m_sources[static_cast<size_t>(index.row())];
    bool display = entry.ref.kind == capture::SourceRef::Kind::Display;
    switch (role) {
        case Qt::DisplayRole:
            return entry.name;
        case Qt::AccessibleTextRole:
            return entry.detail.isEmpty() ? entry.name : entry.name + ", " + entry.detail;
        case Qt::AccessibleDescriptionRole:
            return display ? tr("Display") : tr("Window");
        case Qt::ToolTipRole:
            return entry.detail.isEmpty() ? entry.name : entry.name + "\n" + entry.detail;
        case Qt::DecorationRole:
            return entry.icon;
        case DetailRole:
            return entry.detail;
        case ThumbnailRole:
            return entry.thumbnail;
        case ThumbnailFailedRole:
            return entry.thumbnailFailed;
        case DisplayKindRole:
            return display;
        case SearchTextRole:
            return entry.name + " " + entry.detail + " " +
                   (display ? tr("display screen monitor") : tr("window"));
        default:
            return {};
    }
}

void SourceFilter::setSearch(const QString& text) {
    m_words = text.simplified().split(' ', Qt::SkipEmptyParts);
    invalidateRowsFilter();
}

bool SourceFilter::filterAcceptsRow(int row, const QModelIndex& parent) const {
    QString text =
        sourceModel()->index(row, 0, parent).data(SourceListModel::SearchTextRole).toString();
    for (const QString& word : m_words) {
        if (!text.contains(word, Qt::CaseInsensitive)) {
            return false;
        }
    }
    return true;
}

}  // namespace quillo::views
