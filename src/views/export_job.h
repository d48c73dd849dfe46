#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>

#include <QObject>
#include <QPointer>

#include "base/cancel_token.h"
#include "editor_session.h"
#include "render/export_preset.h"

namespace quillo::views {

// One export of an open recording, written on a worker thread. While it runs the model is
// marked as exporting, so edits are refused; that mark is lifted when the worker ends, even when
// the job itself is gone by then. Signals arrive on the GUI thread. GUI thread only.
class ExportJob : public QObject {
    Q_OBJECT

public:
    explicit ExportJob(EditorSession& session, QObject* parent = nullptr);
    // Cancels a running export; the worker finishes on its own and leaves nothing.
    ~ExportJob() override;

    // Starts writing `spec` of the session's recording to `destination`. False (and nothing
    // started) when an export of this recording already runs.
    bool start(const render::ExportSpec& spec, const std::filesystem::path& destination);
    void cancel();
    bool running() const { return m_running; }
    const std::filesystem::path& destination() const { return m_destination; }

signals:
    // Whole percent written, 0–100, each value once.
    void progressed(int percent);
    // The export ended: `error` is empty when the file is complete at destination(), else the
    // exporter's message (the cancelled message when cancelled).
    void finished(const QString& error);

private:
    void end(const QString& error);

    QPointer<EditorSession> m_session;
    CancelToken m_cancel;
    std::filesystem::path m_destination;
    bool m_running = false;
};

}  // namespace quillo::views
