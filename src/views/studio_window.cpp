#include "studio_window.h"

#include <algorithm>

#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QMenuBar>
#include <QMessageBox>
#include <QStatusBar>
#include <QTabBar>
#include <QUrl>
#include <QVBoxLayout>

#include "app/record_shortcut.h"
#include "assistant_pane.h"
#include "editor_view.h"
#include "library_view.h"
#include "recording_bar.h"
#include "settings_dialog.h"

namespace quillo::views {

StudioWindow::StudioWindow(app::StudioModel& studio, assistant::AssistantModel* assistant,
                           QWidget* parent)
    : QMainWindow(parent), m_studio(studio) {
    setWindowTitle("Quillo");
    setAccessibleName("Quillo");
    resize(1280, 820);

    m_tabs = new QTabWidget(this);
    m_tabs->setDocumentMode(true);
    m_tabs->setTabsClosable(true);
    m_tabs->setMovable(false);
    m_tabs->setAccessibleName(tr("Studio tabs"));
    m_library = new LibraryView(studio, m_tabs);
    m_tabs->addTab(m_library, tr("Library"));
    // The library is always there: no close button on its tab.
    m_tabs->tabBar()->setTabButton(0, QTabBar::RightSide, nullptr);
    m_tabs->tabBar()->setTabButton(0, QTabBar::LeftSide, nullptr);
    m_bar = new RecordingBar(studio, this);
    auto* editing = new QWidget(this);
    auto* layout = new QVBoxLayout(editing);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(m_bar);
    layout->addWidget(m_tabs, 1);
    // The assistant's pane runs the window's full height beside the recording bar and the tabs.
    m_split = new QSplitter(Qt::Horizontal, this);
    m_split->setChildrenCollapsible(false);
    m_split->addWidget(editing);
    if (assistant) {
        m_assistantPane = new AssistantPane(*assistant, m_split);
        m_assistantPane->setMinimumWidth(300);
        m_assistantPane->hide();
        m_split->addWidget(m_assistantPane);
        m_split->setStretchFactor(0, 1);
        m_split->setStretchFactor(1, 0);
        m_split->setSizes({width() - 380, 380});
    }
    setCentralWidget(m_split);

    m_status = new QLabel(this);
    m_status->setAccessibleName(tr("Status"));
    statusBar()->addWidget(m_status, 1);

    connect(m_library, &LibraryView::openRequested, this, [this](const QString& id) {
        if (auto opened = m_studio.open(id.toStdString()); !opened) {
            QMessageBox::warning(this, tr("Quillo"),
                                 QString::fromStdString(opened.error().message));
        }
    });
    connect(m_tabs, &QTabWidget::currentChanged, this, [this](int index) {
        if (m_syncing) {
            return;
        }
        if (index <= 0) {
            m_studio.showLibrary();
        } else if (auto* view = qobject_cast<EditorView*>(m_tabs->widget(index))) {
            (void)m_studio.open(view->session().id());
        }
        updateActions();
    });
    connect(m_tabs, &QTabWidget::tabCloseRequested, this, [this](int index) {
        if (auto* view = qobject_cast<EditorView*>(m_tabs->widget(index))) {
            m_studio.closeTab(view->session().id());
        }
    });

    buildMenus();
    m_tabsConnection = m_studio.tabsChanged.connect([this] { syncTabs(); });
    m_changedConnection = m_studio.changed.connect([this] {
        showStatus();
        followRecording();
    });
    m_preferencesObserver = m_studio.preferences().addObserver([this] {
        followRecording();
        followAssistantSetting();
    });
    followRecording();
    followAssistantSetting();
    syncTabs();
    showStatus();
}

StudioWindow::~StudioWindow() {
    m_studio.tabsChanged.disconnect(m_tabsConnection);
    m_studio.changed.disconnect(m_changedConnection);
    m_studio.preferences().removeObserver(m_preferencesObserver);
}

void StudioWindow::buildMenus() {
    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(recordAction());
    m_pause = file->addAction(tr("Pause Recording"), this, [this] { m_studio.togglePause(); });
    file->addAction(m_bar->chooseAction());
    file->addAction(tr("Show Library &Folder"), this, [this] {
        QDesktopServices::openUrl(
            QUrl::fromLocalFile(QString::fromStdString(m_studio.library().root().string())));
    });
    file->addSeparator();
    QAction* library =
        file->addAction(tr("Show &Library"), this, [this] { m_tabs->setCurrentIndex(0); });
    library->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_L));
    m_export = file->addAction(tr("&Export…"), this, [this] {
        if (auto* view = currentEditor()) {
            view->showExport();
        }
    });
    m_export->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_E));
    m_closeTab = file->addAction(tr("&Close Tab"), this, [this] {
        if (auto* view = currentEditor()) {
            m_studio.closeTab(view->session().id());
        }
    });
    m_closeTab->setShortcut(QKeySequence::Close);
    file->addSeparator();
    QAction* settings = file->addAction(tr("&Settings…"), this, [this] { openSettings(); });
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    settings->setMenuRole(QAction::PreferencesRole);
    file->addSeparator();
    QAction* quit = file->addAction(tr("&Quit"), this, [this] { close(); });
    quit->setShortcut(QKeySequence::Quit);

    QMenu* edit = menuBar()->addMenu(tr("&Edit"));
    m_undo = edit->addAction(tr("&Undo"), this, [this] {
        if (auto* view = currentEditor()) {
            view->session().model().undo();
        }
    });
    m_undo->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Z));
    m_redo = edit->addAction(tr("&Redo"), this, [this] {
        if (auto* view = currentEditor()) {
            view->session().model().redo();
        }
    });
    m_redo->setShortcuts(
        {QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z), QKeySequence(Qt::CTRL | Qt::Key_Y)});
    edit->addSeparator();
    m_delete = edit->addAction(tr("&Delete Selection"), this, [this] {
        if (auto* view = currentEditor()) {
            view->session().removeSelection();
        }
    });

    QMenu* view = menuBar()->addMenu(tr("&View"));
    m_assistantAction = view->addAction(tr("&Assistant"));
    m_assistantAction->setCheckable(true);
    m_assistantAction->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_A));
    m_assistantAction->setEnabled(m_assistantPane != nullptr);
    connect(m_assistantAction, &QAction::triggered, this, [this](bool open) {
        (void)m_studio.preferences().set(app::prefs::assistantOpen, open);
        followAssistantSetting();
        if (open) {
            m_assistantPane->focusComposer();
        }
    });

    QMenu* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("&About Quillo"), this, [this] {
        QMessageBox::about(this, tr("About Quillo"),
                           tr("<b>Quillo %1</b><p>Record demos of an app window or a display and "
                              "edit them into polished videos. Everything runs on this "
                              "computer.</p>")
                               .arg(QApplication::applicationVersion()));
    });
    updateActions();
}

