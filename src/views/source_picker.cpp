#include "source_picker.h"

#include <QApplication>
#include <QDialogButtonBox>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QVBoxLayout>

#include "capture/capture_session.h"
#include "overlay_window.h"
#include "source_card_delegate.h"
#include "source_list.h"
#include "source_thumbnails.h"

namespace quillo::views {

namespace {

constexpr int kFollowInterval = 2000;  // ms between listings while shown

bool sameSources(const std::vector<SourceEntry>& a, const std::vector<SourceEntry>& b) {
    return std::equal(
        a.begin(), a.end(), b.begin(), b.end(), [](const SourceEntry& x, const SourceEntry& y) {
            return x.ref == y.ref && x.name == y.name && x.detail == y.detail && x.area == y.area;
        });
}

}  // namespace

SourcePicker::SourcePicker(app::StudioModel& studio, QWidget* parent)
    : QDialog(parent), m_studio(studio) {
    setWindowTitle(tr("Choose a Window or Display"));
    setAccessibleName(windowTitle());
    resize(800, 600);

    auto* heading = new QLabel(tr("What do you want to record?"), this);
    QFont headingFont = heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.35);
    headingFont.setWeight(QFont::DemiBold);
    heading->setFont(headingFont);
    heading->setAccessibleName(heading->text());
    auto* hint = new QLabel(
        tr("Choose an app window or a whole display. Quillo's own windows are not listed."), this);
    hint->setForegroundRole(QPalette::PlaceholderText);
    hint->setAccessibleName(hint->text());

    m_search = new QLineEdit(this);
    m_search->setPlaceholderText(tr("Search windows and displays"));
    m_search->setClearButtonEnabled(true);
    m_search->setAccessibleName(tr("Search"));
    m_search->installEventFilter(this);

    m_model = new SourceListModel(this);
    m_filter = new SourceFilter(this);
    m_filter->setSourceModel(m_model);
    m_list = new QListView(this);
    m_list->setAccessibleName(tr("Sources"));
    m_list->setModel(m_filter);
    m_list->setItemDelegate(new SourceCardDelegate(m_list));
    m_list->setViewMode(QListView::IconMode);
    m_list->setFlow(QListView::LeftToRight);
    m_list->setWrapping(true);
    m_list->setResizeMode(QListView::Adjust);
    m_list->setMovement(QListView::Static);
    m_list->setUniformItemSizes(true);
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setMouseTracking(true);
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setSpacing(2);
    m_list->viewport()->setAttribute(Qt::WA_Hover);

    m_empty = new QLabel(this);
    m_empty->setAlignment(Qt::AlignCenter);
    m_empty->setWordWrap(true);
    m_empty->setForegroundRole(QPalette::PlaceholderText);
    m_empty->setAccessibleName(tr("No sources"));
    m_empty->hide();

    m_error = new QLabel(this);
    m_error->setWordWrap(true);
    m_error->setAccessibleName(tr("Problem"));
    QPalette errorPalette = m_error->palette();
    errorPalette.setColor(QPalette::WindowText, QColor(0xc0, 0x2b, 0x2b));
    m_error->setPalette(errorPalette);
    m_error->hide();

    m_pointer = new QPushButton(tr("Pick with Pointer"), this);
    m_pointer->setAccessibleName(m_pointer->text());
    m_pointer->setToolTip(tr("Click a window or display on the screen; Esc cancels."));
    m_pointer->setAutoDefault(false);
    auto* buttons = new QDialogButtonBox(this);
    m_choose = buttons->addButton(tr("Choose"), QDialogButtonBox::AcceptRole);
    m_choose->setAccessibleName(m_choose->text());
    m_choose->setDefault(true);
    QPushButton* cancel = buttons->addButton(tr("Cancel"), QDialogButtonBox::RejectRole);
    cancel->setAccessibleName(cancel->text());
    cancel->setAutoDefault(false);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 16);
    layout->setSpacing(10);
    layout->addWidget(heading);
    layout->addWidget(hint);
    layout->addSpacing(2);
    layout->addWidget(m_search);
    layout->addWidget(m_list, 1);
    layout->addWidget(m_empty, 1);
    layout->addWidget(m_error);
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(m_pointer);
    bottom->addStretch(1);
    bottom->addWidget(buttons);
    layout->addLayout(bottom);

    m_thumbnails = new SourceThumbnails(
        m_studio.capture().sharedBackend(),
        [this](const capture::SourceRef& ref, const QImage& image) {
            m_model->setThumbnail(ref, image);
        },
        this);

    connect(m_search, &QLineEdit::textChanged, this, [this](const QString& text) {
        m_filter->setSearch(text);
        keepCurrentVisible();
        showEmptyState();
    });
    // Enter reaches the dialog's default button (from the list and the search field alike).
    connect(m_choose, &QPushButton::clicked, this, [this] { chooseCurrent(); });
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(m_list, &QListView::doubleClicked, this, [this] { chooseCurrent(); });
    connect(m_pointer, &QPushButton::clicked, this, [this] { pickWithPointer(); });
    connect(m_filter, &QAbstractItemModel::modelReset, this, [this] { keepCurrentVisible(); });
    m_follow.setInterval(kFollowInterval);
    connect(&m_follow, &QTimer::timeout, this, [this] { refresh(); });
}

SourcePicker::~SourcePicker() = default;

