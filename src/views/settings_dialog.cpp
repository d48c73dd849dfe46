#include "settings_dialog.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "settings_binder.h"
#include "settings_pages.h"

namespace quillo::views {

SettingsDialog::SettingsDialog(app::Preferences& preferences, QWidget* parent)
    : QDialog(parent), m_preferences(preferences) {
    setWindowTitle(tr("Settings"));
    setAccessibleName(tr("Settings"));
    resize(820, 600);

    m_binder = new SettingsBinder(preferences, this);
    m_pageList = new QListWidget(this);
    m_pageList->setAccessibleName(tr("Settings pages"));
    m_pageList->setFixedWidth(180);
    m_pageList->setContentsMargins(8, 4, 8, 4);
    // Room around the page names, so they don't sit against the window's edge.
    m_pageList->setStyleSheet("QListWidget { padding: 8px 0 8px 8px; }");
    m_pageList->setFrameShape(QFrame::NoFrame);
    m_pageList->viewport()->setBackgroundRole(QPalette::Window);
    m_pages = new QStackedWidget(this);

    for (SettingsPage* page :
         {generalPage(*m_binder), recordingPage(*m_binder), editingPage(*m_binder),
          agentsPage(*m_binder), assistantPage(*m_binder)}) {
        auto* scroll = new QScrollArea(m_pages);
        scroll->setWidget(page);
        scroll->setWidgetResizable(true);
        scroll->setFrameShape(QFrame::NoFrame);
        scroll->setAccessibleName(page->accessibleName());
        m_pages->addWidget(scroll);
        auto* item = new QListWidgetItem(page->accessibleName(), m_pageList);
        item->setSizeHint(QSize(0, 30));
    }
    connect(m_pageList, &QListWidget::currentRowChanged, m_pages, &QStackedWidget::setCurrentIndex);
    m_pageList->setCurrentRow(0);

    m_error = new QLabel(this);
    m_error->setWordWrap(true);
    m_error->setAccessibleName(tr("Settings error"));
    QPalette errorPalette = m_error->palette();
    errorPalette.setColor(QPalette::WindowText, QColor(0xd0, 0x30, 0x30));
    m_error->setPalette(errorPalette);
    m_error->hide();
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    buttons->button(QDialogButtonBox::Close)->setAccessibleName(tr("Close"));
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    auto* divider = new QFrame(this);
    divider->setFrameShape(QFrame::VLine);
    divider->setFrameShadow(QFrame::Plain);
    divider->setForegroundRole(QPalette::Mid);
    auto* body = new QHBoxLayout;
    body->setSpacing(0);
    body->addWidget(m_pageList);
    body->addWidget(divider);
    body->addWidget(m_pages, 1);
    auto* footer = new QHBoxLayout;
    footer->setContentsMargins(16, 8, 16, 12);
    footer->addWidget(m_error, 1);
    footer->addWidget(buttons);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 8, 0, 0);
    layout->setSpacing(0);
    layout->addLayout(body, 1);
    layout->addLayout(footer);

    connect(m_binder, &SettingsBinder::failed, this, &SettingsDialog::showError);
    connect(m_binder, &SettingsBinder::written, m_error, &QLabel::hide);
    // Our own writes call the observer too; the reload then finds every control showing the
    // stored value already and changes nothing. Observers may run on another thread (the
    // store's watcher queue or a writer's), so the reload is always queued to this one.
    m_observer = m_preferences.addObserver([this] {
        if (m_reloadQueued.exchange(true)) {
            return;
        }
        QMetaObject::invokeMethod(
            this,
            [this] {
                m_reloadQueued = false;
                m_binder->reload();
            },
            Qt::QueuedConnection);
    });
}

SettingsDialog::~SettingsDialog() { m_preferences.removeObserver(m_observer); }

void SettingsDialog::showPage(int index) { m_pageList->setCurrentRow(index); }

void SettingsDialog::showError(const QString& message) {
    m_error->setText(message);
    m_error->show();
}

}  // namespace quillo::views
