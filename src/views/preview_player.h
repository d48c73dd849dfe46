#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "preview_renderer.h"
#include "project/edits.h"

namespace quillo::views {

// The engine behind the editor's preview, without widgets: renders the finished picture of one
// recording at the playhead (the latest request wins) and plays it in real time through the
// recipe's kept time, with the finished video's sound leading the picture when there is sound.
//
// Threads: the render thread decodes and composites (stills, and playback a few frames ahead);
// the clock thread hands playback frames out when they are due and drops late ones; a sound
// thread per playback feeds the sound server. The public functions may be called from any one
// thread (the GUI thread); the listener is called on the player's threads, never after the
// destructor returned.
class PreviewPlayer {
public:
    using Recipe = PreviewRecipe;
    using Frame = PreviewFrame;
    struct Listener {
        std::function<void(std::shared_ptr<const Frame>)> frame;  // show this now
        std::function<void(double fps)> planned;                  // the recording's frame rate
        std::function<void(double t)> ended;  // playback reached its end at recording time t
        std::function<void(const std::string& message)> failed;
    };
    // Playback figures since the last reset.
    struct Counters {
        int64_t shown = 0;
        int64_t dropped = 0;  // late frames skipped, rendered or not
    };

    explicit PreviewPlayer(Listener listener);
    ~PreviewPlayer();
    PreviewPlayer(const PreviewPlayer&) = delete;
    PreviewPlayer& operator=(const PreviewPlayer&) = delete;

    // Replaces the recipe (the plan is rebuilt before the next frame).
    void setRecipe(Recipe recipe);
    // Shows the frame at recording time t, stopping playback.
    void showFrame(double t);
    // Plays from recording time t at `rate` times real time (negative: backwards). Only normal
    // speed plays sound.
    void play(double t, double rate);
    void stop();
    bool playing() const;

    Counters counters() const;
    void resetCounters();

private:
    struct Item {
        uint64_t run = 0;
        double due = 0;     // seconds of playback clock
        double length = 0;  // seconds the frame stays on screen
        std::shared_ptr<const Frame> frame;
        std::optional<double> end;  // the end marker: recording time playback stops at
    };
    struct Run;

    void renderLoop();
    // Render thread steps: a still frame, the start of a playback, its next frame.
    void renderStill(double t);
    void startRun(Run& run, double from, double rate);
    void renderNext(Run& run);
    void clockLoop();
    void soundLoop(uint64_t run, std::filesystem::path movie,
                   std::vector<project::TimeSegment> pieces);
    // The playback clock in seconds since the first frame; call with m_mutex held.
    double clockNow() const;
    void startClock();
    void switchToWallClock();

    Listener m_listener;
    std::unique_ptr<PreviewRenderer> m_renderer;  // render thread only

    mutable std::mutex m_mutex;
    std::condition_variable m_renderWake;
    std::condition_variable m_clockWake;
    // Guarded by m_mutex:
    bool m_quit = false;
    std::optional<Recipe> m_recipe;    // a new recipe to plan
    std::optional<double> m_still;     // a still frame to render
    std::optional<double> m_playFrom;  // a playback to start, at this recording time
    double m_rate = 1;
    uint64_t m_run = 0;  // playback in progress (counts up with every start and stop)
    bool m_playing = false;
    std::deque<Item> m_queue;  // rendered ahead, in order
    bool m_clockStarted = false;
    bool m_soundClock = false;  // the sound leads; else the wall clock
    std::chrono::steady_clock::time_point m_wallStart;
    double m_wallOffset = 0;
    double m_soundPosition = 0;  // seconds heard, as of m_soundStamp
    std::chrono::steady_clock::time_point m_soundStamp;
    bool m_soundGo = false;

    std::atomic<int64_t> m_shown{0};
    std::atomic<int64_t> m_dropped{0};

    std::thread m_soundThread;  // started and joined by the render thread
    std::thread m_renderThread;
    std::thread m_clockThread;
};

}  // namespace quillo::views
