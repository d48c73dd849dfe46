#include "timeline_strips.h"

#include <algorithm>
#include <cmath>

#include <QPointer>

#include "base/log.h"
#include "base/main_queue.h"
#include "media/movie_reader.h"

namespace quillo::views {

// --- SoundPeaks

std::pair<float, float> SoundPeaks::range(double t0, double t1) const {
    if (low.empty() || !(t1 >= t0)) {
        return {0, 0};
    }
    auto first = static_cast<int64_t>(std::floor(t0 * bucketsPerSecond));
    auto last = static_cast<int64_t>(std::ceil(t1 * bucketsPerSecond));
    last = std::max(last, first + 1);
    first = std::max<int64_t>(first, 0);
    last = std::min<int64_t>(last, static_cast<int64_t>(low.size()));
    if (first >= last) {
        return {0, 0};
    }
    float lo = low[first];
    float hi = high[first];
    for (int64_t i = first + 1; i < last; ++i) {
        lo = std::min(lo, low[i]);
        hi = std::max(hi, high[i]);
    }
    return {lo, hi};
}

void SoundPeaks::add(const float* samples, size_t count, int sampleRate, size_t& added) {
    for (size_t i = 0; i < count; ++i, ++added) {
        auto bucket = static_cast<size_t>(added * static_cast<uint64_t>(bucketsPerSecond) /
                                          static_cast<uint64_t>(sampleRate));
        if (bucket >= low.size()) {
            low.resize(bucket + 1, samples[i]);
            high.resize(bucket + 1, samples[i]);
        }
        loudest = std::max(loudest, std::abs(samples[i]));
        low[bucket] = std::min(low[bucket], samples[i]);
        high[bucket] = std::max(high[bucket], samples[i]);
    }
}

// --- TimelineStrips

// The reader lives on the frame queue and is opened by its first task.
struct TimelineStrips::Worker {
    std::unique_ptr<media::MovieReader> reader;
    bool failed = false;
};

TimelineStrips::TimelineStrips(std::filesystem::path movie, double duration, QObject* parent)
    : QObject(parent),
      m_movie(std::move(movie)),
      m_duration(duration),
      m_worker(std::make_shared<Worker>()) {}

TimelineStrips::~TimelineStrips() {
    // The queues' destructors run what is queued; cancelled tasks return at once.
    m_framesCancel.cancel();
    m_soundCancel.cancel();
}

void TimelineStrips::requestFrames(const std::vector<double>& times, int height) {
    if (height <= 0) {
        return;
    }
    if (height != m_height) {
        m_pictures.clear();
        m_height = height;
    }
    std::vector<double> wanted;
    for (double t : times) {
        if (!m_pictures.count(key(t))) {
            wanted.push_back(t);
        }
    }
    m_framesCancel.cancel();
    m_framesCancel = CancelToken();
    m_framesBusy = !wanted.empty();
    if (wanted.empty()) {
        return;
    }
    QPointer<TimelineStrips> self(this);
    m_frameQueue.post([self, worker = m_worker, cancel = m_framesCancel, movie = m_movie,
                       wanted = std::move(wanted), height, generation = ++m_generation] {
        if (!worker->reader && !worker->failed) {
            auto opened = media::MovieReader::open(movie, media::DecodeMode::Fast);
            if (opened) {
                worker->reader = std::move(*opened);
            } else {
                worker->failed = true;
                logError("timeline", opened.error().message);
            }
        }
        for (double t : wanted) {
            if (cancel.isCancelled() || !worker->reader) {
                break;
            }
            auto frame = worker->reader->frame(t, {0, height, media::PixelFormat::BGRA});
            if (!frame) {
                continue;
            }
            QImage image(frame->pixels.data(), frame->width, frame->height, frame->stride,
                         QImage::Format_ARGB32);
            MainQueue::shared().post([self, height, t, image = image.copy()]() mutable {
                if (self) {
                    self->deliverFrame(height, t, std::move(image));
                }
            });
        }
        MainQueue::shared().post([self, generation] {
            if (self && self->m_generation == generation) {
                self->m_framesBusy = false;
            }
        });
    });
}

void TimelineStrips::deliverFrame(int height, double t, QImage image) {
    if (height != m_height) {
        return;
    }
    if (m_pictures.size() >= kMaxPictures) {
        // Drop the picture farthest from the new one: the view has moved on from it.
        auto far = std::max_element(m_pictures.begin(), m_pictures.end(),
                                    [k = key(t)](const auto& a, const auto& b) {
                                        return std::llabs(a.first - k) < std::llabs(b.first - k);
                                    });
        m_pictures.erase(far);
    }
    m_pictures[key(t)] = std::move(image);
    emit framesChanged();
}

QImage TimelineStrips::frame(double t, bool* exact) const {
    if (exact) {
        *exact = false;
    }
    if (m_pictures.empty()) {
        return {};
    }
    int64_t k = key(t);
    auto after = m_pictures.lower_bound(k);
    auto best = after;
    if (after == m_pictures.end() ||
        (after != m_pictures.begin() && k - std::prev(after)->first < after->first - k)) {
        best = std::prev(after);
    }
    if (exact) {
        *exact = best->first == k;
    }
    return best->second;
}

void TimelineStrips::requestSound() {
    if (m_soundRequested) {
        return;
    }
    m_soundRequested = true;
    QPointer<TimelineStrips> self(this);
    m_soundQueue.post([self, cancel = m_soundCancel, movie = m_movie, duration = m_duration] {
        SoundPeaks peaks;
        size_t added = 0;
        double total = std::max(duration, 0.001) * kSoundRate;
        double reported = 0;
        auto read = media::MovieReader::readSound(
            movie, {kSoundRate, 1}, 0, duration, [&](const float* samples, size_t frames) {
                peaks.add(samples, frames, kSoundRate, added);
                double progress = std::min(1.0, static_cast<double>(added) / total);
                if (progress - reported >= 0.05) {
                    reported = progress;
                    MainQueue::shared().post([self, progress] {
                        if (self) {
                            self->m_soundProgress = progress;
                            emit self->soundChanged();
                        }
                    });
                }
                return !cancel.isCancelled();
            });
        if (!read) {
            logError("timeline", read.error().message);
        }
        MainQueue::shared().post([self, peaks = std::move(peaks)]() mutable {
            if (self) {
                self->m_peaks = std::move(peaks);
                self->m_soundReady = true;
                self->m_soundProgress = 1;
                emit self->soundChanged();
            }
        });
    });
}

}  // namespace quillo::views
