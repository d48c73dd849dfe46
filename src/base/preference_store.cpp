#include "preference_store.h"

#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>
#include <vector>

#include "files.h"
#include "log.h"

namespace quillo {

namespace fs = std::filesystem;

namespace {

Json readEntries(const fs::path& file) {
    auto text = readFile(file);
    if (!text) {
        return Json::object();
    }
    auto parsed = parseJson(*text);
    if (!parsed || !parsed->is_object()) {
        logError("app.quillo.preferences", "ignoring malformed " + file.string());
        return Json::object();
    }
    return std::move(parsed.value());
}

}  // namespace

PreferenceStore::PreferenceStore(fs::path file) : m_file(std::move(file)) {
    m_entries = readEntries(m_file);
}

PreferenceStore::~PreferenceStore() { stopWatching(); }

std::optional<Json> PreferenceStore::value(std::string_view key) const {
    std::lock_guard lock(m_mutex);
    auto it = m_entries.find(key);
    if (it == m_entries.end() || it->is_null()) {
        return std::nullopt;
    }
    return *it;
}

Json PreferenceStore::entries() const {
    std::lock_guard lock(m_mutex);
    return m_entries;
}

Result<void> PreferenceStore::write(const Json& entries) {
    std::error_code ec;
    fs::create_directories(m_file.parent_path(), ec);
    return writeFileAtomically(m_file, toPrettyJson(entries), 0600);
}

Result<void> PreferenceStore::update(const std::function<void(Json&)>& change) {
    {
        std::lock_guard lock(m_mutex);
        Json next = m_entries;
        change(next);
        if (next == m_entries) {
            return {};
        }
        if (auto written = write(next); !written) {
            return written;
        }
        m_entries = std::move(next);
    }
    notify();
    return {};
}

Result<void> PreferenceStore::set(std::string_view key, Json value) {
    return update([&](Json& entries) {
        if (value.is_null()) {
            entries.erase(std::string(key));
        } else {
            entries[std::string(key)] = std::move(value);
        }
    });
}

Result<void> PreferenceStore::merge(const Json& entries) {
    if (!entries.is_object()) {
        return {};
    }
    return update([&](Json& current) {
        for (const auto& [key, value] : entries.items()) {
            current[key] = value;
        }
    });
}

bool PreferenceStore::reload() {
    Json fresh = readEntries(m_file);
    {
        std::lock_guard lock(m_mutex);
        if (fresh == m_entries) {
            return false;  // our own write, or a rewrite with the same content
        }
        m_entries = std::move(fresh);
    }
    notify();
    return true;
}

PreferenceStore::ObserverId PreferenceStore::addObserver(std::function<void()> observer) {
    std::lock_guard lock(m_mutex);
    ObserverId id = m_nextObserver++;
    m_observers.emplace(id, std::move(observer));
    return id;
}

void PreferenceStore::removeObserver(ObserverId id) {
    std::lock_guard lock(m_mutex);
    m_observers.erase(id);
}

void PreferenceStore::notify() {
    std::vector<std::function<void()>> observers;
    {
        std::lock_guard lock(m_mutex);
        for (const auto& [id, observer] : m_observers) {
            observers.push_back(observer);
        }
    }
    for (const auto& observer : observers) {  // called without the lock held
        observer();
    }
}

Result<void> PreferenceStore::startWatching(TaskQueue& queue) {
    if (m_watcher.joinable()) {
        return {};
    }
    std::error_code ec;
    fs::create_directories(m_file.parent_path(), ec);
    int inotifyFd = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    if (inotifyFd < 0) {
        return AppError::fromErrno(errno, "Could not watch the preferences");
    }
    // Atomic writers replace the file by rename, so the folder is watched, not the file.
    if (::inotify_add_watch(inotifyFd, m_file.parent_path().c_str(),
                            IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM) < 0) {
        int code = errno;
        ::close(inotifyFd);
        return AppError::fromErrno(code, "Could not watch the preferences");
    }
    m_stopFd = ::eventfd(0, EFD_CLOEXEC);
    if (m_stopFd < 0) {
        int code = errno;
        ::close(inotifyFd);
        return AppError::fromErrno(code, "Could not watch the preferences");
    }
    m_watcher = std::thread([this, inotifyFd, stopFd = m_stopFd, q = &queue] {
        watchLoop(inotifyFd, stopFd, q);
        ::close(inotifyFd);
    });
    return {};
}

void PreferenceStore::stopWatching() {
    if (!m_watcher.joinable()) {
        return;
    }
    uint64_t one = 1;
    [[maybe_unused]] ssize_t n = ::write(m_stopFd, &one, sizeof one);
    m_watcher.join();
    ::close(m_stopFd);
    m_stopFd = -1;
}

void PreferenceStore::watchLoop(int inotifyFd, int stopFd, TaskQueue* queue) {
    const std::string name = m_file.filename().string();
    std::weak_ptr<int> alive = m_alive;
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        pollfd fds[2] = {{inotifyFd, POLLIN, 0}, {stopFd, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (fds[1].revents != 0) {
            return;
        }
        bool touched = false;
        for (;;) {
            ssize_t n = ::read(inotifyFd, buffer, sizeof buffer);
            if (n <= 0) {
                break;
            }
            for (char* p = buffer; p < buffer + n;) {
                auto* event = reinterpret_cast<inotify_event*>(p);
                if (event->len > 0 && name == event->name) {
                    touched = true;
                }
                p += sizeof(inotify_event) + event->len;
            }
        }
        if (touched) {
            queue->post([this, alive] {
                if (alive.lock()) {
                    reload();
                }
            });
        }
    }
}

}  // namespace quillo
