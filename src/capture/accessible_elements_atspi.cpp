// The accessible elements reader over AT-SPI: a walk of an app's tree that skips what is hidden
// or outside the area, and the app's own hit test for activating what is under a point.

#include <algorithm>
#include <array>
#include <cctype>
#include <mutex>
#include <string_view>

#include "accessible_elements.h"
#include "atspi_internal.h"

namespace quillo::capture {

namespace {

using namespace atspi;

constexpr int kMaxDepth = 32;      // the walks' limits, so a huge or cyclic tree ends
constexpr int kMaxNodes = 3000;    // elements read per list()
constexpr size_t kMaxLabel = 80;   // characters
constexpr int kMaxTextRead = 512;  // characters of a nameless text read for its label

bool intersects(const Rect& a, const Rect& b) {
    return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height &&
           b.y < a.y + a.height;
}

bool contains(const Rect& rect, Point point) {
    return point.x >= rect.x && point.x < rect.x + rect.width && point.y >= rect.y &&
           point.y < rect.y + rect.height;
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The first line of `text` without surrounding white space, cut to kMaxLabel characters (UTF-8
// code points, so no character is split).
std::string firstLine(std::string_view text) {
    text = text.substr(0, text.find_first_of("\r\n"));
    auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\f' || c == '\v'; };
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back())) {
        text.remove_suffix(1);
    }
    size_t characters = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        bool starts = (static_cast<unsigned char>(text[i]) & 0xc0) != 0x80;
        if (starts && ++characters > kMaxLabel) {
            return std::string(text.substr(0, i));
        }
    }
    return std::string(text);
}

std::optional<Rect> frameOf(AtspiAccessible* element) {
    GRef<AtspiComponent> component(atspi_accessible_get_component_iface(element));
    if (!component) {
        return std::nullopt;
    }
    bool ok = false;
    RectPtr box(checked(ok, [&](GError** e) {
        return atspi_component_get_extents(component.get(), ATSPI_COORD_TYPE_SCREEN, e);
    }));
    return ok ? toRect(box.get()) : std::nullopt;
}

// Its name, else the first line of its text.
std::string labelOf(AtspiAccessible* element) {
    bool ok = false;
    StringPtr name(checked(ok, [&](GError** e) { return atspi_accessible_get_name(element, e); }));
    if (ok && name) {
        std::string label = firstLine(name.get());
        if (!label.empty()) {
            return label;
        }
    }
    GRef<AtspiText> text(atspi_accessible_get_text_iface(element));
    if (!text) {
        return {};
    }
    int count =
        checked(ok, [&](GError** e) { return atspi_text_get_character_count(text.get(), e); });
    if (!ok || count <= 0) {
        return {};
    }
    StringPtr content(checked(ok, [&](GError** e) {
        return atspi_text_get_text(text.get(), 0, std::min(count, kMaxTextRead), e);
    }));
    return ok && content ? firstLine(content.get()) : std::string();
}

std::string roleNameOf(AtspiAccessible* element) {
    bool ok = false;
    StringPtr role(
        checked(ok, [&](GError** e) { return atspi_accessible_get_role_name(element, e); }));
    return ok && role ? std::string(role.get()) : std::string();
}

int actionCount(AtspiAccessible* element) {
    GRef<AtspiAction> action(atspi_accessible_get_action_iface(element));
    if (!action) {
        return 0;
    }
    bool ok = false;
    int count =
        checked(ok, [&](GError** e) { return atspi_action_get_n_actions(action.get(), e); });
    return ok ? count : 0;
}

std::vector<GRef<AtspiAccessible>> childrenOf(AtspiAccessible* element) {
    std::vector<GRef<AtspiAccessible>> children;
    bool ok = false;
    int count =
        checked(ok, [&](GError** e) { return atspi_accessible_get_child_count(element, e); });
    for (int i = 0; ok && i < count; ++i) {
        bool gotChild = false;
        GRef<AtspiAccessible> child(checked(gotChild, [&](GError** e) {
            return atspi_accessible_get_child_at_index(element, i, e);
        }));
        if (child) {
            children.push_back(std::move(child));
        }
    }
    return children;
}

// Depth first through the showing part of an app's tree inside an area; a subtree whose root
// lies wholly outside the area is skipped, as its showing children lie inside that root.
class ElementWalk {
public:
    explicit ElementWalk(const Rect& area) : m_area(area) {}

