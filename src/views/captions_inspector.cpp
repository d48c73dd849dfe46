#include "captions_inspector.h"

#include <QApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

#include "analysis_parts.h"
#include "captions/caption_jobs.h"
#include "captions/caption_texts.h"
#include "captions/caption_transcriber.h"
#include "captions_line_list.h"
#include "captions_style_form.h"

namespace quillo::views {

namespace {

// How often the section looks for a transcription started elsewhere, in milliseconds. The jobs
// report only to whoever started them.
constexpr int kPollInterval = 400;

QLabel* heading(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setBold(true);
    label->setFont(font);
    return label;
}

}  // namespace

CaptionsInspector::CaptionsInspector(EditorSession& session, QWidget* parent)
    : QWidget(parent), m_session(session) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);

    auto* generateRow = new QHBoxLayout;
    generateRow->setSpacing(8);
    m_generate = new QPushButton(QStringLiteral("Generate Captions"), this);
    m_generate->setAccessibleName(QStringLiteral("Generate captions"));
    m_generate->setAccessibleDescription(
        QStringLiteral("Transcribes the recording's speech on this computer. Replaces the "
                       "captions it has."));
    generateRow->addWidget(m_generate);
    generateRow->addStretch(1);
    layout->addLayout(generateRow);
    m_language = new QLabel(this);
    m_language->setForegroundRole(QPalette::PlaceholderText);
    m_language->setWordWrap(true);
    layout->addWidget(m_language);

    m_progress = new ProgressRow(QStringLiteral("Transcription"), QStringLiteral("Stop"), this);
    layout->addWidget(m_progress);

    layout->addWidget(heading(QStringLiteral("Lines"), this));
    m_lines = new CaptionLineList(session, this);
    layout->addWidget(m_lines, 1);

    layout->addWidget(heading(QStringLiteral("Style"), this));
    m_style = new CaptionStyleForm(session, this);
    layout->addWidget(m_style);

    connect(m_generate, &QPushButton::clicked, this, &CaptionsInspector::generate);
    connect(m_progress, &ProgressRow::stopRequested, this, &CaptionsInspector::stop);
    connect(m_lines, &CaptionLineList::failed, this, &CaptionsInspector::showError);
    connect(m_style, &CaptionStyleForm::failed, this, &CaptionsInspector::showError);

    m_poll = new QTimer(this);
    m_poll->setInterval(kPollInterval);
    connect(m_poll, &QTimer::timeout, this, &CaptionsInspector::pollJob);
    m_poll->start();

    const std::string locale = session.studio().captionLanguage();
    m_language->setText(
        QStringLiteral("Speech in %1, transcribed on this computer.")
            .arg(QString::fromStdString(captions::CaptionTranscriber::languageName(locale))));
    pollJob();
}

void CaptionsInspector::generate() {
    auto& jobs = m_session.studio().captionJobs();
    const auto& project = m_session.model().project();
    QPointer<CaptionsInspector> self(this);
    // Both callbacks run on the job's thread; what they carry is handed to the GUI thread.
    auto progress = [self](const std::string& status, std::optional<double> fraction) {
        QMetaObject::invokeMethod(
            qApp,
            [self, status = QString::fromStdString(status), fraction] {
                if (self && self->m_ownJob) {
                    self->showProgress(status, fraction);
                }
            },
            Qt::QueuedConnection);
    };
    auto done = [self](const Result<captions::CaptionTrack>& track) {
        QMetaObject::invokeMethod(
            qApp,
            [self, track] {
                if (self) {
                    self->finished(track);
                }
            },
            Qt::QueuedConnection);
    };
    m_progress->setMessage({});
    auto started = jobs.start(m_session.id(), project.recordingFile(), project.directory,
                              m_session.studio().captionLanguage(), done, progress);
    if (!started) {
        showError(QString::fromStdString(started.error().message));
        return;
    }
    m_ownJob = true;
    m_jobRunning = true;
    m_generate->setEnabled(false);
    showProgress(QString::fromUtf8(captions::texts::kPreparingAudio), std::nullopt);
}

void CaptionsInspector::stop() { m_session.studio().captionJobs().stop(m_session.id()); }

void CaptionsInspector::pollJob() {
    auto& jobs = m_session.studio().captionJobs();
    const bool running = jobs.isRunning(m_session.id());
    if (m_ownJob || running == m_jobRunning) {
        return;
    }
    m_jobRunning = running;
    m_generate->setEnabled(!running);
    if (running) {
        // Started elsewhere: its progress goes to whoever started it, so the bar only shows
        // that it runs.
        m_progress->setMessage({});
        showProgress(QString::fromUtf8(captions::texts::kTranscribing), std::nullopt);
        return;
    }
    m_progress->hideProgress();
    m_session.reloadSideFiles();
    if (auto error = jobs.error(m_session.id())) {
        showError(QString::fromStdString(error->message));
    }
}

void CaptionsInspector::showProgress(const QString& status, std::optional<double> fraction) {
    m_progress->showProgress(status, fraction);
}

void CaptionsInspector::finished(const Result<captions::CaptionTrack>& track) {
    m_ownJob = false;
    m_jobRunning = false;
    m_generate->setEnabled(true);
    m_progress->hideProgress();
    if (!track) {
        showError(QString::fromStdString(track.error().message));
        return;
    }
    // The job saved the track; the folder watcher may not have seen it yet.
    m_session.reloadSideFiles();
    editor::EditorModel& model = m_session.model();
    project::Edits candidate = model.edits();
    project::CaptionStyle style = candidate.captions.value_or(project::CaptionStyle{});
    if (!(candidate.captions && style.visible)) {
        style.visible = true;
        candidate.captions = style;
        if (!model.commit(std::move(candidate), editor::Rebuild::No)) {
            showError(QString::fromStdString(model.status()));
            return;
        }
    }
    const size_t count = track->segments.size();
    m_progress->setMessage(count == 1 ? QStringLiteral("1 caption line.")
                                      : QStringLiteral("%1 caption lines.").arg(count));
}

void CaptionsInspector::showError(const QString& text) { m_progress->setMessage(text, true); }

}  // namespace quillo::views
