// Raw kernel input events: a poll loop over the event devices, an inotify watch on their folder
// for devices plugged in later, and an eventfd to stop. Only presses count: button presses
// (left, middle, right) and key presses (repeats and releases are dropped).

#include "kernel_input.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/input.h>
#include <map>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "base/log.h"
#include "portal_texts.h"

namespace quillo::capture::portal {

namespace {

namespace fs = std::filesystem;

bool isEventDevice(const fs::path& path) { return path.filename().string().rfind("event", 0) == 0; }

// The press a kernel key event means; none for releases, repeats and other buttons.
std::optional<InputEvent> pressOf(const input_event& event) {
    if (event.type != EV_KEY || event.value != 1) {
        return std::nullopt;
    }
    InputEvent press;
    switch (event.code) {
        case BTN_LEFT:
            press.button = 1;
            return press;
        case BTN_MIDDLE:
            press.button = 2;
            return press;
        case BTN_RIGHT:
            press.button = 3;
            return press;
        default:
            break;
    }
    if (event.code >= BTN_MISC) {
        return std::nullopt;
    }
    press.kind = InputEvent::Kind::Key;
    press.keycode = event.code + 8;  // the X and xkb numbering of the same key
    switch (event.code) {
        case KEY_LEFTSHIFT:
        case KEY_RIGHTSHIFT:
        case KEY_LEFTCTRL:
        case KEY_RIGHTCTRL:
        case KEY_LEFTALT:
        case KEY_RIGHTALT:
        case KEY_LEFTMETA:
        case KEY_RIGHTMETA:
            press.modifier = true;
            break;
        default:
            break;
    }
    return press;
}

class KernelInputWatcher final : public InputWatcher {
public:
    KernelInputWatcher(fs::path folder, std::function<void(const InputEvent&)> onInput)
        : m_folder(std::move(folder)), m_onInput(std::move(onInput)) {}

    ~KernelInputWatcher() override {
        if (m_thread.joinable()) {
            uint64_t one = 1;
            (void)!write(m_stop, &one, sizeof one);
            m_thread.join();
        }
        for (auto& [fd, path] : m_devices) {
            close(fd);
        }
        for (int fd : {m_stop, m_watch}) {
            if (fd >= 0) {
                close(fd);
            }
        }
    }

    // Opens the devices there are; false (with the reason) when none could be.
    bool open(std::string& why) {
        m_stop = eventfd(0, EFD_CLOEXEC);
        m_watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
        if (m_watch >= 0) {
            inotify_add_watch(m_watch, m_folder.c_str(), IN_CREATE | IN_ATTRIB);
        }
        bool denied = false;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(m_folder, error)) {
            if (isEventDevice(entry.path()) && !add(entry.path())) {
                denied = denied || errno == EACCES || errno == EPERM;
            }
        }
        if (m_devices.empty()) {
            why = denied ? texts::kNoInputAccess : texts::kNoInputDevices;
            return false;
        }
        m_thread = std::thread([this] { loop(); });
        return true;
    }

private:
    bool add(const fs::path& path) {
        for (const auto& [fd, known] : m_devices) {
            if (known == path) {
                return true;
            }
        }
        int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) {
            return false;
        }
        m_devices[fd] = path;
        return true;
    }

    void loop() {
        pthread_setname_np(pthread_self(), "quillo.input");
        std::vector<pollfd> polled;
        while (true) {
            polled.clear();
            polled.push_back({m_stop, POLLIN, 0});
            polled.push_back({m_watch, POLLIN, 0});
            for (const auto& [fd, path] : m_devices) {
                polled.push_back({fd, POLLIN, 0});
            }
            if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) {
                return;
            }
            if (polled[0].revents != 0) {
                return;
            }
            if (polled[1].revents != 0) {
                newDevices();
            }
            for (size_t i = 2; i < polled.size(); ++i) {
                if (polled[i].revents != 0) {
                    read(polled[i].fd, (polled[i].revents & (POLLERR | POLLHUP)) != 0);
                }
            }
        }
    }

    void read(int fd, bool broken) {
        input_event events[64];
        ssize_t got = ::read(fd, events, sizeof events);
        if (got <= 0) {
            if (broken || got == 0 || (errno != EAGAIN && errno != EINTR)) {
                close(fd);  // unplugged
                m_devices.erase(fd);
            }
            return;
        }
        for (size_t i = 0; i < static_cast<size_t>(got) / sizeof(input_event); ++i) {
            if (auto press = pressOf(events[i])) {
                m_onInput(*press);
            }
        }
    }

    void newDevices() {
        alignas(inotify_event) char buffer[4096];
        while (::read(m_watch, buffer, sizeof buffer) > 0) {
        }
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(m_folder, error)) {
            if (isEventDevice(entry.path())) {
                add(entry.path());
            }
        }
    }

    fs::path m_folder;
    std::function<void(const InputEvent&)> m_onInput;
    std::map<int, fs::path> m_devices;  // open device fds; the input thread's once it runs
    int m_stop = -1;
    int m_watch = -1;
    std::thread m_thread;
};

}  // namespace

Result<std::unique_ptr<InputWatcher>> watchKernelInput(
    std::function<void(const InputEvent&)> onInput, const fs::path& folder) {
    auto watcher = std::make_unique<KernelInputWatcher>(folder, std::move(onInput));
    std::string why;
    if (!watcher->open(why)) {
        logInfo("app.quillo.capture", "no kernel input: " + why);
        return AppError(why);
    }
    return std::unique_ptr<InputWatcher>(std::move(watcher));
}

}  // namespace quillo::capture::portal
