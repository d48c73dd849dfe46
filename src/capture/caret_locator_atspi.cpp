// The caret locator over AT-SPI: the focused element of an app (found by the app's own
// collection search, or a short walk of its tree), and the extents of the character at its
// caret.

#include <mutex>

#include "atspi_internal.h"
#include "caret_locator.h"

namespace quillo::capture {

namespace {

using namespace atspi;

constexpr int kMaxWalkDepth = 24;  // the fallback walk's limits, for apps without collections
constexpr int kMaxWalkNodes = 2000;
constexpr int kMaxMatches = 16;

// The caret of a text element: the character at the caret offset, or at the end the last
// character's right edge; an empty field gives its own left edge.
std::optional<Rect> caretOf(AtspiAccessible* element) {
    GRef<AtspiText> text(atspi_accessible_get_text_iface(element));
    if (!text) {
        return std::nullopt;
    }
    bool ok = false;
    int caret = checked(ok, [&](GError** e) { return atspi_text_get_caret_offset(text.get(), e); });
    if (!ok || caret < 0) {
        return std::nullopt;
    }
    int count =
        checked(ok, [&](GError** e) { return atspi_text_get_character_count(text.get(), e); });
    if (!ok) {
        return std::nullopt;
    }
    if (count == 0) {
        GRef<AtspiComponent> component(atspi_accessible_get_component_iface(element));
        if (!component) {
            return std::nullopt;
        }
        RectPtr box(checked(ok, [&](GError** e) {
            return atspi_component_get_extents(component.get(), ATSPI_COORD_TYPE_SCREEN, e);
        }));
        auto rect = ok ? toRect(box.get()) : std::nullopt;
        if (rect) {
            rect->width = 1;
        }
        return rect;
    }
    bool atEnd = caret >= count;
    RectPtr extents(checked(ok, [&](GError** e) {
        return atspi_text_get_character_extents(text.get(), atEnd ? count - 1 : caret,
                                                ATSPI_COORD_TYPE_SCREEN, e);
    }));
    auto rect = ok ? toRect(extents.get()) : std::nullopt;
    if (rect && atEnd) {
        rect->x += rect->width;
        rect->width = 1;
    }
    return rect;
}

bool isFocused(AtspiAccessible* element) {
    GRef<AtspiStateSet> states(atspi_accessible_get_state_set(element));
    return states && atspi_state_set_contains(states.get(), ATSPI_STATE_FOCUSED);
}

// The focused elements of an app, through its collection interface; none when it has none.
std::optional<std::vector<GRef<AtspiAccessible>>> focusedByCollection(AtspiAccessible* app) {
    GRef<AtspiCollection> collection(atspi_accessible_get_collection_iface(app));
    if (!collection) {
        return std::nullopt;
    }
    GArray* wanted = g_array_new(FALSE, FALSE, sizeof(AtspiStateType));
    AtspiStateType focused = ATSPI_STATE_FOCUSED;
    g_array_append_val(wanted, focused);
    GRef<AtspiStateSet> states(atspi_state_set_new(wanted));
    g_array_free(wanted, TRUE);
    GRef<AtspiMatchRule> rule(atspi_match_rule_new(
        states.get(), ATSPI_Collection_MATCH_ALL, nullptr, ATSPI_Collection_MATCH_ALL, nullptr,
        ATSPI_Collection_MATCH_ALL, nullptr, ATSPI_Collection_MATCH_ALL, FALSE));
    bool ok = false;
    GArray* matches = checked(ok, [&](GError** e) {
        return atspi_collection_get_matches(collection.get(), rule.get(),
                                            ATSPI_Collection_SORT_ORDER_CANONICAL, kMaxMatches,
                                            TRUE, e);
    });
    if (matches == nullptr) {
        return std::nullopt;
    }
    std::vector<GRef<AtspiAccessible>> found;
    for (guint i = 0; i < matches->len; ++i) {
        found.emplace_back(g_array_index(matches, AtspiAccessible*, i));
    }
    g_array_free(matches, TRUE);
    if (!ok) {
        return std::nullopt;
    }
    return found;
}

// Depth first, for apps whose collection search is missing or broken.
void walkForFocus(AtspiAccessible* element, int depth, int& budget,
                  std::vector<GRef<AtspiAccessible>>& found) {
    if (depth > kMaxWalkDepth || --budget < 0) {
        return;
    }
    bool ok = false;
    int count =
        checked(ok, [&](GError** e) { return atspi_accessible_get_child_count(element, e); });
    for (int i = 0; ok && i < count && budget >= 0; ++i) {
        bool gotChild = false;
        GRef<AtspiAccessible> child(checked(gotChild, [&](GError** e) {
            return atspi_accessible_get_child_at_index(element, i, e);
        }));
        if (!child) {
            continue;
        }
        walkForFocus(child.get(), depth + 1, budget, found);
        if (isFocused(child.get())) {
            found.push_back(std::move(child));
        }
    }
}

class AtspiCaretLocator final : public CaretLocator {
public:
    std::optional<Rect> locate(int32_t pid, int32_t* foundIn) override {
        std::lock_guard lock(g_mutex);
        if (!connectAndDrain()) {
            return std::nullopt;
        }
        GRef<AtspiAccessible> desktop(atspi_get_desktop(0));
        if (!desktop) {
            return std::nullopt;
        }
        bool ok = false;
        int apps = checked(
            ok, [&](GError** e) { return atspi_accessible_get_child_count(desktop.get(), e); });
        for (int i = 0; ok && i < apps; ++i) {
            bool gotApp = false;
            GRef<AtspiAccessible> app(checked(gotApp, [&](GError** e) {
                return atspi_accessible_get_child_at_index(desktop.get(), i, e);
            }));
            if (!app) {
                continue;
            }
            bool gotPid = false;
            guint appPid = checked(
                gotPid, [&](GError** e) { return atspi_accessible_get_process_id(app.get(), e); });
            if (pid != 0 && (!gotPid || static_cast<int32_t>(appPid) != pid)) {
                continue;
            }
            if (auto caret = caretInApp(app.get())) {
                if (foundIn != nullptr) {
                    *foundIn = gotPid ? static_cast<int32_t>(appPid) : 0;
                }
                return caret;
            }
        }
        return std::nullopt;
    }

private:
    static std::optional<Rect> caretInApp(AtspiAccessible* app) {
        auto focused = focusedByCollection(app);
        if (!focused) {
            // The walk reads cached children and states; start it from the app's current ones.
            atspi_accessible_clear_cache(app);
            focused.emplace();
            int budget = kMaxWalkNodes;
            walkForFocus(app, 0, budget, *focused);
        }
        // The deepest focused element comes last in canonical order.
        for (auto it = focused->rbegin(); it != focused->rend(); ++it) {
            if (auto caret = caretOf(it->get())) {
                return caret;
            }
        }
        return std::nullopt;
    }
};

}  // namespace

std::unique_ptr<CaretLocator> makeCaretLocator() { return std::make_unique<AtspiCaretLocator>(); }

}  // namespace quillo::capture