    void visit(AtspiAccessible* element, int depth) {
        if (depth > kMaxDepth || --m_budget < 0) {
            return;
        }
        GRef<AtspiStateSet> states(atspi_accessible_get_state_set(element));
        bool isApp = depth == 0;
        if (!isApp && (!states || !atspi_state_set_contains(states.get(), ATSPI_STATE_SHOWING))) {
            return;
        }
        auto frame = isApp ? std::nullopt : frameOf(element);
        if (frame && !intersects(*frame, m_area)) {
            return;
        }
        if (frame) {
            bool editable = atspi_state_set_contains(states.get(), ATSPI_STATE_EDITABLE);
            std::string label = labelOf(element);
            if (!label.empty() || editable || actionCount(element) > 0) {
                m_found.push_back({roleNameOf(element), std::move(label), *frame});
            }
        }
        for (auto& child : childrenOf(element)) {
            visit(child.get(), depth + 1);
        }
    }

    std::vector<AccessibleElement> take() { return std::move(m_found); }

private:
    const Rect& m_area;
    int m_budget = kMaxNodes;
    std::vector<AccessibleElement> m_found;
};

bool isPressable(AtspiRole role) {
    switch (role) {
        case ATSPI_ROLE_PUSH_BUTTON:
        case ATSPI_ROLE_PUSH_BUTTON_MENU:
        case ATSPI_ROLE_TOGGLE_BUTTON:
        case ATSPI_ROLE_CHECK_BOX:
        case ATSPI_ROLE_RADIO_BUTTON:
        case ATSPI_ROLE_MENU_ITEM:
        case ATSPI_ROLE_CHECK_MENU_ITEM:
        case ATSPI_ROLE_RADIO_MENU_ITEM:
        case ATSPI_ROLE_LINK:
        case ATSPI_ROLE_PAGE_TAB:
            return true;
        default:
            return false;
    }
}

bool isTextField(AtspiAccessible* element, AtspiRole role) {
    switch (role) {
        case ATSPI_ROLE_TEXT:
        case ATSPI_ROLE_ENTRY:
        case ATSPI_ROLE_PASSWORD_TEXT:
        case ATSPI_ROLE_TERMINAL:
        case ATSPI_ROLE_DOCUMENT_TEXT:
            return true;
        case ATSPI_ROLE_COMBO_BOX: {
            GRef<AtspiStateSet> states(atspi_accessible_get_state_set(element));
            return states && atspi_state_set_contains(states.get(), ATSPI_STATE_EDITABLE);
        }
        default:
            return false;
    }
}

// Where a walk up from the hit element stops: beyond it lie other windows' parts.
bool isTopLevel(AtspiRole role) {
    return role == ATSPI_ROLE_FRAME || role == ATSPI_ROLE_WINDOW || role == ATSPI_ROLE_DIALOG ||
           role == ATSPI_ROLE_APPLICATION || role == ATSPI_ROLE_DESKTOP_FRAME;
}

// Does its "click", "press" or "activate" action, else its first one.
bool press(AtspiAccessible* element) {
    GRef<AtspiAction> action(atspi_accessible_get_action_iface(element));
    if (!action) {
        return false;
    }
    bool ok = false;
    int count =
        checked(ok, [&](GError** e) { return atspi_action_get_n_actions(action.get(), e); });
    if (!ok || count <= 0) {
        return false;
    }
    int chosen = 0;
    constexpr std::array<std::string_view, 3> kPreferred{"click", "press", "activate"};
    for (int i = 0; i < count; ++i) {
        bool gotName = false;
        StringPtr name(checked(
            gotName, [&](GError** e) { return atspi_action_get_action_name(action.get(), i, e); }));
        if (gotName && name &&
            std::find(kPreferred.begin(), kPreferred.end(), name.get()) != kPreferred.end()) {
            chosen = i;
            break;
        }
    }
    gboolean done =
        checked(ok, [&](GError** e) { return atspi_action_do_action(action.get(), chosen, e); });
    return ok && done;
}

bool focus(AtspiAccessible* element) {
    GRef<AtspiComponent> component(atspi_accessible_get_component_iface(element));
    if (!component) {
        return false;
    }
    bool ok = false;
    gboolean done =
        checked(ok, [&](GError** e) { return atspi_component_grab_focus(component.get(), e); });
    return ok && done;
}

// The app's showing window under the point, the active one first.
GRef<AtspiAccessible> windowAt(AtspiAccessible* app, Point point) {
    GRef<AtspiAccessible> found;
    for (auto& window : childrenOf(app)) {
        GRef<AtspiStateSet> states(atspi_accessible_get_state_set(window.get()));
        if (!states || !atspi_state_set_contains(states.get(), ATSPI_STATE_SHOWING)) {
            continue;
        }
        auto frame = frameOf(window.get());
        if (!frame || !contains(*frame, point)) {
            continue;
        }
        if (atspi_state_set_contains(states.get(), ATSPI_STATE_ACTIVE)) {
            return std::move(window);
        }
        if (!found) {
            found = std::move(window);
        }
    }
    return found;
}

// The deepest element under the point, by the app's own hit testing from `window` down.
GRef<AtspiAccessible> deepestAt(GRef<AtspiAccessible> window, Point point) {
    GRef<AtspiAccessible> current = std::move(window);
    for (int depth = 0; depth < kMaxDepth; ++depth) {
        GRef<AtspiComponent> component(atspi_accessible_get_component_iface(current.get()));
        if (!component) {
            break;
        }
        bool ok = false;
        GRef<AtspiAccessible> child(checked(ok, [&](GError** e) {
            return atspi_component_get_accessible_at_point(
                component.get(), static_cast<gint>(point.x), static_cast<gint>(point.y),
                ATSPI_COORD_TYPE_SCREEN, e);
        }));
        if (!ok || !child || child.get() == current.get()) {
            break;
        }
        current = std::move(child);
    }
    return current;
}

class AtspiAccessibleElements final : public AccessibleElements {
public:
    std::vector<AccessibleElement> list(int32_t pid, const Rect& area, size_t limit,
                                        const std::string& filter) override {
        std::vector<AccessibleElement> found;
        {
            std::lock_guard lock(g_mutex);
            if (!connectAndDrain()) {
                return {};
            }
            GRef<AtspiAccessible> app = appOf(pid);
            if (!app) {
                return {};
            }
            ElementWalk walk(area);
            walk.visit(app.get(), 0);
            found = walk.take();
        }
        if (!filter.empty()) {
            std::string wanted = lowered(filter);
            std::erase_if(found, [&](const AccessibleElement& element) {
                return lowered(element.role).find(wanted) == std::string::npos &&
                       lowered(element.label).find(wanted) == std::string::npos;
            });
        }
        std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
            return a.frame.y != b.frame.y ? a.frame.y < b.frame.y : a.frame.x < b.frame.x;
        });
        if (found.size() > limit) {
            found.resize(limit);
        }
        return found;
    }

    std::optional<std::string> activate(int32_t pid, Point screen) override {
        std::lock_guard lock(g_mutex);
        if (!connectAndDrain()) {
            return std::nullopt;
        }
        GRef<AtspiAccessible> app = appOf(pid);
        if (!app) {
            return std::nullopt;
        }
        GRef<AtspiAccessible> window = windowAt(app.get(), screen);
        if (!window) {
            return std::nullopt;
        }
        GRef<AtspiAccessible> element = deepestAt(std::move(window), screen);
        for (int depth = 0; element && depth < kMaxDepth; ++depth) {
            bool ok = false;
            AtspiRole role = checked(
                ok, [&](GError** e) { return atspi_accessible_get_role(element.get(), e); });
            if (!ok || isTopLevel(role)) {
                break;
            }
            if (isPressable(role)) {
                return press(element.get()) ? std::optional<std::string>("pressed") : std::nullopt;
            }
            if (isTextField(element.get(), role)) {
                if (!focus(element.get())) {
                    return std::nullopt;
                }
                // The app's window may not be the active one, so the field's own focused state
                // can't be relied on: text typed next goes here.
                m_field.reset(static_cast<AtspiAccessible*>(g_object_ref(element.get())));
                m_fieldProcess = pid;
                return std::optional<std::string>("focused");
            }
            element.reset(checked(
                ok, [&](GError** e) { return atspi_accessible_get_parent(element.get(), e); }));
        }
        return std::nullopt;
    }

    bool insertText(int32_t pid, const std::string& text) override {
        std::lock_guard lock(g_mutex);
        if (!connectAndDrain()) {
            return false;
        }
        GRef<AtspiAccessible> field;
        if (m_field && m_fieldProcess == pid) {
            field.reset(static_cast<AtspiAccessible*>(g_object_ref(m_field.get())));
        } else if (GRef<AtspiAccessible> app = appOf(pid)) {
            field = focusedEditable(app.get(), 0);
        }
        if (!field) {
            return false;
        }
        GRef<AtspiEditableText> editable(atspi_accessible_get_editable_text_iface(field.get()));
        GRef<AtspiText> caret(atspi_accessible_get_text_iface(field.get()));
        bool ok = false;
        gint at = 0;
        if (caret) {
            at = checked(ok,
                         [&](GError** e) { return atspi_text_get_caret_offset(caret.get(), e); });
            at = ok ? at : 0;
        }
        gboolean inserted = checked(ok, [&](GError** e) {
            return atspi_editable_text_insert_text(editable.get(), at, text.c_str(),
                                                   static_cast<gint>(text.size()), e);
        });
        if (!ok || !inserted) {
            return false;
        }
        if (caret) {
            auto characters = static_cast<gint>(g_utf8_strlen(text.c_str(), -1));
            checked(ok, [&](GError** e) {
                return atspi_text_set_caret_offset(caret.get(), at + characters, e);
            });
        }
        return true;
    }

