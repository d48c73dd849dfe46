#include "export_dialog.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QDesktopServices>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QRadioButton>
#include <QUrl>
#include <QVBoxLayout>

#include "export_job.h"
#include "render/exporter.h"

namespace quillo::views {

namespace {

using render::ExportFormat;
using render::ExportPreset;
using render::ExportSize;

QString text(std::string_view view) {
    return QString::fromUtf8(view.data(), static_cast<int>(view.size()));
}

QLabel* dimLabel(const QString& content, QWidget* parent) {
    auto* label = new QLabel(content, parent);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

}  // namespace

std::vector<ExportPreset> ExportDialog::offeredPresets() {
    std::vector<ExportPreset> presets;
    for (const auto& [preset, raw] : EnumTable<ExportPreset>::cases) {
        // X takes the same movie as YouTube at 720p; the tool does not offer it either.
        if (preset != ExportPreset::X) {
            presets.push_back(preset);
        }
    }
    return presets;
}

ExportDialog::ExportDialog(EditorSession& session, QWidget* parent)
    : QDialog(parent), m_session(session), m_job(new ExportJob(session, this)) {
    setWindowTitle(tr("Export"));
    setAccessibleName(tr("Export"));
    setModal(true);
    setMinimumWidth(460);

    auto* heading = new QLabel(
        tr("Export “%1”").arg(QString::fromStdString(session.model().project().metadata.title)),
        this);
    QFont big = heading->font();
    big.setBold(true);
    big.setPointSizeF(big.pointSizeF() * 1.25);
    heading->setFont(big);
    heading->setAccessibleName(tr("Export title"));

    m_choices = new QWidget(this);
    buildChoices(m_choices);

    m_destination = new QLabel(this);
    m_destination->setAccessibleName(tr("Destination"));
    m_destination->setWordWrap(true);
    m_destination->setForegroundRole(QPalette::PlaceholderText);

    m_progress = new QProgressBar(this);
    m_progress->setAccessibleName(tr("Export progress"));
    m_progress->setRange(0, 100);
    m_progress->setTextVisible(false);
    m_percent = new QLabel(this);
    m_percent->setAccessibleName(tr("Export percent"));
    m_percent->setMinimumWidth(m_percent->fontMetrics().horizontalAdvance("100 %") + 4);
    m_percent->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_progressRow = new QWidget(this);
    auto* progressLayout = new QHBoxLayout(m_progressRow);
    progressLayout->setContentsMargins(0, 0, 0, 0);
    progressLayout->addWidget(m_progress, 1);
    progressLayout->addWidget(m_percent);

    m_message = new QLabel(this);
    m_message->setAccessibleName(tr("Export message"));
    m_message->setWordWrap(true);

    m_file = new QLabel(this);
    m_file->setAccessibleName(tr("Exported file"));
    m_file->setWordWrap(true);
    m_file->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    m_showInFolder = new QPushButton(tr("Show in Folder"), this);
    m_showInFolder->setAccessibleName(tr("Show in Folder"));
    m_doneRow = new QWidget(this);
    auto* doneLayout = new QVBoxLayout(m_doneRow);
    doneLayout->setContentsMargins(0, 0, 0, 0);
    auto* doneTitle = new QLabel(tr("The video is ready."), m_doneRow);
    QFont bold = doneTitle->font();
    bold.setBold(true);
    doneTitle->setFont(bold);
    doneLayout->addWidget(doneTitle);
    doneLayout->addWidget(m_file);

    m_cancel = new QPushButton(tr("Cancel"), this);
    m_cancel->setAccessibleName(tr("Cancel"));
    m_export = new QPushButton(tr("Export"), this);
    m_export->setAccessibleName(tr("Export"));
    m_export->setDefault(true);
    m_close = new QPushButton(tr("Close"), this);
    m_close->setAccessibleName(tr("Close"));
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_showInFolder);
    buttons->addStretch(1);
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_export);
    buttons->addWidget(m_close);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 16);
    layout->setSpacing(12);
    layout->addWidget(heading);
    layout->addWidget(m_choices);
    layout->addWidget(m_destination);
    layout->addWidget(m_progressRow);
    layout->addWidget(m_doneRow);
    layout->addWidget(m_message);
    layout->addStretch(1);
    layout->addLayout(buttons);

    connect(m_export, &QPushButton::clicked, this, [this] { startExport(); });
    connect(m_cancel, &QPushButton::clicked, this, [this] { reject(); });
    connect(m_close, &QPushButton::clicked, this, [this] { accept(); });
    connect(m_showInFolder, &QPushButton::clicked, this, [this] {
        if (m_exported) {
            QDesktopServices::openUrl(
                QUrl::fromLocalFile(QString::fromStdString(m_exported->parent_path().string())));
        }
    });
    connect(m_job, &ExportJob::progressed, this, [this](int percent) {
        m_progress->setValue(percent);
        m_percent->setText(tr("%1 %").arg(percent));
    });
    connect(m_job, &ExportJob::finished, this,
            [this](const QString& error) { exportEnded(error); });

    updateChoices();
    showStage(Stage::Choosing);
}

