#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "json.h"
#include "result.h"
#include "task_queue.h"

namespace quillo {

// The user's settings as one JSON object of key → value in a file (preferences.json), the
// typed layer being app/Preferences. Reads come from memory; every change writes the whole file
// atomically. With watching on, a rewrite of the file by another process is read back and the
// observers are told. Reads and writes are safe from any thread; observers run on the thread that
// changed a value, or on the watch queue for changes from outside.
class PreferenceStore {
public:
    using ObserverId = int;

    // Loads `file` now. A missing, unreadable or malformed file reads as no settings (and is
    // replaced by the next change).
    explicit PreferenceStore(std::filesystem::path file);
    ~PreferenceStore();
    PreferenceStore(const PreferenceStore&) = delete;
    PreferenceStore& operator=(const PreferenceStore&) = delete;

    const std::filesystem::path& file() const { return m_file; }

    std::optional<Json> value(std::string_view key) const;
    // Every stored entry, as one JSON object.
    Json entries() const;

    // Stores `value` under `key` (null removes the key) and writes the file. On a write failure
    // the value in memory is kept as it was, and the error returned.
    Result<void> set(std::string_view key, Json value);
    Result<void> remove(std::string_view key) { return set(key, nullptr); }
    // Stores several entries in one write (used when settings are copied from elsewhere).
    Result<void> merge(const Json& entries);

    // Re-reads the file; tells the observers when the entries changed. Returns whether they did.
    bool reload();

    ObserverId addObserver(std::function<void()> observer);
    void removeObserver(ObserverId id);

    // Starts watching the file's folder (inotify) for rewrites by other processes; reloads are
    // run on `queue` (the main queue in the app). Creates the folder when missing.
    Result<void> startWatching(TaskQueue& queue);
    void stopWatching();

private:
    // Applies `change` to a copy of the entries; when that differs, writes it and tells the
    // observers. The entries in memory change only once the file is written.
    Result<void> update(const std::function<void(Json&)>& change);
    Result<void> write(const Json& entries);
    void notify();
    void watchLoop(int inotifyFd, int stopFd, TaskQueue* queue);

    const std::filesystem::path m_file;
    // Guarded by m_mutex:
    mutable std::mutex m_mutex;
    Json m_entries = Json::object();
    std::map<ObserverId, std::function<void()>> m_observers;
    ObserverId m_nextObserver = 1;

    // Watching: the thread, its stop signal (an eventfd) and a liveness token that queued
    // reloads check, so a reload posted just before destruction does nothing.
    std::thread m_watcher;
    int m_stopFd = -1;
    std::shared_ptr<int> m_alive = std::make_shared<int>(0);
};

}  // namespace quillo