QAction* StudioWindow::recordAction() const { return m_bar->recordAction(); }

EditorView* StudioWindow::editorView(const std::string& id) const {
    auto it = m_editors.find(id);
    return it == m_editors.end() ? nullptr : it->second.data();
}

EditorView* StudioWindow::currentEditor() const {
    return qobject_cast<EditorView*>(m_tabs->currentWidget());
}

void StudioWindow::syncTabs() {
    m_syncing = true;
    const auto& ids = m_studio.openTabs();
    // Tabs of recordings that were closed (or renamed away) go first: their models go next.
    for (auto it = m_editors.begin(); it != m_editors.end();) {
        if (std::find(ids.begin(), ids.end(), it->first) == ids.end()) {
            if (it->second) {
                m_tabs->removeTab(m_tabs->indexOf(it->second));
                delete it->second.data();
            }
            it = m_editors.erase(it);
        } else {
            ++it;
        }
    }
    for (size_t i = 0; i < ids.size(); ++i) {
        EditorView* view = editorView(ids[i]);
        if (!view) {
            auto model = m_studio.editor(ids[i]);
            if (!model) {
                continue;
            }
            view = new EditorView(m_studio, **model, m_tabs);
            m_editors[ids[i]] = view;
            QString title = QString::fromStdString((*model)->project().metadata.title);
            m_tabs->addTab(view, title);
            m_tabs->setTabToolTip(m_tabs->indexOf(view), title);
            connect(&view->session(), &EditorSession::recipeChanged, this,
                    [this] { updateActions(); });
        }
        int index = m_tabs->indexOf(view);
        if (index != static_cast<int>(i) + 1) {
            m_tabs->tabBar()->moveTab(index, static_cast<int>(i) + 1);
        }
    }
    if (auto open = m_studio.openRecording(); open && editorView(*open)) {
        m_tabs->setCurrentWidget(editorView(*open));
    } else {
        m_tabs->setCurrentIndex(0);
    }
    m_syncing = false;
    updateActions();
}

