#include "background_input.h"

#include <chrono>
#include <cmath>
#include <random>
#include <thread>

#include "base/serial_queue.h"

namespace quillo::capture {

namespace {

constexpr uint32_t kReturn = 0xff0d;
constexpr uint32_t kTab = 0xff09;
constexpr double kGlideStep = 1.0 / 60;
constexpr double kFastestKey = 0.006;  // seconds between keys at the least

void pause(double seconds) {
    if (seconds > 0) {
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    }
}

}  // namespace

std::u32string decodeUTF8(const std::string& text) {
    std::u32string out;
    for (size_t i = 0; i < text.size();) {
        auto byte = static_cast<unsigned char>(text[i]);
        int length = byte < 0x80         ? 1
                     : (byte >> 5) == 6  ? 2
                     : (byte >> 4) == 14 ? 3
                     : (byte >> 3) == 30 ? 4
                                         : 0;
        if (length == 0 || i + length > text.size()) {
            out.push_back(0xfffd);
            ++i;
            continue;
        }
        char32_t code = length == 1 ? byte : byte & (0x7f >> length);
        bool valid = true;
        for (int k = 1; k < length; ++k) {
            auto next = static_cast<unsigned char>(text[i + k]);
            valid = valid && (next >> 6) == 2;
            code = (code << 6) | (next & 0x3f);
        }
        out.push_back(valid ? code : 0xfffd);
        i += valid ? length : 1;
    }
    return out;
}

BackgroundInput::BackgroundInput(std::function<Result<std::unique_ptr<AgentDevices>>()> devices)
    : m_make(std::move(devices)), m_queue(std::make_unique<SerialQueue>("app.quillo.input")) {}

BackgroundInput::~BackgroundInput() {
    // The devices belong to the input queue: they are removed there, after the last sequence.
    m_queue->post([this] { m_devices.reset(); });
    m_queue.reset();
}

void BackgroundInput::run(std::function<Result<void>(AgentDevices&)> sequence) {
    m_queue->post([this, sequence = std::move(sequence)] {
        if (!m_devices) {
            auto made = m_make();
            if (!made) {
                std::lock_guard lock(m_mutex);
                if (!m_error) {
                    m_error = made.error();
                }
                return;
            }
            m_devices = std::move(*made);
        }
        if (auto done = sequence(*m_devices); !done) {
            std::lock_guard lock(m_mutex);
            if (!m_error) {
                m_error = done.error();
            }
        }
    });
}

Result<void> BackgroundInput::moveNow(AgentDevices& devices, Point to) {
    if (auto moved = devices.move(to); !moved) {
        return moved;
    }
    std::lock_guard lock(m_mutex);
    m_position = to;
    return {};
}

void BackgroundInput::focus(uint32_t window) {
    run([window](AgentDevices& devices) { return devices.focus(window); });
}

void BackgroundInput::move(Point to, double duration) {
    run([this, to, duration](AgentDevices& devices) -> Result<void> {
        std::optional<Point> from = position();
        int steps = from && duration > 0 ? std::max(1, static_cast<int>(duration / kGlideStep)) : 1;
        for (int i = 1; i <= steps; ++i) {
            double p = static_cast<double>(i) / steps;
            double eased = p * p * (3 - 2 * p);  // starts and stops gently
            Point at = steps == 1 ? to
                                  : Point{from->x + (to.x - from->x) * eased,
                                          from->y + (to.y - from->y) * eased};
            if (auto moved = moveNow(devices, at); !moved) {
                return moved;
            }
            if (i < steps) {
                devices.flush();
                pause(kGlideStep);
            }
        }
        return {};
    });
}

void BackgroundInput::down(Point at, int button) {
    run([this, at, button](AgentDevices& devices) -> Result<void> {
        if (auto moved = moveNow(devices, at); !moved) {
            return moved;
        }
        devices.flush();
        pause(0.015);
        return devices.button(button, true);
    });
}

void BackgroundInput::up(Point at, int button) {
    run([this, at, button](AgentDevices& devices) -> Result<void> {
        if (auto moved = moveNow(devices, at); !moved) {
            return moved;
        }
        return devices.button(button, false);
    });
}

void BackgroundInput::drag(Point from, Point to, int steps) {
    down(from);
    run([this, from, to, steps](AgentDevices& devices) -> Result<void> {
        int count = std::max(1, steps);
        for (int i = 1; i <= count; ++i) {
            double p = static_cast<double>(i) / count;
            Point at{from.x + (to.x - from.x) * p, from.y + (to.y - from.y) * p};
            if (auto moved = moveNow(devices, at); !moved) {
                return moved;
            }
            devices.flush();
            pause(0.01);
        }
        return {};
    });
    up(to);
}

void BackgroundInput::click(Point at, int button, int count, std::vector<uint32_t> modifiers,
                            std::function<bool(Point)> accessible) {
    run([this, at, button, count, modifiers = std::move(modifiers),
         accessible = std::move(accessible)](AgentDevices& devices) -> Result<void> {
        bool pressed = accessible && accessible(at);
        if (auto moved = moveNow(devices, at); !moved) {
            return moved;
        }
        if (pressed) {
            return {};  // pressed once, through the app's accessibility; not twice
        }
        devices.flush();
        pause(0.015);
        for (uint32_t modifier : modifiers) {
            if (auto pressed = devices.key(modifier, true); !pressed) {
                return pressed;
            }
        }
        Result<void> result;
        for (int i = 0; i < std::max(1, count) && result; ++i) {
            result = devices.button(button, true);
            if (result) {
                devices.flush();
                pause(0.03);
                result = devices.button(button, false);
                devices.flush();
                pause(0.03);
            }
        }
        for (auto it = modifiers.rbegin(); it != modifiers.rend(); ++it) {
            (void)devices.key(*it, false);
        }
        return result;
    });
}

void BackgroundInput::scroll(Point at, double deltaX, double deltaY) {
    run([this, at, deltaX, deltaY](AgentDevices& devices) -> Result<void> {
        if (auto moved = moveNow(devices, at); !moved) {
            return moved;
        }
        // Buttons 4/5 scroll up/down and 6/7 left/right, one step per press.
        auto steps = [](double& remainder, double delta) {
            remainder += delta / kPixelsPerWheelStep;
            auto whole = static_cast<int>(std::trunc(remainder));
            remainder -= whole;
            return whole;
        };
        int vertical = steps(m_scrollRemainderY, deltaY);
        int horizontal = steps(m_scrollRemainderX, deltaX);
        for (auto [count, positive, negative] :
             {std::tuple{vertical, 5, 4}, std::tuple{horizontal, 7, 6}}) {
            int button = count > 0 ? positive : negative;
            for (int i = 0; i < std::abs(count); ++i) {
                if (auto pressed = devices.button(button, true); !pressed) {
                    return pressed;
                }
                if (auto released = devices.button(button, false); !released) {
                    return released;
                }
                devices.flush();
                pause(0.01);
            }
        }
        return {};
    });
}

void BackgroundInput::key(uint32_t keysym, std::vector<uint32_t> modifiers) {
    run([keysym, modifiers = std::move(modifiers)](AgentDevices& devices) -> Result<void> {
        for (uint32_t modifier : modifiers) {
            if (auto pressed = devices.key(modifier, true); !pressed) {
                return pressed;
            }
        }
        Result<void> result = devices.key(keysym, true);
        if (result) {
            result = devices.key(keysym, false);
        }
        for (auto it = modifiers.rbegin(); it != modifiers.rend(); ++it) {
            (void)devices.key(*it, false);
        }
        return result;
    });
}

void BackgroundInput::type(const std::string& text, double delay) {
    run([characters = decodeUTF8(text), delay](AgentDevices& devices) -> Result<void> {
        std::mt19937 random(std::random_device{}());
        std::uniform_real_distribution<double> jitter(0.7, 1.3);
        for (size_t i = 0; i < characters.size(); ++i) {
            char32_t character = characters[i];
            Result<void> typed;
            if (character == U'\r' || character == U'\n') {
                if (character == U'\r' && i + 1 < characters.size() && characters[i + 1] == U'\n') {
                    ++i;  // one Return for a carriage return with its line feed
                }
                typed = devices.key(kReturn, true);
                if (typed) {
                    typed = devices.key(kReturn, false);
                }
            } else if (character == U'\t') {
                typed = devices.key(kTab, true);
                if (typed) {
                    typed = devices.key(kTab, false);
                }
            } else {
                typed = devices.typeCharacter(character);
            }
            if (!typed) {
                return typed;
            }
            devices.flush();
            // Even "no delay" leaves toolkits a moment per key: typed faster, GTK drops keys.
            pause(delay > kTypingDelay ? delay * jitter(random) : std::max(delay, kFastestKey));
        }
        return {};
    });
}

Result<void> BackgroundInput::flush() {
    m_queue->invoke([this] {
        if (m_devices) {
            m_devices->flush();
        }
    });
    std::lock_guard lock(m_mutex);
    if (m_error) {
        AppError error = *m_error;
        m_error.reset();
        return error;
    }
    return {};
}

std::optional<Point> BackgroundInput::position() const {
    std::lock_guard lock(m_mutex);
    return m_position;
}

}  // namespace quillo::capture
