#include "analysis_parts.h"

#include <algorithm>
#include <cmath>

#include <QHBoxLayout>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTableView>
#include <QVBoxLayout>

namespace quillo::views {

QString clockText(double seconds) {
    // Rounded to tenths first, so 59.96 reads 1:00.0 rather than 0:60.0.
    long tenths = std::lround(std::max(0.0, seconds) * 10);
    long minutes = tenths / 600;
    double rest = static_cast<double>(tenths % 600) / 10;
    return QStringLiteral("%1:%2").arg(minutes).arg(rest, 4, 'f', 1, QLatin1Char('0'));
}

QString lengthText(double seconds) {
    return QStringLiteral("%1 s").arg(std::max(0.0, seconds), 0, 'f', 1);
}

void MutedColumnDelegate::initStyleOption(QStyleOptionViewItem* option,
                                          const QModelIndex& index) const {
    QStyledItemDelegate::initStyleOption(option, index);
    if (index.column() == m_column) {
        const QColor muted = option->palette.color(QPalette::PlaceholderText);
        option->palette.setColor(QPalette::Text, muted);
    }
}

namespace {

class KeyFilter : public QObject {
public:
    KeyFilter(std::vector<int> keys, std::function<void()> run, QObject* parent)
        : QObject(parent), m_keys(std::move(keys)), m_run(std::move(run)) {}

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::KeyPress || watched != parent()) {
            return false;
        }
        auto* key = static_cast<QKeyEvent*>(event);
        const auto modifiers = key->modifiers() & ~Qt::KeypadModifier;
        if (modifiers != Qt::NoModifier ||
            std::find(m_keys.begin(), m_keys.end(), key->key()) == m_keys.end()) {
            return false;
        }
        m_run();
        return true;
    }

private:
    std::vector<int> m_keys;
    std::function<void()> m_run;
};

}  // namespace

void onKeys(QWidget* widget, std::initializer_list<int> keys, std::function<void()> run) {
    widget->installEventFilter(new KeyFilter(keys, std::move(run), widget));
}

RowTable::RowTable(int muted, int maxRows, QWidget* parent)
    : QTableView(parent), m_maxRows(maxRows) {
    setShowGrid(false);
    horizontalHeader()->hide();
    verticalHeader()->hide();
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setWordWrap(true);
    setAlternatingRowColors(true);
    horizontalHeader()->setStretchLastSection(true);
    verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setItemDelegateForColumn(muted, new MutedColumnDelegate(muted, this));
}

void RowTable::setModel(QAbstractItemModel* model) {
    QTableView::setModel(model);
    // Rows come and go and wrap differently when their text changes.
    connect(model, &QAbstractItemModel::modelReset, this, [this] { updateGeometry(); });
    connect(model, &QAbstractItemModel::layoutChanged, this, [this] { updateGeometry(); });
    connect(model, &QAbstractItemModel::rowsInserted, this, [this] { updateGeometry(); });
    connect(model, &QAbstractItemModel::rowsRemoved, this, [this] { updateGeometry(); });
    connect(model, &QAbstractItemModel::dataChanged, this, [this] { updateGeometry(); });
}

QSize RowTable::sizeHint() const {
    QSize size = QTableView::sizeHint();
    const int rows = model() ? std::min(model()->rowCount(), m_maxRows) : 0;
    int height = 2 * frameWidth();
    for (int row = 0; row < rows; ++row) {
        height += std::max(sizeHintForRow(row), verticalHeader()->minimumSectionSize());
    }
    size.setHeight(std::max(height, 2 * frameWidth() + verticalHeader()->defaultSectionSize()));
    return size;
}

QSize RowTable::minimumSizeHint() const {
    return {QTableView::minimumSizeHint().width(), sizeHint().height()};
}

void RowTable::resizeEvent(QResizeEvent* event) {
    QTableView::resizeEvent(event);
    // A new width wraps the text anew; only the height follows, so this settles.
    updateGeometry();
}

ProgressRow::ProgressRow(const QString& what, const QString& stopText, QWidget* parent)
    : QWidget(parent) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);

    m_busy = new QWidget(this);
    auto* busy = new QVBoxLayout(m_busy);
    busy->setContentsMargins(0, 0, 0, 0);
    busy->setSpacing(4);
    m_status = new QLabel(m_busy);
    m_status->setForegroundRole(QPalette::PlaceholderText);
    busy->addWidget(m_status);
    auto* barRow = new QHBoxLayout;
    barRow->setSpacing(8);
    m_bar = new QProgressBar(m_busy);
    m_bar->setTextVisible(false);
    m_bar->setMaximumHeight(8);
    m_bar->setAccessibleName(what + QStringLiteral(" progress"));
    barRow->addWidget(m_bar, 1);
    m_stop = new QPushButton(stopText, m_busy);
    m_stop->setAccessibleName(stopText + QLatin1Char(' ') + what.toLower());
    connect(m_stop, &QPushButton::clicked, this, &ProgressRow::stopRequested);
    barRow->addWidget(m_stop);
    busy->addLayout(barRow);
    layout->addWidget(m_busy);
    m_busy->hide();

    m_message = new QLabel(this);
    m_message->setWordWrap(true);
    m_message->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_message->setAccessibleName(what + QStringLiteral(" message"));
    layout->addWidget(m_message);
    m_message->hide();
    // Nothing to show: the row takes no room (nor the spacing around it) in the section.
    hide();
}

void ProgressRow::showProgress(const QString& status, std::optional<double> fraction) {
    m_status->setText(status);
    if (fraction) {
        m_bar->setRange(0, 1000);
        m_bar->setValue(static_cast<int>(std::lround(std::clamp(*fraction, 0.0, 1.0) * 1000)));
    } else {
        m_bar->setRange(0, 0);
    }
    m_busy->show();
    show();
}

void ProgressRow::hideProgress() {
    m_busy->hide();
    setVisible(!m_message->isHidden());
}

bool ProgressRow::running() const { return !m_busy->isHidden(); }

void ProgressRow::setMessage(const QString& text, bool error) {
    m_message->setText(text);
    QPalette palette = this->palette();
    if (error) {
        // A red that reads on light and dark windows alike.
        const bool dark = palette.color(QPalette::Window).lightness() < 128;
        palette.setColor(QPalette::WindowText,
                         dark ? QColor(0xff, 0x8a, 0x80) : QColor(0xc0, 0x1c, 0x28));
    }
    m_message->setPalette(palette);
    m_message->setVisible(!text.isEmpty());
    setVisible(!text.isEmpty() || !m_busy->isHidden());
}

QString ProgressRow::message() const { return m_message->text(); }

}  // namespace quillo::views
