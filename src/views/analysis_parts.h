#pragma once

#include <functional>
#include <initializer_list>
#include <optional>
#include <vector>

#include <QString>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace quillo::views {

// "1:05.3": minutes and seconds with tenths, for times listed in the analysis sections.
QString clockText(double seconds);
// "12.3 s" for lengths.
QString lengthText(double seconds);

// Draws the cells of `column` in the palette's placeholder tone, so times and lengths recede
// behind what a row is about.
class MutedColumnDelegate : public QStyledItemDelegate {
public:
    MutedColumnDelegate(int column, QObject* parent)
        : QStyledItemDelegate(parent), m_column(column) {}

protected:
    void initStyleOption(QStyleOptionViewItem* option, const QModelIndex& index) const override;

private:
    int m_column;
};

// Calls `run` when one of `keys` (without modifiers) is pressed in `widget` itself, for list
// commands such as Delete; keys typed into an open item editor stay the editor's. The filter is
// owned by `widget`.
void onKeys(QWidget* widget, std::initializer_list<int> keys, std::function<void()> run);

// A table shown as a plain list of rows: no grid or headers, whole rows selected one at a time,
// the last column stretched, rows as high as their wrapped text, column `muted` in the
// placeholder tone. It asks for the height of its rows, up to `maxRows`, then scrolls.
class RowTable : public QTableView {
public:
    RowTable(int muted, int maxRows, QWidget* parent = nullptr);

    void setModel(QAbstractItemModel* model) override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    int m_maxRows;
};

// The running state shared by the analysis sections (captions, dead time, sensitive info): a
// status line, a progress bar (busy when the fraction is unknown) and a stop button, shown only
// while work runs; below it a message line for results and errors, which stays. The row hides
// itself while it has neither. GUI thread only.
class ProgressRow : public QWidget {
    Q_OBJECT

public:
    // `what` names the work for assistive technology ("Transcription"), `stopText` labels the
    // button ("Stop", "Cancel").
    ProgressRow(const QString& what, const QString& stopText, QWidget* parent = nullptr);

    // Shows the bar with `status`; `fraction` 0–1, or none for a busy bar.
    void showProgress(const QString& status, std::optional<double> fraction);
    void hideProgress();
    bool running() const;

    // A message under the bar; `error` draws it in the palette's error tone. Empty hides it.
    void setMessage(const QString& text, bool error = false);
    QString message() const;

signals:
    void stopRequested();

private:
    QWidget* m_busy = nullptr;
    QLabel* m_status = nullptr;
    QProgressBar* m_bar = nullptr;
    QPushButton* m_stop = nullptr;
    QLabel* m_message = nullptr;
};

}  // namespace quillo::views
