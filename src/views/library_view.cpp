#include "library_view.h"

#include <QAction>
#include <QDesktopServices>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QSortFilterProxyModel>
#include <QStackedWidget>
#include <QUrl>
#include <QVBoxLayout>

#include "base/paths.h"
#include "library_card_delegate.h"
#include "library_model.h"
#include "thumbnail_cache.h"

namespace quillo::views {

namespace {
constexpr int kGridGap = 12;  // at least this much between cards
}  // namespace

LibraryView::LibraryView(app::StudioModel& studio, QWidget* parent)
    : QWidget(parent), m_studio(studio) {
    m_thumbnails = new ThumbnailCache(supportFolder() / "Thumbnails", this);
    m_model = new LibraryModel(studio, *m_thumbnails, this);
    m_filter = new QSortFilterProxyModel(this);
    m_filter->setSourceModel(m_model);
    m_filter->setFilterCaseSensitivity(Qt::CaseInsensitive);
    m_filter->setFilterRole(Qt::DisplayRole);

    auto* heading = new QLabel(tr("Library"), this);
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.5);
    headingFont.setWeight(QFont::DemiBold);
    heading->setFont(headingFont);
    m_count = new QLabel(this);
    m_count->setForegroundRole(QPalette::PlaceholderText);
    m_search = new QLineEdit(this);
    m_search->setPlaceholderText(tr("Search"));
    m_search->setClearButtonEnabled(true);
    m_search->setAccessibleName(tr("Search recordings"));
    m_search->setMinimumWidth(260);
    m_search->installEventFilter(this);

    auto* header = new QHBoxLayout;
    header->setContentsMargins(20, 16, 20, 8);
    header->setSpacing(12);
    header->addWidget(heading, 0, Qt::AlignBaseline);
    header->addWidget(m_count, 0, Qt::AlignBaseline);
    header->addStretch(1);
    header->addWidget(m_search);

    m_list = new QListView(this);
    m_list->setModel(m_filter);
    m_list->setItemDelegate(new LibraryCardDelegate(m_list));
    m_list->setViewMode(QListView::IconMode);
    m_list->setMovement(QListView::Static);
    m_list->setResizeMode(QListView::Adjust);
    m_list->setFlow(QListView::LeftToRight);
    m_list->setWrapping(true);
    m_list->setUniformItemSizes(true);
    m_list->setSpacing(0);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::EditKeyPressed);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setMouseTracking(true);
    m_list->viewport()->setAttribute(Qt::WA_Hover);
    m_list->viewport()->setBackgroundRole(QPalette::Window);
    m_list->setContextMenuPolicy(Qt::CustomContextMenu);
    m_list->setAccessibleName(tr("Recordings"));
    m_list->installEventFilter(this);
    m_list->viewport()->installEventFilter(this);

    auto* empty = new QWidget(this);
    m_emptyTitle = new QLabel(empty);
    QFont emptyFont = m_emptyTitle->font();
    emptyFont.setPointSizeF(emptyFont.pointSizeF() * 1.35);
    emptyFont.setWeight(QFont::DemiBold);
    m_emptyTitle->setFont(emptyFont);
    m_emptyTitle->setAlignment(Qt::AlignCenter);
    m_emptyDetail = new QLabel(empty);
    m_emptyDetail->setAlignment(Qt::AlignCenter);
    m_emptyDetail->setWordWrap(true);
    m_emptyDetail->setFixedWidth(420);
    m_emptyDetail->setForegroundRole(QPalette::PlaceholderText);
    auto* emptyLayout = new QVBoxLayout(empty);
    emptyLayout->addStretch(2);
    emptyLayout->addWidget(m_emptyTitle, 0, Qt::AlignHCenter);
    emptyLayout->addSpacing(6);
    emptyLayout->addWidget(m_emptyDetail, 0, Qt::AlignHCenter);
    emptyLayout->addStretch(3);

    m_pages = new QStackedWidget(this);
    m_pages->addWidget(m_list);
    m_pages->addWidget(empty);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(header);
    layout->addWidget(m_pages, 1);
    setFocusProxy(m_list);

    buildActions();
    connect(m_search, &QLineEdit::textChanged, this, [this](const QString& text) {
        m_filter->setFilterFixedString(text.trimmed());
        updateState();
    });
    connect(m_list, &QListView::doubleClicked, this, [this](const QModelIndex& index) {
        emit openRequested(index.data(LibraryModel::IdRole).toString());
    });
    connect(m_list, &QListView::customContextMenuRequested, this, &LibraryView::showMenu);
    // Keep the current card (or its place) across a reload of the listing.
    connect(m_model, &QAbstractItemModel::modelAboutToBeReset, this, [this] {
        m_keepCurrent = currentId();
        m_keepRow = m_list->currentIndex().row();
    });
    connect(m_model, &QAbstractItemModel::modelReset, this, [this] {
        int row = m_model->rowOf(m_keepCurrent);
        if (row >= 0) {
            QModelIndex at = m_filter->mapFromSource(m_model->index(row));
            selectRow(at.isValid() ? at.row() : -1);
        } else if (m_keepRow >= 0) {
            selectRow(std::min(m_keepRow, m_filter->rowCount() - 1));
        }
        updateState();
    });
    for (auto signal : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved}) {
        connect(m_filter, signal, this, &LibraryView::updateState);
    }
    updateState();
}