private:
    GRef<AtspiAccessible> m_field;  // the text field the last activate() focused
    int32_t m_fieldProcess = 0;

    // The focused element with editable text below `element`, searching showing branches.
    GRef<AtspiAccessible> focusedEditable(AtspiAccessible* element, int depth) {
        if (depth > kMaxDepth) {
            return nullptr;
        }
        for (auto& child : childrenOf(element)) {
            GRef<AtspiStateSet> states(atspi_accessible_get_state_set(child.get()));
            if (!states || !atspi_state_set_contains(states.get(), ATSPI_STATE_SHOWING)) {
                continue;
            }
            if (atspi_state_set_contains(states.get(), ATSPI_STATE_FOCUSED) &&
                atspi_state_set_contains(states.get(), ATSPI_STATE_EDITABLE)) {
                GRef<AtspiEditableText> editable(
                    atspi_accessible_get_editable_text_iface(child.get()));
                if (editable) {
                    return std::move(child);
                }
            }
            if (auto found = focusedEditable(child.get(), depth + 1)) {
                return found;
            }
        }
        return nullptr;
    }
};

}  // namespace

std::unique_ptr<AccessibleElements> makeAccessibleElements() {
    return std::make_unique<AtspiAccessibleElements>();
}

}  // namespace quillo::capture