ExportDialog::~ExportDialog() = default;

void ExportDialog::buildChoices(QWidget* page) {
    const app::Preferences& preferences = m_session.studio().preferences();
    ExportPreset remembered = preferences.get(app::prefs::exportPreset);

    auto* presetBox = new QWidget(page);
    presetBox->setAccessibleName(tr("Presets"));
    auto* grid = new QGridLayout(presetBox);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setHorizontalSpacing(16);
    grid->setVerticalSpacing(6);
    m_presets = new QButtonGroup(this);
    auto offered = offeredPresets();
    if (std::find(offered.begin(), offered.end(), remembered) == offered.end()) {
        remembered = render::kDefaultExportPreset;
    }
    int row = 0;
    for (ExportPreset preset : offered) {
        QString title = text(render::presetInfo(preset).title);
        QString detail = QString::fromStdString(render::presetDetail(preset));
        auto* button = new QRadioButton(title, presetBox);
        button->setAccessibleName(title);
        button->setAccessibleDescription(detail);
        button->setChecked(preset == remembered);
        m_presets->addButton(button, static_cast<int>(preset));
        grid->addWidget(button, row, 0);
        grid->addWidget(dimLabel(detail, presetBox), row, 1);
        ++row;
    }
    grid->setColumnStretch(1, 1);

    m_format = new QComboBox(page);
    m_format->setAccessibleName(tr("Format"));
    for (const auto& [format, raw] : EnumTable<ExportFormat>::cases) {
        m_format->addItem(text(raw), static_cast<int>(format));
    }
    m_size = new QComboBox(page);
    m_size->setAccessibleName(tr("Size"));
    for (const auto& [size, raw] : EnumTable<ExportSize>::cases) {
        m_size->addItem(text(raw), static_cast<int>(size));
    }
    m_customRow = new QWidget(page);
    QWidget* custom = m_customRow;
    auto* customLayout = new QHBoxLayout(custom);
    customLayout->setContentsMargins(0, 0, 0, 0);
    customLayout->addWidget(m_format);
    customLayout->addSpacing(8);
    customLayout->addWidget(new QLabel(tr("Size"), custom));
    customLayout->addWidget(m_size);
    customLayout->addStretch(1);

    m_follow = new QRadioButton(tr("Follow the action"), page);
    m_follow->setAccessibleName(tr("Follow the action"));
    m_follow->setToolTip(tr("Crop to fill the frame, following the pointer and the text caret"));
    m_fit = new QRadioButton(tr("Fit with backdrop"), page);
    m_fit->setAccessibleName(tr("Fit with backdrop"));
    m_fit->setToolTip(tr("Show the whole recording on a backdrop"));
    auto* framing = new QButtonGroup(page);
    framing->addButton(m_follow);
    framing->addButton(m_fit);
    (preferences.get(app::prefs::exportFollows) ? m_follow : m_fit)->setChecked(true);
    m_framingRow = new QWidget(page);
    auto* framingLayout = new QHBoxLayout(m_framingRow);
    framingLayout->setContentsMargins(0, 0, 0, 0);
    framingLayout->addWidget(m_follow);
    framingLayout->addWidget(m_fit);
    framingLayout->addStretch(1);

    auto* form = new QFormLayout(page);
    form->setContentsMargins(0, 0, 0, 0);
    form->setHorizontalSpacing(12);
    form->setVerticalSpacing(10);
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignTop);
    form->addRow(tr("Preset"), presetBox);
    // Only Custom takes its own format and size; the other presets fix both.
    form->addRow(tr("Custom"), custom);
    custom->setToolTip(tr("The format and size of the Custom preset"));
    form->addRow(tr("Framing"), m_framingRow);

    connect(m_presets, &QButtonGroup::idToggled, this, [this](int, bool on) {
        if (on) {
            updateChoices();
        }
    });
    connect(m_format, &QComboBox::currentIndexChanged, this, [this] { updateChoices(); });
    connect(m_size, &QComboBox::currentIndexChanged, this, [this] { updateChoices(); });
}

