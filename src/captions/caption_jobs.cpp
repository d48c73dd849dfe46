#include "caption_jobs.h"

#include "caption_texts.h"

namespace quillo::captions {

CaptionJobs::CaptionJobs(std::shared_ptr<SpeechEngine> engine) : m_transcriber(std::move(engine)) {}

CaptionJobs::~CaptionJobs() {
    std::map<std::string, Job> jobs;
    {
        std::lock_guard lock(m_mutex);
        for (auto& [id, job] : m_jobs) {
            job.cancel.cancel();
        }
        jobs.swap(m_jobs);
    }
    for (auto& [id, job] : jobs) {
        if (job.thread.joinable()) {
            job.thread.join();
        }
    }
}

Result<void> CaptionJobs::start(const std::string& id, const std::filesystem::path& movie,
                                const std::filesystem::path& folder, const std::string& locale,
                                Done onDone, TranscriptionProgress progress) {
    std::thread finished;
    {
        std::lock_guard lock(m_mutex);
        Job& job = m_jobs[id];
        if (job.running) {
            return AppError(texts::kTranscribingNow);
        }
        finished = std::move(job.thread);
        job = Job{};
        job.running = true;
        CancelToken cancel = job.cancel;
        job.thread = std::thread([this, id, movie, folder, locale, cancel,
                                  onDone = std::move(onDone), progress = std::move(progress)] {
            Result<CaptionTrack> track = m_transcriber.transcribe(movie, locale, progress, cancel);
            if (track) {
                if (auto saved = track->save(folder); !saved) {
                    track = saved.error();
                }
            }
            {
                std::lock_guard lock(m_mutex);
                Job& job = m_jobs[id];
                job.running = false;
                job.error = track ? std::nullopt : std::optional<AppError>(track.error());
            }
            if (onDone) {
                onDone(track);
            }
        });
    }
    // The previous job of this recording has ended; its thread only has to be collected (unless
    // this call comes from that very thread, from its onDone).
    if (finished.joinable()) {
        if (finished.get_id() == std::this_thread::get_id()) {
            finished.detach();
        } else {
            finished.join();
        }
    }
    return {};
}

void CaptionJobs::stop(const std::string& id) {
    std::lock_guard lock(m_mutex);
    if (auto found = m_jobs.find(id); found != m_jobs.end() && found->second.running) {
        found->second.cancel.cancel();
    }
}

bool CaptionJobs::isRunning(const std::string& id) const {
    std::lock_guard lock(m_mutex);
    auto found = m_jobs.find(id);
    return found != m_jobs.end() && found->second.running;
}

std::optional<AppError> CaptionJobs::error(const std::string& id) const {
    std::lock_guard lock(m_mutex);
    auto found = m_jobs.find(id);
    return found == m_jobs.end() ? std::nullopt : found->second.error;
}

}  // namespace quillo::captions
