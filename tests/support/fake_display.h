#pragma once

// A display backend made of plain values, for tests of what sits above capture: windows and
// monitors a test sets, a screen that changes when the test says so, a pointer it moves, and
// input events it fires. Header-only; tests that include it link quillo_capture.

#include <atomic>
#include <cstring>
#include <mutex>

#include "capture/display_backend.h"

namespace quillo::testing {

class FakeDisplay : public capture::DisplayBackend {
public:
    std::string name() const override { return "fake"; }

    Result<std::vector<capture::WindowInfo>> windows() override {
        std::lock_guard lock(mutex);
        return windowList;
    }
    Result<std::vector<capture::MonitorInfo>> monitors() override {
        std::lock_guard lock(mutex);
        return std::vector<capture::MonitorInfo>{{0, "screen", {0, 0, 1280, 800}}};
    }
    std::optional<capture::WindowInfo> window(uint32_t id) override {
        std::lock_guard lock(mutex);
        for (const auto& window : windowList) {
            if (window.id == id) {
                return window;
            }
        }
        return std::nullopt;
    }
    std::optional<Point> pointer() override {
        std::lock_guard lock(mutex);
        return pointerAt;
    }
    std::optional<capture::CursorImage> cursorImage() override {
        std::lock_guard lock(mutex);
        capture::CursorImage image;
        image.width = image.height = 4;
        image.serial = cursorSerial;
        image.argb.assign(16, 0xff000000u | cursorSerial);
        return image;
    }
    Result<Size> resizeWindow(uint32_t, Size size) override { return size; }
    Result<std::optional<capture::SourceRef>> pick(bool, double, CancelToken) override {
        return picked;
    }

    // Frames show a grey level that changes with each screenChanged().
    class Grabber : public capture::ScreenGrabber {
    public:
        explicit Grabber(FakeDisplay& display) : m_display(display) {}
        bool changed(const Rect&) override {
            uint64_t now = m_display.screenSerial;
            bool changed = now != m_seen;
            m_seen = now;
            return changed;
        }
        Result<capture::FramePtr> grab(const Rect& area, bool) override {
            auto frame = capture::makeFrame(static_cast<int>(area.width),
                                            static_cast<int>(area.height), ++m_serial);
            std::memset(const_cast<uint8_t*>(frame->pixels),
                        static_cast<int>(m_display.screenSerial * 40 % 256),
                        static_cast<size_t>(frame->stride) * frame->height);
            ++m_display.grabs;
            return capture::FramePtr(frame);
        }

    private:
        FakeDisplay& m_display;
        uint64_t m_seen = ~0ull;
        uint64_t m_serial = 0;
    };
    Result<std::unique_ptr<capture::ScreenGrabber>> grabber() override {
        return std::unique_ptr<capture::ScreenGrabber>(new Grabber(*this));
    }

    class Watcher : public capture::InputWatcher {
    public:
        Watcher(FakeDisplay& display) : m_display(display) {}
        ~Watcher() override {
            std::lock_guard lock(m_display.mutex);
            m_display.onInput = nullptr;
        }

    private:
        FakeDisplay& m_display;
    };
    Result<std::unique_ptr<capture::InputWatcher>> watchInput(
        std::function<void(const capture::InputEvent&)> handler) override {
        std::lock_guard lock(mutex);
        onInput = std::move(handler);
        return std::unique_ptr<capture::InputWatcher>(new Watcher(*this));
    }

    // --- what tests drive
    void fire(const capture::InputEvent& event) {
        std::function<void(const capture::InputEvent&)> handler;
        {
            std::lock_guard lock(mutex);
            handler = onInput;
        }
        if (handler) {
            handler(event);
        }
    }
    void movePointer(Point at) {
        std::lock_guard lock(mutex);
        pointerAt = at;
    }
    void setWindows(std::vector<capture::WindowInfo> list) {
        std::lock_guard lock(mutex);
        windowList = std::move(list);
    }

    std::mutex mutex;
    std::vector<capture::WindowInfo> windowList;
    std::optional<Point> pointerAt = Point{0, 0};
    uint64_t cursorSerial = 1;
    std::optional<capture::SourceRef> picked;
    std::function<void(const capture::InputEvent&)> onInput;
    std::atomic<uint64_t> screenSerial{0};
    std::atomic<int> grabs{0};
};

}  // namespace quillo::testing
