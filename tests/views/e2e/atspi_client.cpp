#include "atspi_client.h"

#include <atspi/atspi.h>
#include <chrono>
#include <functional>
#include <thread>

namespace quillo::testing {

namespace {

void unref(void* object) {
    if (object) {
        g_object_unref(object);
    }
}

std::string takeString(gchar* text) {
    std::string result = text ? text : "";
    g_free(text);
    return result;
}

AtspiAccessible* appOf(pid_t pid) {
    static bool initialised = (atspi_init(), true);
    (void)initialised;
    AtspiAccessible* desktop = atspi_get_desktop(0);
    int count = atspi_accessible_get_child_count(desktop, nullptr);
    AtspiAccessible* found = nullptr;
    for (int i = 0; i < count && !found; ++i) {
        AtspiAccessible* app = atspi_accessible_get_child_at_index(desktop, i, nullptr);
        if (!app) {
            continue;
        }
        if (static_cast<pid_t>(atspi_accessible_get_process_id(app, nullptr)) == pid) {
            found = app;
        } else {
            g_object_unref(app);
        }
    }
    g_object_unref(desktop);
    return found;
}

bool showing(AtspiAccessible* node) {
    AtspiStateSet* states = atspi_accessible_get_state_set(node);
    bool result = states && atspi_state_set_contains(states, ATSPI_STATE_SHOWING);
    if (states) {
        g_object_unref(states);
    }
    return result;
}

AccessibleApp::Element describe(AtspiAccessible* node) {
    AccessibleApp::Element element;
    element.role = takeString(atspi_accessible_get_role_name(node, nullptr));
    element.name = takeString(atspi_accessible_get_name(node, nullptr));
    AtspiComponent* component = atspi_accessible_get_component_iface(node);
    if (component) {
        AtspiRect* rect = atspi_component_get_extents(component, ATSPI_COORD_TYPE_SCREEN, nullptr);
        if (rect) {
            element.frame = {static_cast<double>(rect->x), static_cast<double>(rect->y),
                             static_cast<double>(rect->width), static_cast<double>(rect->height)};
            g_free(rect);
        }
        g_object_unref(component);
    }
    g_object_ref(node);
    element.handle = std::shared_ptr<void>(node, unref);
    return element;
}

// Visits the tree depth-first; the visitor returns false to stop.
bool walk(AtspiAccessible* node, int depth, const std::function<bool(AtspiAccessible*)>& visit) {
    if (depth > 40) {
        return true;
    }
    if (!visit(node)) {
        return false;
    }
    int count = atspi_accessible_get_child_count(node, nullptr);
    for (int i = 0; i < count && i < 2000; ++i) {
        AtspiAccessible* child = atspi_accessible_get_child_at_index(node, i, nullptr);
        if (!child) {
            continue;
        }
        bool go = walk(child, depth + 1, visit);
        g_object_unref(child);
        if (!go) {
            return false;
        }
    }
    return true;
}

AtspiAccessible* node(const AccessibleApp::Element& element) {
    return static_cast<AtspiAccessible*>(element.handle.get());
}

}  // namespace

AccessibleApp::AccessibleApp(pid_t pid) : m_pid(pid) {}

std::vector<AccessibleApp::Element> AccessibleApp::findAll(const std::string& role,
                                                           const std::string& name,
                                                           bool exact) const {
    std::vector<Element> found;
    AtspiAccessible* app = appOf(m_pid);
    if (!app) {
        return found;
    }
    walk(app, 0, [&](AtspiAccessible* candidate) {
        std::string candidateRole = takeString(atspi_accessible_get_role_name(candidate, nullptr));
        if (!role.empty() && candidateRole != role) {
            return true;
        }
        std::string candidateName = takeString(atspi_accessible_get_name(candidate, nullptr));
        bool matches =
            exact ? candidateName == name : candidateName.find(name) != std::string::npos;
        if (matches && showing(candidate)) {
            found.push_back(describe(candidate));
        }
        return true;
    });
    g_object_unref(app);
    return found;
}

std::optional<AccessibleApp::Element> AccessibleApp::find(const std::string& role,
                                                          const std::string& name, double seconds,
                                                          bool exact) const {
    auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (;;) {
        auto all = findAll(role, name, exact);
        if (!all.empty()) {
            return all.front();
        }
        if (std::chrono::steady_clock::now() > until) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

bool AccessibleApp::act(const Element& element, const std::string& action) const {
    AtspiAction* actions = atspi_accessible_get_action_iface(node(element));
    if (!actions) {
        return false;
    }
    int count = atspi_action_get_n_actions(actions, nullptr);
    int chosen = count > 0 ? 0 : -1;
    for (int i = 0; i < count && !action.empty(); ++i) {
        if (takeString(atspi_action_get_action_name(actions, i, nullptr)) == action) {
            chosen = i;
        }
    }
    bool done = chosen >= 0 && atspi_action_do_action(actions, chosen, nullptr);
    g_object_unref(actions);
    return done;
}

bool AccessibleApp::focus(const Element& element) const {
    AtspiComponent* component = atspi_accessible_get_component_iface(node(element));
    if (!component) {
        return false;
    }
    bool done = atspi_component_grab_focus(component, nullptr);
    g_object_unref(component);
    return done;
}

bool AccessibleApp::setText(const Element& element, const std::string& text) const {
    AtspiEditableText* editable = atspi_accessible_get_editable_text_iface(node(element));
    if (!editable) {
        return false;
    }
    bool done = atspi_editable_text_set_text_contents(editable, text.c_str(), nullptr);
    g_object_unref(editable);
    return done;
}

std::string AccessibleApp::text(const Element& element) const {
    AtspiText* text = atspi_accessible_get_text_iface(node(element));
    if (!text) {
        return element.name;
    }
    std::string contents = takeString(atspi_text_get_text(text, 0, -1, nullptr));
    g_object_unref(text);
    return contents;
}

std::string AccessibleApp::description(const Element& element) const {
    return takeString(atspi_accessible_get_description(node(element), nullptr));
}

bool AccessibleApp::setValue(const Element& element, double value) const {
    AtspiValue* values = atspi_accessible_get_value_iface(node(element));
    if (!values) {
        return false;
    }
    bool done = atspi_value_set_current_value(values, value, nullptr);
    g_object_unref(values);
    return done;
}

std::string AccessibleApp::dump() const {
    std::string lines;
    AtspiAccessible* app = appOf(m_pid);
    if (!app) {
        return "(no such app on the accessibility bus)";
    }
    walk(app, 0, [&](AtspiAccessible* candidate) {
        lines += takeString(atspi_accessible_get_role_name(candidate, nullptr)) + ": " +
                 takeString(atspi_accessible_get_name(candidate, nullptr)) + "\n";
        return true;
    });
    g_object_unref(app);
    return lines;
}

}  // namespace quillo::testing
