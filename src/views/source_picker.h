#pragma once

#include <QDialog>
#include <QTimer>

#include "app/studio_model.h"

class QLabel;
class QLineEdit;
class QListView;
class QPushButton;

namespace quillo::views {

class SourceFilter;
class SourceListModel;
class SourceThumbnails;
struct SourceEntry;

// The window that chooses what to record: every window of other apps (picture, app icon and
// name, title) and every monitor (picture, name, size), a search field that filters as one
// types, and a button that hands over to the pointer picker. Arrows move through the list
// (from the search field too), Enter or a double click shares the source, Escape closes.
// Pictures are made off the GUI thread and fill in as they come; the list follows windows
// that open and close while it is shown.
class SourcePicker : public QDialog {
    Q_OBJECT

public:
    explicit SourcePicker(app::StudioModel& studio, QWidget* parent = nullptr);
    ~SourcePicker() override;

    // Lists the sources afresh, keeping the pictures of those still there.
    void refresh();

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void chooseCurrent();
    void pickWithPointer();
    void keepCurrentVisible();
    void showEmptyState();
    void showError(const QString& text);
    std::vector<uint64_t> ownWindows() const;

    app::StudioModel& m_studio;
    SourceListModel* m_model;
    SourceFilter* m_filter;
    SourceThumbnails* m_thumbnails;
    QLineEdit* m_search;
    QListView* m_list;
    QLabel* m_empty;
    QLabel* m_error;
    QPushButton* m_pointer;
    QPushButton* m_choose;
    QString m_listError;  // why nothing could be listed, if so
    QTimer m_follow;      // re-lists while shown
};

}  // namespace quillo::views
