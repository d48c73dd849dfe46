#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "base/app_error.h"
#include "base/cancel_token.h"
#include "base/result.h"
#include "caption_transcriber.h"

namespace quillo::captions {

// Runs transcriptions in the background, one at a time per recording, and saves each finished
// track as the recording's "captions.json". Thread-safe.
class CaptionJobs {
public:
    // Called on the job's thread when it ends: the saved track, or why there is none.
    using Done = std::function<void(const Result<CaptionTrack>&)>;

    explicit CaptionJobs(std::shared_ptr<SpeechEngine> engine = nullptr);
    // Stops every job and waits for them.
    ~CaptionJobs();
    CaptionJobs(const CaptionJobs&) = delete;
    CaptionJobs& operator=(const CaptionJobs&) = delete;

    // Starts transcribing `movie` into the captions of project `folder`. Error "Transcribing
    // now." while this recording's job still runs.
    Result<void> start(const std::string& id, const std::filesystem::path& movie,
                       const std::filesystem::path& folder, const std::string& locale,
                       Done onDone = nullptr, TranscriptionProgress progress = nullptr);
    // Asks the recording's job to stop; it ends with "Transcription was stopped.".
    void stop(const std::string& id);
    bool isRunning(const std::string& id) const;
    // The error of the recording's last finished job; none after a success or before any job.
    std::optional<AppError> error(const std::string& id) const;

private:
    struct Job {
        std::thread thread;
        CancelToken cancel;
        bool running = false;
        std::optional<AppError> error;
    };

    CaptionTranscriber m_transcriber;
    mutable std::mutex m_mutex;
    std::map<std::string, Job> m_jobs;
};

}  // namespace quillo::captions
