// Agent input to the shared app: screenshot pixels mapped to the screen, posted through the
// agent's own pointer and keyboard, and noted in the cursor track of a recording under way.

#include <algorithm>
#include <cmath>

#include "agent/agent_texts.h"
#include "capture/accessible_elements.h"
#include "capture/agent_devices.h"
#include "capture/background_input.h"
#include "capture/capture_session.h"
#include "capture/cursor_recorder.h"
#include "studio_model.h"

namespace quillo::app {

namespace {

Json pointJson(Point point) { return {{"x", point.x}, {"y", point.y}}; }

}  // namespace

Result<Point> StudioModel::toScreen(Point pixels) const {
    auto area = m_capture->captureGeometry();
    Size size = m_capture->configuredSize();
    if (!m_source || !area || size.width < 1 || size.height < 1) {
        return AppError(agent::texts::kNoSource);
    }
    return Point{area->x + pixels.x * area->width / size.width,
                 area->y + pixels.y * area->height / size.height};
}

capture::BackgroundInput& StudioModel::input() {
    if (!m_input) {
        m_input = std::make_unique<capture::BackgroundInput>(
            [backend = m_capture->sharedBackend()] { return backend->agentDevices(); });
    }
    return *m_input;
}

std::optional<Point> StudioModel::agentPointer() {
    if (!m_input || !m_userPointerAtAgentInput) {
        return std::nullopt;
    }
    // The user took the pointer back: from now on theirs is the one recorded.
    if (m_capture->backend().pointer() != m_userPointerAtAgentInput) {
        m_userPointerAtAgentInput.reset();
        return std::nullopt;
    }
    auto at = m_input->position();
    auto area = m_capture->captureGeometry();
    if (!at || !area || area->width <= 0 || area->height <= 0) {
        return std::nullopt;
    }
    return Point{(at->x - area->x) / area->width, (at->y - area->y) / area->height};
}

Result<Json> StudioModel::postInput(
    const std::vector<Point>& pixels,
    const std::function<void(capture::BackgroundInput&, const std::vector<Point>&)>& post,
    bool click) {
    std::optional<AppError> refused;
    capture::BackgroundInput* posted = nullptr;
    onMain([&] {
        std::vector<Point> screen;
        for (Point point : pixels) {
            auto mapped = toScreen(point);
            if (!mapped) {
                refused = mapped.error();
                return;
            }
            screen.push_back(*mapped);
        }
        if (!m_source) {
            refused = AppError(agent::texts::kNoSource);
            return;
        }
        posted = &input();
        if (m_source->kind == "window") {
            posted->focus(m_source->id);
        }
        post(*posted, screen);
    });
    if (refused) {
        return *refused;
    }
    // Waits on this worker thread while the input queue posts (typing may take a while).
    if (auto flushed = posted->flush(); !flushed) {
        return flushed.error();
    }
    Json answer = Json::object();
    onMain([&] {
        m_userPointerAtAgentInput = m_capture->backend().pointer();
        auto at = m_input->position();
        auto area = m_capture->captureGeometry();
        Size size = m_capture->configuredSize();
        if (at && area && area->width > 0 && area->height > 0) {
            Point unit{(at->x - area->x) / area->width, (at->y - area->y) / area->height};
            if (m_cursor && (click || !pixels.empty())) {
                m_cursor->inject(unit, click);
            }
            answer["cursor"] = pointJson({unit.x * size.width, unit.y * size.height});
        }
    });
    return answer;
}

Result<Json> StudioModel::click(Point at, int button, int count,
                                const std::vector<uint32_t>& modifiers) {
    if (!postsPointerInput()) {
        return accessibleClick(at, button, count, !modifiers.empty());
    }
    if (accessibilityFirst()) {
        // The pointer-level way moves the user's own pointer: only where nothing answers.
        if (auto done = accessibleClick(at, button, count, !modifiers.empty())) {
            return done;
        }
    }
    // A plain left click first asks the app what is under the point: a button, link, tab or
    // menu item is pressed through its accessibility (and not clicked again), a text field gets
    // the focus before the click places the caret.
    std::function<bool(Point)> accessible;
    onMain([&] {
        auto pid = m_capture->sourceProcessID();
        if (button != 1 || count != 1 || !modifiers.empty() || !pid) {
            return;
        }
        if (!m_elements) {
            m_elements = capture::makeAccessibleElements();
        }
        accessible = [elements = m_elements, pid = *pid](Point point) {
            return elements->activate(pid, point) == std::optional<std::string>("pressed");
        };
    });
    return postInput(
        {at},
        [button, count, modifiers, accessible](capture::BackgroundInput& input,
                                               const std::vector<Point>& p) {
            input.click(p[0], button, count, modifiers, accessible);
        },
        true);
}

Result<Json> StudioModel::movePointer(Point to, double duration) {
    if (!postsPointerInput()) {
        return AppError(agent::texts::kNoPointerInput);
    }
    return postInput(
        {to},
        [duration](capture::BackgroundInput& input, const std::vector<Point>& p) {
            input.move(p[0], duration);
        },
        false);
}

Result<Json> StudioModel::drag(Point from, Point to, int steps) {
    if (!postsPointerInput()) {
        return AppError(agent::texts::kNoPointerInput);
    }
    return postInput(
        {from, to},
        [steps](capture::BackgroundInput& input, const std::vector<Point>& p) {
            input.drag(p[0], p[1], steps);
        },
        false);
}

Result<Json> StudioModel::scroll(Point at, double deltaX, double deltaY) {
    if (!postsPointerInput()) {
        return AppError(agent::texts::kNoPointerInput);
    }
    return postInput(
        {at},
        [deltaX, deltaY](capture::BackgroundInput& input, const std::vector<Point>& p) {
            input.scroll(p[0], deltaX, deltaY);
        },
        false);
}

Result<Json> StudioModel::typeText(const std::string& text, double delay) {
    if (!postsPointerInput()) {
        return accessibleType(text);
    }
    if (accessibilityFirst()) {
        if (auto done = accessibleType(text)) {
            return done;
        }
    }
    return postInput(
        {},
        [text, delay](capture::BackgroundInput& input, const std::vector<Point>&) {
            input.type(text, delay);
        },
        false);
}

Result<Json> StudioModel::pressKey(uint32_t keysym, const std::vector<uint32_t>& modifiers) {
    if (!postsPointerInput()) {
        return AppError(agent::texts::kNoPointerInput);
    }
    return postInput(
        {},
        [keysym, modifiers](capture::BackgroundInput& input, const std::vector<Point>&) {
            input.key(keysym, modifiers);
        },
        false);
}

std::vector<capture::AccessibleElement> StudioModel::listElements(
    capture::AccessibleElements& elements, int32_t pid, const Rect& area, size_t limit,
    const std::string& filter) {
    auto windows = m_capture->backend().windowsInPicture();
    if (windows.empty()) {
        return elements.list(pid, area, limit, filter);
    }
    // Frames come relative to each window here: each window's are read and placed.
    std::vector<capture::AccessibleElement> found;
    for (const auto& window : windows) {
        Rect inWindow{area.x - window.frame.x, area.y - window.frame.y, area.width, area.height};
        for (auto element : elements.list(window.pid, inWindow, limit, filter)) {
            element.frame.x += window.frame.x;
            element.frame.y += window.frame.y;
            found.push_back(std::move(element));
        }
    }
    std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
        return a.frame.y != b.frame.y ? a.frame.y < b.frame.y : a.frame.x < b.frame.x;
    });
    if (found.size() > limit) {
        found.resize(limit);
    }
    return found;
}