void LibraryView::buildActions() {
    m_open = new QAction(tr("Open"), this);
    m_open->setShortcut(QKeySequence(Qt::Key_Return));
    connect(m_open, &QAction::triggered, this, &LibraryView::openCurrent);
    m_rename = new QAction(tr("Rename"), this);
    m_rename->setShortcut(QKeySequence(Qt::Key_F2));
    connect(m_rename, &QAction::triggered, this, &LibraryView::renameCurrent);
    m_showInFolder = new QAction(tr("Show in Folder"), this);
    connect(m_showInFolder, &QAction::triggered, this, &LibraryView::showCurrentInFolder);
    m_trash = new QAction(tr("Move to Trash"), this);
    m_trash->setShortcut(QKeySequence(QKeySequence::Delete));
    connect(m_trash, &QAction::triggered, this, &LibraryView::trashCurrent);
    // The shortcuts above are shown in the menu; the keys themselves reach the list (see
    // eventFilter), so they act only while the list has the focus.
    for (QAction* action : {m_open, m_rename, m_showInFolder, m_trash}) {
        action->setShortcutContext(Qt::WidgetShortcut);
    }
}

QString LibraryView::currentId() const {
    return m_list->currentIndex().data(LibraryModel::IdRole).toString();
}

QString LibraryView::titleOf(const QModelIndex& index) const {
    return index.data(Qt::DisplayRole).toString();
}

void LibraryView::selectRow(int row) {
    if (row < 0 || row >= m_filter->rowCount()) {
        return;
    }
    m_list->setCurrentIndex(m_filter->index(row, 0));
}

void LibraryView::openCurrent() {
    QString id = currentId();
    if (!id.isEmpty()) {
        emit openRequested(id);
    }
}

void LibraryView::renameCurrent() {
    QModelIndex current = m_list->currentIndex();
    if (current.isValid()) {
        m_list->edit(current);
    }
}

void LibraryView::trashCurrent() {
    QModelIndex current = m_list->currentIndex();
    QString id = currentId();
    if (id.isEmpty()) {
        return;
    }
    QMessageBox ask(QMessageBox::Question, tr("Move to Trash"),
                    tr("Move “%1” to the Trash?").arg(titleOf(current)), QMessageBox::NoButton,
                    this);
    ask.setInformativeText(tr("You can restore it from the Trash in your file manager."));
    QPushButton* confirm = ask.addButton(tr("Move to Trash"), QMessageBox::AcceptRole);
    ask.addButton(QMessageBox::Cancel);
    ask.setDefaultButton(confirm);
    ask.exec();
    if (ask.clickedButton() != confirm) {
        return;
    }
    if (auto trashed = m_studio.trash(id.toStdString()); !trashed) {
        QMessageBox::warning(this, tr("Move to Trash"),
                             QString::fromStdString(trashed.error().message));
    }
}

