#pragma once

#include <QWidget>

#include "app/studio_model.h"

class QAction;
class QLabel;
class QLineEdit;
class QListView;
class QModelIndex;
class QSortFilterProxyModel;
class QStackedWidget;

namespace quillo::views {

class LibraryModel;
class ThumbnailCache;

// The library page: the recordings as cards, newest first, with a search over their titles.
// A card opens with a double-click or Enter, is renamed in place (F2 or its menu), goes to the
// Trash (Delete or its menu, after asking) or shows its folder in the file manager. Follows
// the studio's listing. Thread: the GUI thread.
class LibraryView : public QWidget {
    Q_OBJECT

public:
    LibraryView(app::StudioModel& studio, QWidget* parent = nullptr);

    QListView* list() const { return m_list; }
    QLineEdit* searchField() const { return m_search; }
    ThumbnailCache& thumbnails() const { return *m_thumbnails; }

    // The card actions on the current card (what its menu and keys do).
    void openCurrent();
    void renameCurrent();
    void trashCurrent();
    void showCurrentInFolder();

signals:
    // Open this recording in a tab (double-click or Enter on a card).
    void openRequested(const QString& id);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void buildActions();
    void fitGrid();
    void showMenu(const QPoint& at);
    QString currentId() const;
    QString titleOf(const QModelIndex& index) const;
    void selectRow(int row);
    // Shows the list or the empty message, and the count.
    void updateState();

    app::StudioModel& m_studio;
    ThumbnailCache* m_thumbnails = nullptr;
    LibraryModel* m_model = nullptr;
    QSortFilterProxyModel* m_filter = nullptr;
    QListView* m_list = nullptr;
    QLineEdit* m_search = nullptr;
    QLabel* m_count = nullptr;
    QStackedWidget* m_pages = nullptr;
    QLabel* m_emptyTitle = nullptr;
    QLabel* m_emptyDetail = nullptr;
    QAction* m_open = nullptr;
    QAction* m_rename = nullptr;
    QAction* m_showInFolder = nullptr;
    QAction* m_trash = nullptr;
    QString m_keepCurrent;  // the current card's id across a model reset
    int m_keepRow = -1;
};

}  // namespace quillo::views