Result<Json> StudioModel::uiElements(size_t limit, const std::string& filter) {
    std::shared_ptr<capture::AccessibleElements> elements;
    std::optional<Rect> area;
    Size size;
    int32_t pid = 0;
    onMain([&] {
        if (!m_source) {
            return;
        }
        if (!m_elements) {
            m_elements = capture::makeAccessibleElements();
        }
        elements = m_elements;
        area = m_capture->captureGeometry();
        size = m_capture->configuredSize();
        pid = m_capture->sourceProcessID().value_or(0);
    });
    if (!elements || !area || area->width <= 0 || area->height <= 0) {
        return AppError(agent::texts::kNoSource);
    }
    // Reading another app's tree takes a while; it runs here, not on the main queue.
    double scaleX = size.width / area->width;
    double scaleY = size.height / area->height;
    Json list = Json::array();
    for (const auto& element : listElements(*elements, pid, *area, limit, filter)) {
        auto pixel = [](double value) { return std::round(value * 10) / 10; };
        list.push_back({{"role", element.role},
                        {"label", element.label},
                        {"x", pixel((element.frame.x - area->x) * scaleX)},
                        {"y", pixel((element.frame.y - area->y) * scaleY)},
                        {"width", pixel(element.frame.width * scaleX)},
                        {"height", pixel(element.frame.height * scaleY)}});
    }
    Json answer = {{"elements", list}};
    if (list.empty()) {
        answer["hint"] = agent::texts::kNoElements;
    }
    return answer;
}

}  // namespace quillo::app
