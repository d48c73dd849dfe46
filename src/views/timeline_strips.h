#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include <QImage>
#include <QObject>

#include "base/cancel_token.h"
#include "base/serial_queue.h"

namespace quillo::views {

// The sound's loudness outline: the lowest and highest sample of each bucket of
// 1/bucketsPerSecond seconds, from the start of the recording.
struct SoundPeaks {
    int bucketsPerSecond = 200;
    std::vector<float> low;
    std::vector<float> high;
    float loudest = 0;  // the largest magnitude of any sample

    // Lowest and highest sample over recording seconds [t0, t1), at least the bucket holding t0;
    // {0, 0} outside the sound.
    std::pair<float, float> range(double t0, double t1) const;
    // Adds mono samples at `sampleRate` that continue the ones added so far (`added` counts
    // them and is advanced).
    void add(const float* samples, size_t count, int sampleRate, size_t& added);
};

// The filmstrip's pictures and the sound's peaks of one recording, made on the
// "app.quillo.timeline" serial queue and handed to the GUI thread as values. A newer request for
// pictures cancels the one still running. Thread: the GUI thread, except the worker's own state.
class TimelineStrips : public QObject {
    Q_OBJECT

public:
    static constexpr int kSoundRate = 8000;  // mono samples a second read for the outline
    static constexpr size_t kMaxPictures = 400;

    TimelineStrips(std::filesystem::path movie, double duration, QObject* parent = nullptr);
    ~TimelineStrips() override;

    // Asks for pictures `height` device pixels tall at recording `times` (made in that order),
    // skipping those already made. A new height drops the pictures of the old one.
    void requestFrames(const std::vector<double>& times, int height);
    // The picture made nearest to t at the current height; `exact` tells whether it is t's own.
    QImage frame(double t, bool* exact = nullptr) const;
    bool framesPending() const { return m_framesBusy; }

    // Reads the sound once (later calls do nothing).
    void requestSound();
    const SoundPeaks& peaks() const { return m_peaks; }
    bool soundReady() const { return m_soundReady; }
    // 0–1 while the sound is being read.
    double soundProgress() const { return m_soundProgress; }

signals:
    void framesChanged();
    void soundChanged();

private:
    struct Worker;
    static int64_t key(double t) { return static_cast<int64_t>(t * 1000 + 0.5); }
    void deliverFrame(int height, double t, QImage image);

    const std::filesystem::path m_movie;
    const double m_duration;
    int m_height = 0;
    std::map<int64_t, QImage> m_pictures;  // by milliseconds, at m_height
    bool m_framesBusy = false;
    int m_generation = 0;  // of the latest request for pictures
    CancelToken m_framesCancel;
    CancelToken m_soundCancel;
    bool m_soundRequested = false;
    bool m_soundReady = false;
    double m_soundProgress = 0;
    SoundPeaks m_peaks;
    std::shared_ptr<Worker> m_worker;  // used only by the queue's tasks
    SerialQueue m_frameQueue{"app.quillo.timeline"};
    SerialQueue m_soundQueue{"app.quillo.timeline.sound"};
};

}  // namespace quillo::views
