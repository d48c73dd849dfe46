#include "preview_player.h"

#include <algorithm>
#include <cmath>

#include "media/movie_writer.h"
#include "playback_sound.h"
#include "render/piece_sound.h"

namespace quillo::views {

namespace {

using Clock = std::chrono::steady_clock;

// Frames rendered ahead of the one on screen: enough to ride out a slow frame, few enough that a
// stop or a recipe change is seen at once.
constexpr size_t kQueueLength = 3;
// The sound thread hands the server this many sample frames at a time (20 ms).
constexpr int64_t kSoundChunk = 960;
// Between two reports of the sound's position the clock runs on by the wall clock, but never
// further than this past the last report (a stalled server stops the picture too).
constexpr double kSoundCoast = 0.1;

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

// The kept pieces of the recording from output time `from` on, the first one cut to start there.
std::vector<project::TimeSegment> piecesFrom(const project::TimeMap& map, double from) {
    std::vector<project::TimeSegment> pieces;
    for (const auto& entry : map.entries()) {
        project::TimeSegment piece = entry.piece;
        double length = (piece.end - piece.start) / piece.speed;
        if (entry.output + length <= from) {
            continue;
        }
        if (entry.output < from) {
            piece.start += (from - entry.output) * piece.speed;
        }
        pieces.push_back(piece);
    }
    return pieces;
}

}  // namespace

// One playback as the render thread runs it: output times u0 + rate · k / fps for k = 0, 1, …
struct PreviewPlayer::Run {
    uint64_t id = 0;
    double start = 0;  // output seconds
    double rate = 1;
    double fps = 30;
    double duration = 0;  // of the finished video
    int64_t next = 0;     // the next frame to render
    bool done = false;
};

PreviewPlayer::PreviewPlayer(Listener listener)
    : m_listener(std::move(listener)), m_renderer(std::make_unique<PreviewRenderer>()) {
    m_renderThread = std::thread([this] { renderLoop(); });
    m_clockThread = std::thread([this] { clockLoop(); });
}

PreviewPlayer::~PreviewPlayer() {
    {
        std::lock_guard lock(m_mutex);
        m_quit = true;
        ++m_run;
    }
    m_renderWake.notify_all();
    m_clockWake.notify_all();
    m_renderThread.join();
    m_clockThread.join();
    if (m_soundThread.joinable()) {
        m_soundThread.join();
    }
}

void PreviewPlayer::setRecipe(Recipe recipe) {
    {
        std::lock_guard lock(m_mutex);
        m_recipe = std::move(recipe);
    }
    m_renderWake.notify_all();
}

void PreviewPlayer::showFrame(double t) {
    {
        std::lock_guard lock(m_mutex);
        if (m_playing || m_playFrom) {
            ++m_run;
            m_playing = false;
            m_playFrom.reset();
            m_queue.clear();
        }
        m_still = t;
    }
    m_renderWake.notify_all();
    m_clockWake.notify_all();
}

void PreviewPlayer::play(double t, double rate) {
    {
        std::lock_guard lock(m_mutex);
        ++m_run;
        m_queue.clear();
        m_still.reset();
        m_playFrom = t;
        m_rate = rate == 0 ? 1 : rate;
        m_playing = true;
        m_clockStarted = false;
    }
    m_renderWake.notify_all();
    m_clockWake.notify_all();
}

void PreviewPlayer::stop() {
    {
        std::lock_guard lock(m_mutex);
        ++m_run;
        m_playing = false;
        m_playFrom.reset();
        m_queue.clear();
    }
    m_renderWake.notify_all();
    m_clockWake.notify_all();
}

bool PreviewPlayer::playing() const {
    std::lock_guard lock(m_mutex);
    return m_playing;
}

PreviewPlayer::Counters PreviewPlayer::counters() const { return {m_shown, m_dropped}; }

void PreviewPlayer::resetCounters() {
    m_shown = 0;
    m_dropped = 0;
}

double PreviewPlayer::clockNow() const {
    if (!m_clockStarted) {
        return 0;
    }
    const auto now = Clock::now();
    if (m_soundClock) {
        return m_soundPosition + std::min(seconds(now - m_soundStamp), kSoundCoast);
    }
    return m_wallOffset + seconds(now - m_wallStart);
}

void PreviewPlayer::startClock() {
    m_clockStarted = true;
    m_wallStart = m_soundStamp = Clock::now();
    m_wallOffset = m_soundPosition = 0;
    m_soundGo = true;
}

void PreviewPlayer::switchToWallClock() {
    if (!m_soundClock) {
        return;
    }
    m_wallOffset = clockNow();
    m_wallStart = Clock::now();
    m_soundClock = false;
}

void PreviewPlayer::renderLoop() {
    Run run;
    run.done = true;
    for (;;) {
        std::optional<Recipe> recipe;
        std::optional<double> still;
        std::optional<double> playFrom;
        double rate = 1;
        {
            std::unique_lock lock(m_mutex);
            m_renderWake.wait(lock, [&] {
                return m_quit || m_recipe || m_still || m_playFrom ||
                       (m_playing && run.id == m_run && !run.done && m_queue.size() < kQueueLength);
            });
            if (m_quit) {
                break;
            }
            recipe = std::exchange(m_recipe, std::nullopt);
            still = std::exchange(m_still, std::nullopt);
            playFrom = std::exchange(m_playFrom, std::nullopt);
            rate = m_rate;
            if (playFrom) {
                run = Run{};
                run.id = m_run;
            }
        }
        if (recipe) {
            if (auto planned = m_renderer->setRecipe(*recipe); !planned) {
                m_listener.failed(planned.error().message);
            } else if (m_listener.planned) {
                m_listener.planned(m_renderer->plan().sourceFPS);
            }
        }
        if (!m_renderer->ready()) {
            std::lock_guard lock(m_mutex);
            run.done = true;
            continue;
        }
        if (still) {
            renderStill(*still);
            continue;
        }
        if (playFrom) {
            startRun(run, *playFrom, rate);
        }
        if (!run.done) {
            renderNext(run);
        }
    }
    if (m_soundThread.joinable()) {
        m_soundThread.join();
    }
}

void PreviewPlayer::renderStill(double t) {
    // Far from the last frame, the keyframe before it shows first, while the frame itself
    // decodes (skipped when a newer request has come in by then).
    if (m_renderer->far(t)) {
        if (auto key = m_renderer->renderKeyFrame(t); key && (*key)->time != t) {
            m_listener.frame(*key);
            std::lock_guard lock(m_mutex);
            if (m_still || m_playFrom || m_recipe || m_quit) {
                return;
            }
        }
    }
    auto frame = m_renderer->render(t);
    if (!frame) {
        m_listener.failed(frame.error().message);
    } else {
        m_listener.frame(*frame);
    }
}

void PreviewPlayer::startRun(Run& run, double from, double rate) {
    const render::RenderPlan& plan = m_renderer->plan();
    run.start = std::clamp(plan.renderer->edits().outputTime(from), 0.0, plan.duration);
    run.rate = rate;
    run.fps = plan.sourceFPS;
    run.duration = plan.duration;
    // From the very end forwards (or the very start backwards) plays it all again.
    if (rate > 0 && run.start >= run.duration - 0.5 / run.fps) {
        run.start = 0;
    } else if (rate < 0 && run.start <= 0.5 / run.fps) {
        run.start = run.duration;
    }
    if (m_soundThread.joinable()) {
        m_soundThread.join();
    }
    const bool sound = rate == 1 && plan.hasSound;
    {
        std::lock_guard lock(m_mutex);
        m_soundClock = sound;
        m_soundGo = false;
    }
    if (sound) {
        m_soundThread = std::thread(&PreviewPlayer::soundLoop, this, run.id, plan.movie,
                                    piecesFrom(*plan.map, run.start));
    }
}

void PreviewPlayer::renderNext(Run& run) {
    const render::RenderPlan& plan = m_renderer->plan();
    // The next frame, skipping those that would be late already (they count as dropped).
    int64_t k = run.next;
    {
        std::lock_guard lock(m_mutex);
        if (run.id != m_run) {
            return;
        }
        if (m_clockStarted) {
            const int64_t due = static_cast<int64_t>(std::floor(clockNow() * run.fps));
            if (k < due) {
                m_dropped += due + 1 - k;
                k = due + 1;
            }
        }
    }
    const double u = run.start + run.rate * static_cast<double>(k) / run.fps;
    Item item;
    item.run = run.id;
    item.due = static_cast<double>(k) / run.fps;
    item.length = 1 / run.fps;
    if ((run.rate > 0 && u >= run.duration - 1e-9) || (run.rate < 0 && u <= 1e-9)) {
        item.end = plan.map->source(run.rate > 0 ? run.duration : 0);
        run.done = true;
    } else {
        auto frame = m_renderer->render(plan.map->source(u));
        if (!frame) {
            m_listener.failed(frame.error().message);
            item.end = plan.map->source(u);
            run.done = true;
        } else {
            (*frame)->playing = true;
            item.frame = *frame;
        }
    }
    run.next = k + 1;
    {
        std::lock_guard lock(m_mutex);
        if (run.id == m_run) {
            m_queue.push_back(std::move(item));
        }
    }
    m_clockWake.notify_all();
}

void PreviewPlayer::clockLoop() {
    std::unique_lock lock(m_mutex);
    while (!m_quit) {
        if (m_queue.empty()) {
            m_clockWake.wait(lock);
            continue;
        }
        if (m_queue.front().run != m_run) {
            m_queue.pop_front();
            continue;
        }
        if (!m_clockStarted) {
            startClock();
        }
        const double now = clockNow();
        const Item& front = m_queue.front();
        if (front.due > now) {
            // The sound clock moves without telling: look again every few milliseconds.
            const double wait = std::min(front.due - now, m_soundClock ? 0.004 : 0.05);
            m_clockWake.wait_for(lock, std::chrono::duration<double>(wait));
            continue;
        }
        Item item = std::move(m_queue.front());
        m_queue.pop_front();
        m_renderWake.notify_all();
        if (item.end) {
            m_playing = false;
            ++m_run;
            lock.unlock();
            m_listener.ended(*item.end);
            lock.lock();
            continue;
        }
        if (now - item.due > item.length && !m_queue.empty()) {
            ++m_dropped;
            continue;
        }
        ++m_shown;
        lock.unlock();
        m_listener.frame(item.frame);
        lock.lock();
    }
}

void PreviewPlayer::soundLoop(uint64_t run, std::filesystem::path movie,
                              std::vector<project::TimeSegment> pieces) {
    auto stillRunning = [&] { return !m_quit && m_run == run; };
    auto device = PlaybackSound::open(media::kMovieSampleRate, media::kMovieChannels);
    std::unique_lock lock(m_mutex);
    if (!device) {
        if (m_run == run) {
            switchToWallClock();
        }
        return;
    }
    while (stillRunning() && !m_soundGo) {
        m_clockWake.wait_for(lock, std::chrono::milliseconds(5));
    }
    lock.unlock();
    int64_t total = 0;
    for (const auto& piece : pieces) {
        total += std::llround((piece.end - piece.start) / piece.speed * media::kMovieSampleRate);
    }
    render::PieceSound sound(std::move(movie), std::move(pieces), media::kMovieSampleRate,
                             media::kMovieChannels);
    bool failed = false;
    auto sink = [&](const float* samples, size_t frames) -> Result<void> {
        if (!device->write(samples, frames)) {
            failed = true;
            return AppError("The sound server went away.");
        }
        double position = device->position();
        std::lock_guard guard(m_mutex);
        if (m_run == run) {
            m_soundPosition = position;
            m_soundStamp = Clock::now();
        }
        return {};
    };
    int64_t produced = 0;
    for (;;) {
        {
            std::lock_guard guard(m_mutex);
            if (!stillRunning()) {
                break;
            }
        }
        if (produced >= total) {
            break;
        }
        produced = std::min(produced + kSoundChunk, total);
        if (!sound.produceUntil(produced, sink) || failed) {
            break;
        }
    }
    lock.lock();
    if (m_run == run) {
        // Out of sound (or of a server): the picture carries on by the wall clock.
        switchToWallClock();
    } else {
        lock.unlock();
        device->flush();
    }
}

}  // namespace quillo::views