void SourcePicker::refresh() {
    auto listed = listSources(m_studio.capture().backend());
    if (!listed) {
        m_listError = QString::fromStdString(listed.error().message);
        m_model->setSources({});
        showEmptyState();
        return;
    }
    m_listError.clear();
    std::vector<SourceEntry> entries = std::move(*listed);
    if (sameSources(entries, m_model->sources()) && !entries.empty()) {
        return;
    }
    // Sources still there keep their pictures; the new ones (and moved windows) get theirs.
    std::vector<SourceThumbnails::Request> wanted;
    for (SourceEntry& entry : entries) {
        bool kept = false;
        for (const SourceEntry& old : m_model->sources()) {
            if (old.ref == entry.ref && old.area == entry.area && !old.thumbnail.isNull()) {
                entry.thumbnail = old.thumbnail;
                kept = true;
            }
        }
        if (!kept) {
            wanted.push_back({entry.ref, entry.area});
        }
    }
    std::optional<capture::SourceRef> current;
    if (QModelIndex index = m_list->currentIndex(); index.isValid()) {
        current = m_model->sources()[static_cast<size_t>(m_filter->mapToSource(index).row())].ref;
    } else if (const auto& source = m_studio.source()) {
        current = capture::SourceRef{source->kind == "window" ? capture::SourceRef::Kind::Window
                                                              : capture::SourceRef::Kind::Display,
                                     source->id};
    }
    m_model->setSources(std::move(entries));
    for (size_t row = 0; current && row < m_model->sources().size(); ++row) {
        if (m_model->sources()[row].ref == *current) {
            QModelIndex index = m_filter->mapFromSource(m_model->index(static_cast<int>(row)));
            if (index.isValid()) {
                m_list->setCurrentIndex(index);
            }
        }
    }
    keepCurrentVisible();
    showEmptyState();
    if (!wanted.empty()) {
        syncWithDisplay();  // the picker is on the server before grabs leave it out
        m_thumbnails->make(std::move(wanted), SourceCardDelegate::thumbnailSize() * 2,
                           ownWindows());
    }
}

std::vector<uint64_t> SourcePicker::ownWindows() const {
    std::vector<uint64_t> ids;
    if (QGuiApplication::platformName() != "xcb") {
        return ids;
    }
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (window->isVisible() && window->testAttribute(Qt::WA_WState_Created)) {
            ids.push_back(static_cast<uint64_t>(window->winId()));
        }
    }
    return ids;
}

void SourcePicker::keepCurrentVisible() {
    if (!m_list->currentIndex().isValid() && m_filter->rowCount() > 0) {
        m_list->setCurrentIndex(m_filter->index(0, 0));
    }
    if (m_list->currentIndex().isValid()) {
        m_list->selectionModel()->select(m_list->currentIndex(),
                                         QItemSelectionModel::ClearAndSelect);
        m_list->scrollTo(m_list->currentIndex());
    }
    m_choose->setEnabled(m_list->currentIndex().isValid());
}

void SourcePicker::showEmptyState() {
    bool empty = m_filter->rowCount() == 0;
    if (!m_listError.isEmpty()) {
        m_empty->setText(m_listError);
    } else if (m_model->rowCount() == 0) {
        m_empty->setText(tr("There is no window or display to record."));
    } else {
        m_empty->setText(tr("No window or display matches “%1”.").arg(m_search->text().trimmed()));
    }
    m_empty->setAccessibleDescription(m_empty->text());
    m_empty->setVisible(empty);
    m_list->setVisible(!empty);
    m_choose->setEnabled(!empty && m_list->currentIndex().isValid());
}

void SourcePicker::showError(const QString& text) {
    m_error->setText(text);
    m_error->setAccessibleDescription(text);
    m_error->setVisible(!text.isEmpty());
}

void SourcePicker::chooseCurrent() {
    QModelIndex index = m_list->currentIndex();
    if (!index.isValid()) {
        return;
    }
    capture::SourceRef ref =
        m_model->sources()[static_cast<size_t>(m_filter->mapToSource(index).row())].ref;
    if (auto shared = m_studio.shareSource(ref); !shared) {
        // Most likely the window closed meanwhile: the list catches up.
        showError(QString::fromStdString(shared.error().message));
        refresh();
        return;
    }
    accept();
}

void SourcePicker::pickWithPointer() {
    // Out of the way first, so the pointer can reach what lies beneath.
    reject();
    syncWithDisplay();
    m_studio.choose(true);
}

void SourcePicker::showEvent(QShowEvent* event) {
    QDialog::showEvent(event);
    showError({});
    m_search->clear();
    m_search->setFocus();
    m_model->setSources({});
    m_list->setCurrentIndex({});
    refresh();
    m_follow.start();
}

void SourcePicker::hideEvent(QHideEvent* event) {
    m_follow.stop();
    m_thumbnails->cancel();
    QDialog::hideEvent(event);
}

bool SourcePicker::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_search && event->type() == QEvent::KeyPress) {
        auto* key = static_cast<QKeyEvent*>(event);
        switch (key->key()) {
            case Qt::Key_Up:
            case Qt::Key_Down:
            case Qt::Key_PageUp:
            case Qt::Key_PageDown:
                // The list moves while typing goes on in the search field.
                QApplication::sendEvent(m_list, event);
                return true;
            default:
                break;
        }
    }
    return QDialog::eventFilter(watched, event);
}

}  // namespace quillo::views
