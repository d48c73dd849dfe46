// Agent input where the desktop lets no app post pointer input into another (Wayland without
// a remote-desktop portal): a click is the press or focus of the element under the point, and
// typed text is inserted into the focused field, both through accessibility. Neither moves the
// user's pointer or keyboard focus.

#include "agent/agent_texts.h"
#include "capture/accessible_elements.h"
#include "capture/capture_session.h"
#include "capture/cursor_recorder.h"
#include "studio_model.h"

namespace quillo::app {

bool StudioModel::postsPointerInput() {
    bool posts = true;
    onMain([&] { posts = m_capture->backend().postsPointerInput(); });
    return posts;
}

bool StudioModel::accessibilityFirst() {
    bool first = false;
    onMain([&] { first = m_capture->backend().agentInput() != "own pointer"; });
    return first;
}

Result<Json> StudioModel::accessibleClick(Point at, int button, int count, bool modifiers) {
    if (button != 1 || count != 1 || modifiers) {
        return AppError(agent::texts::kNoPointerInput);
    }
    std::optional<Point> point;
    std::shared_ptr<capture::AccessibleElements> elements;
    std::optional<Rect> area;
    onMain([&] {
        if (auto mapped = toScreen(at)) {
            point = *mapped;
        }
        if (!m_elements) {
            m_elements = capture::makeAccessibleElements();
        }
        elements = m_elements;
        area = m_capture->captureGeometry();
    });
    if (!point || !area || area->width <= 0 || area->height <= 0) {
        return AppError(agent::texts::kNoSource);
    }
    // Front-most first: floating windows are listed after the tiled ones.
    auto windows = m_capture->backend().windowsInPicture();
    for (auto window = windows.rbegin(); window != windows.rend(); ++window) {
        const Rect& frame = window->frame;
        if (point->x < frame.x || point->y < frame.y || point->x >= frame.x + frame.width ||
            point->y >= frame.y + frame.height) {
            continue;
        }
        auto done = elements->activate(window->pid, {point->x - frame.x, point->y - frame.y});
        if (!done) {
            break;
        }
        Point unit{(point->x - area->x) / area->width, (point->y - area->y) / area->height};
        onMain([&] {
            m_typingProcess = window->pid;
            if (m_cursor) {
                m_cursor->inject(unit, true);
            }
        });
        return Json{{"did", *done}};
    }
    return AppError(agent::texts::kNothingAnswersThere);
}

Result<Json> StudioModel::accessibleType(const std::string& text) {
    std::shared_ptr<capture::AccessibleElements> elements;
    std::optional<int32_t> target;
    bool shared = false;
    onMain([&] {
        shared = m_source.has_value();
        if (!m_elements) {
            m_elements = capture::makeAccessibleElements();
        }
        elements = m_elements;
        target = m_typingProcess;
    });
    if (!shared) {
        return AppError(agent::texts::kNoSource);
    }
    if (!target) {
        target = m_capture->backend().focusedProcess();
    }
    if (!target || !elements->insertText(*target, text)) {
        return AppError(agent::texts::kNoFocusedField);
    }
    return Json::object();
}

}  // namespace quillo::app