void LibraryView::showCurrentInFolder() {
    QString id = currentId();
    if (!id.isEmpty()) {
        QDesktopServices::openUrl(QUrl::fromLocalFile(id));
    }
}

void LibraryView::showMenu(const QPoint& at) {
    QModelIndex index = m_list->indexAt(at);
    QPoint where = at;
    if (!index.isValid()) {
        // The keyboard's menu key asks at a place that may be between cards: use the current.
        index = m_list->currentIndex();
        if (!index.isValid()) {
            return;
        }
        where = m_list->visualRect(index).center();
    }
    m_list->setCurrentIndex(index);
    QMenu menu(this);
    menu.addAction(m_open);
    menu.addAction(m_rename);
    menu.addAction(m_showInFolder);
    menu.addSeparator();
    menu.addAction(m_trash);
    menu.exec(m_list->viewport()->mapToGlobal(where));
}

void LibraryView::fitGrid() {
    // As many columns as fit, sharing the spare width, so the grid fills the page evenly.
    QSize card = cardSize(m_list->font());
    int width = m_list->viewport()->width();
    int columns = std::max(1, width / (card.width() + kGridGap));
    // The list wraps a row once it is not narrower than the viewport: keep a pixel spare.
    int cell = std::max(card.width() + kGridGap, (width - 1) / columns);
    QSize grid(cell, card.height() + kGridGap);
    if (m_list->gridSize() != grid) {
        m_list->setGridSize(grid);
    }
}

bool LibraryView::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_list->viewport() && event->type() == QEvent::Resize) {
        fitGrid();
    }
    if (event->type() != QEvent::KeyPress) {
        return QWidget::eventFilter(watched, event);
    }
    auto* key = static_cast<QKeyEvent*>(event);
    // Keys typed into a card's title editor go to the editor, not to the list.
    if (watched == m_list) {
        switch (key->key()) {
            case Qt::Key_Return:
            case Qt::Key_Enter:
                openCurrent();
                return true;
            case Qt::Key_Delete:
                trashCurrent();
                return true;
            default:
                break;
        }
    } else if (watched == m_search && key->key() == Qt::Key_Down && m_filter->rowCount() > 0) {
        // From the search field down into the results.
        m_list->setFocus(Qt::TabFocusReason);
        if (!m_list->currentIndex().isValid()) {
            selectRow(0);
        }
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

void LibraryView::updateState() {
    int total = m_model->rowCount();
    int shown = m_filter->rowCount();
    QString search = m_search->text().trimmed();
    if (total == 0) {
        m_count->clear();
    } else if (shown == total) {
        m_count->setText(total == 1 ? tr("1 recording") : tr("%1 recordings").arg(total));
    } else {
        m_count->setText(tr("%1 of %2").arg(shown).arg(total));
    }
    m_search->setEnabled(total > 0 || !search.isEmpty());
    if (shown > 0) {
        m_pages->setCurrentIndex(0);
        return;
    }
    if (total == 0) {
        auto shortcut = app::shortcutLabel(m_studio.preferences().get(app::prefs::recordShortcut));
        m_emptyTitle->setText(tr("No recordings yet"));
        m_emptyDetail->setText(
            tr("Press %1 to record a window or your screen, or let an agent record a demo "
               "for you. New recordings show up here.")
                .arg(QString::fromUtf8(shortcut.data(), static_cast<int>(shortcut.size()))));
    } else {
        m_emptyTitle->setText(tr("No recordings match “%1”").arg(search));
        m_emptyDetail->setText(
            tr("Try another word, or clear the search to see all %1.")
                .arg(total == 1 ? tr("1 recording") : tr("%1 recordings").arg(total)));
    }
    // A centred label keeps its first height; the wrapped text needs the height of its lines.
    m_emptyDetail->setMinimumHeight(m_emptyDetail->heightForWidth(m_emptyDetail->width()));
    m_pages->setCurrentIndex(1);
}

}  // namespace quillo::views