void StudioWindow::updateActions() {
    EditorView* view = currentEditor();
    bool editing = view != nullptr;
    m_undo->setEnabled(editing && view->session().model().canUndo());
    m_redo->setEnabled(editing && view->session().model().canRedo());
    m_delete->setEnabled(editing);
    m_export->setEnabled(editing);
    m_closeTab->setEnabled(editing);
    QString title = "Quillo";
    if (editing) {
        title =
            QString::fromStdString(view->session().model().project().metadata.title) + " — Quillo";
    }
    setWindowTitle(title);
}

void StudioWindow::followRecording() {
    const bool recording = m_studio.state() == app::RecordingState::Recording;
    m_pause->setEnabled(recording);
    m_pause->setText(recording && m_studio.paused() ? tr("Resume Recording")
                                                    : tr("Pause Recording"));
    // The record shortcut as the menu's key: it works in the window where the desktop gives no
    // global shortcut, and where it does, the global grab takes the keys first.
    auto label = app::shortcutLabel(m_studio.preferences().get(app::prefs::recordShortcut));
    QKeySequence keys = QKeySequence::fromString(QString::fromUtf8(label.data(), label.size()));
    if (recordAction()->shortcut() != keys) {
        recordAction()->setShortcut(keys);
    }
}

void StudioWindow::followAssistantSetting() {
    if (!m_assistantPane) {
        return;
    }
    const bool open = m_studio.preferences().get(app::prefs::assistantOpen);
    m_assistantPane->setVisible(open);
    m_assistantAction->setChecked(open);
}

void StudioWindow::showStatus() {
    m_status->setText(QString::fromStdString(m_studio.message()));
    // Screen readers read the line through its description; its name stays "Status".
    m_status->setAccessibleDescription(m_status->text());
    QPalette palette = m_status->palette();
    palette.setColor(QPalette::WindowText, m_studio.hasError()
                                               ? QColor(0xd0, 0x30, 0x30)
                                               : this->palette().color(QPalette::WindowText));
    m_status->setPalette(palette);
}

void StudioWindow::showStudio() {
    if (isMinimized()) {
        showNormal();
    }
    show();
    raise();
    activateWindow();
}

void StudioWindow::openSettings() {
    // One settings window, beside the studio: changes show in the open editor as they are made.
    if (!m_settings) {
        m_settings = new SettingsDialog(m_studio.preferences(), this);
        m_settings->setModal(false);
    }
    m_settings->show();
    m_settings->raise();
    m_settings->activateWindow();
}

void StudioWindow::closeEvent(QCloseEvent* event) {
    if (m_quitAllowed || m_studio.requestQuit()) {
        event->accept();
        QApplication::quit();
        return;
    }
    // Saving a recording first: the quit goes ahead when it is done. An export blocks it.
    if (m_studio.state() != app::RecordingState::Idle) {
        m_studio.onSafeQuit = [this] {
            m_quitAllowed = true;
            close();
        };
        m_status->setText(tr("Saving the recording before quitting…"));
    }
    event->ignore();
}

}  // namespace quillo::views