ExportPreset ExportDialog::preset() const {
    int id = m_presets->checkedId();
    return id < 0 ? render::kDefaultExportPreset : static_cast<ExportPreset>(id);
}

render::ExportSpec ExportDialog::spec() const {
    const auto& model = m_session.model();
    const app::Preferences& preferences = m_session.studio().preferences();
    return render::exportSpec(preset(), model.edits(), model.videoSize(), m_follow->isChecked(),
                              static_cast<ExportFormat>(m_format->currentData().toInt()),
                              static_cast<ExportSize>(m_size->currentData().toInt()),
                              static_cast<int>(preferences.get(app::prefs::gifFPS)),
                              preferences.frameStyle());
}

std::string ExportDialog::fileName() const {
    return spec().fileName(m_session.model().project().metadata.title);
}

void ExportDialog::updateChoices() {
    ExportPreset chosen = preset();
    bool custom = chosen == ExportPreset::Custom;
    bool gif = static_cast<ExportFormat>(m_format->currentData().toInt()) == ExportFormat::GIF;
    m_customRow->setEnabled(custom);
    // GIFs are always held to 960 px.
    m_size->setEnabled(!gif);
    m_framingRow->setEnabled(render::offersReframe(chosen));
    m_framingRow->setToolTip(render::offersReframe(chosen)
                                 ? QString()
                                 : tr("Only tall and square presets are reframed"));
    auto size = spec().outputSize(m_session.model().videoSize());
    m_destination->setText(tr("%1 × %2 px · saved in the library’s Exports folder as “%3”")
                               .arg(size.width)
                               .arg(size.height)
                               .arg(QString::fromStdString(fileName())));
}

void ExportDialog::startExport() {
    auto destination =
        render::exportDestination(std::nullopt, m_session.studio().library().root(), fileName());
    if (!destination) {
        m_message->setText(QString::fromStdString(destination.error().message));
        return;
    }
    app::Preferences& preferences = m_session.studio().preferences();
    // A preference that does not save is no reason to refuse the export.
    (void)preferences.set(app::prefs::exportPreset, preset());
    if (render::offersReframe(preset())) {
        (void)preferences.set(app::prefs::exportFollows, m_follow->isChecked());
    }
    m_message->clear();
    if (!m_job->start(spec(), *destination)) {
        m_message->setText(tr("Wait for the export to finish."));
        return;
    }
    m_progress->setValue(0);
    m_percent->setText(tr("0 %"));
    showStage(Stage::Exporting);
}

void ExportDialog::exportEnded(const QString& error) {
    if (!error.isEmpty()) {
        // A cancel is the user's own doing, not a failure to point out.
        bool failed = error != render::kExportCancelled;
        QPalette palette = this->palette();
        if (failed) {
            palette.setColor(QPalette::WindowText, QColor(0xd0, 0x30, 0x30));
        }
        m_message->setPalette(palette);
        m_message->setText(error);
        showStage(Stage::Choosing);
        return;
    }
    m_exported = m_job->destination();
    m_file->setText(QString::fromStdString(m_exported->string()));
    showStage(Stage::Finished);
}

void ExportDialog::reject() {
    if (m_stage == Stage::Exporting) {
        m_job->cancel();
        m_cancel->setEnabled(false);
        m_percent->setText(tr("Stopping…"));
        return;
    }
    QDialog::reject();
}

void ExportDialog::showStage(Stage stage) {
    m_stage = stage;
    m_choices->setVisible(stage == Stage::Choosing);
    m_choices->setEnabled(stage == Stage::Choosing);
    m_destination->setVisible(stage != Stage::Finished);
    m_progressRow->setVisible(stage == Stage::Exporting);
    m_doneRow->setVisible(stage == Stage::Finished);
    m_showInFolder->setVisible(stage == Stage::Finished);
    m_cancel->setVisible(stage != Stage::Finished);
    m_cancel->setEnabled(true);
    m_export->setVisible(stage == Stage::Choosing);
    m_close->setVisible(stage == Stage::Finished);
    (stage == Stage::Finished ? m_close : m_export)->setDefault(true);
    if (stage == Stage::Exporting) {
        m_cancel->setFocus();
    } else if (stage == Stage::Finished) {
        m_close->setFocus();
    }
    adjustSize();
}

}  // namespace quillo::views
