#include "export_job.h"

#include <algorithm>

#include <QCoreApplication>
#include <QThreadPool>

#include "render/exporter.h"

namespace quillo::views {

namespace {

// Runs `task` on the GUI thread.
template <class F>
void onGui(F&& task) {
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::forward<F>(task),
                              Qt::QueuedConnection);
}

}  // namespace

ExportJob::ExportJob(EditorSession& session, QObject* parent)
    : QObject(parent), m_session(&session) {}

ExportJob::~ExportJob() { m_cancel.cancel(); }

bool ExportJob::start(const render::ExportSpec& spec, const std::filesystem::path& destination) {
    if (m_running || !m_session || m_session->model().exporting()) {
        return false;
    }
    m_cancel = CancelToken();
    m_destination = destination;
    m_running = true;
    m_session->model().setExporting(true);

    std::filesystem::path folder = m_session->model().project().directory;
    QPointer<ExportJob> job(this);
    QPointer<EditorSession> session = m_session;
    CancelToken cancel = m_cancel;
    // Only whole percents cross to the GUI thread: the exporter reports every frame.
    auto shown = std::make_shared<std::atomic<int>>(-1);
    auto progress = [job, shown](double fraction) {
        int percent = std::clamp(static_cast<int>(fraction * 100), 0, 100);
        if (shown->exchange(percent) != percent) {
            onGui([job, percent] {
                if (job && job->m_running) {
                    emit job->progressed(percent);
                }
            });
        }
    };
    QThreadPool::globalInstance()->start(
        [folder, spec, destination, progress, cancel, job, session] {
            QString error;
            auto done = render::exportRecording(folder, spec, destination, progress, cancel);
            if (!done) {
                error = QString::fromStdString(done.error().message);
            }
            onGui([job, session, error] {
                if (session) {
                    session->model().setExporting(false);
                }
                if (job) {
                    job->end(error);
                }
            });
        });
    return true;
}

void ExportJob::cancel() { m_cancel.cancel(); }

void ExportJob::end(const QString& error) {
    m_running = false;
    emit finished(error);
}

}  // namespace quillo::views
