// GnomeSession's AT-SPI side: finding windows and answering the portal's consent dialogs. It
// runs in a helper process (this test binary, started again), so that libatspi's one
// connection per process never outlives a session, and no test's own AT-SPI use meets ours.

#include <atspi/atspi.h>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/gnome_session.h"

namespace quillo::testing::gnome {

namespace {

constexpr const char* kBackend = "xdg-desktop-portal-gnome";
constexpr int kMaxDepth = 24;

struct Unref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
using Object = std::unique_ptr<AtspiAccessible, Unref>;

std::string nameOf(AtspiAccessible* object) {
    gchar* name = atspi_accessible_get_name(object, nullptr);
    std::string text = name != nullptr ? name : "";
    g_free(name);
    return text;
}

AtspiRole roleOf(AtspiAccessible* object) { return atspi_accessible_get_role(object, nullptr); }

bool hasState(AtspiAccessible* object, AtspiStateType state) {
    atspi_accessible_clear_cache(object);
    AtspiStateSet* states = atspi_accessible_get_state_set(object);
    bool has = states != nullptr && atspi_state_set_contains(states, state);
    if (states != nullptr) {
        g_object_unref(states);
    }
    return has;
}

std::vector<Object> childrenOf(AtspiAccessible* object) {
    std::vector<Object> children;
    int count = atspi_accessible_get_child_count(object, nullptr);
    for (int i = 0; i < count; ++i) {
        if (AtspiAccessible* child = atspi_accessible_get_child_at_index(object, i, nullptr)) {
            children.emplace_back(child);
        }
    }
    return children;
}

// `object` and everything below it, depth first.
void collect(Object object, int depth, std::vector<Object>& into) {
    AtspiAccessible* raw = object.get();
    into.push_back(std::move(object));
    if (depth < kMaxDepth) {
        for (auto& child : childrenOf(raw)) {
            collect(std::move(child), depth + 1, into);
        }
    }
}

// The top-level windows of every application, fresh from the applications.
std::vector<std::pair<std::string, Object>> topLevels() {
    AtspiAccessible* desktop = atspi_get_desktop(0);
    atspi_accessible_clear_cache(desktop);
    std::vector<std::pair<std::string, Object>> windows;
    for (auto& app : childrenOf(desktop)) {
        std::string appName = nameOf(app.get());
        for (auto& window : childrenOf(app.get())) {
            windows.emplace_back(appName, std::move(window));
        }
    }
    g_object_unref(desktop);
    return windows;
}

// The backend's dialog with that title, with all it holds; empty while there is none.
std::vector<Object> dialog(const std::string& title) {
    std::vector<Object> objects;
    for (auto& [app, window] : topLevels()) {
        if (app == kBackend && nameOf(window.get()) == title) {
            collect(std::move(window), 0, objects);
            break;
        }
    }
    return objects;
}

bool press(AtspiAccessible* object) {
    AtspiAction* action = atspi_accessible_get_action_iface(object);
    bool done = action != nullptr && atspi_action_do_action(action, 0, nullptr);
    if (action != nullptr) {
        g_object_unref(action);
    }
    return done;
}

// Presses the dialog's Share button once it takes presses: it does only after a choice.
bool pressShare(const std::vector<Object>& objects, const Deadline& deadline) {
    for (const auto& object : objects) {
        if (roleOf(object.get()) == ATSPI_ROLE_PUSH_BUTTON &&
            nameOf(object.get()).find("Share") != std::string::npos) {
            return deadline.waitFor([&] {
                return hasState(object.get(), ATSPI_STATE_SENSITIVE);
            }) && press(object.get());
        }
    }
    return false;
}

// Selects the row of a list whose name contains `item`.
bool selectRow(const std::vector<Object>& objects, const std::string& item) {
    for (const auto& object : objects) {
        AtspiRole role = roleOf(object.get());
        if (role != ATSPI_ROLE_LIST && role != ATSPI_ROLE_LIST_BOX) {
            continue;
        }
        auto rows = childrenOf(object.get());
        for (size_t i = 0; i < rows.size(); ++i) {
            if (nameOf(rows[i].get()).find(item) == std::string::npos) {
                continue;
            }
            AtspiSelection* selection = atspi_accessible_get_selection_iface(object.get());
            bool selected = selection != nullptr &&
                            atspi_selection_select_child(selection, static_cast<int>(i), nullptr);
            if (selection != nullptr) {
                g_object_unref(selection);
            }
            return selected;
        }
    }
    return false;
}

bool answerScreenShare(const std::string& item, const Deadline& deadline) {
    std::vector<Object> objects;
    // The dialog may show before its list is filled.
    bool chosen = deadline.waitFor([&] {
        objects = dialog("Screen Share");
        return !objects.empty() && selectRow(objects, item);
    });
    return chosen && pressShare(objects, deadline);
}

bool answerRemoteDesktop(const Deadline& deadline) {
    std::vector<Object> objects;
    AtspiAccessible* allow = nullptr;
    deadline.waitFor([&] {
        objects = dialog("Remote desktop");
        for (const auto& object : objects) {
            AtspiRole role = roleOf(object.get());
            if ((role == ATSPI_ROLE_CHECK_BOX || role == ATSPI_ROLE_TOGGLE_BUTTON) &&
                nameOf(object.get()) == "Allow remote interaction") {
                allow = object.get();
            }
        }
        return allow != nullptr;
    });
    if (allow == nullptr) {
        return false;
    }
    if (!hasState(allow, ATSPI_STATE_CHECKED) && (!press(allow) || !deadline.waitFor([&] {
            return hasState(allow, ATSPI_STATE_CHECKED);
        }))) {
        return false;
    }
    return pressShare(objects, deadline);
}

bool waitForWindow(const std::string& title, const Deadline& deadline) {
    return deadline.waitFor([&] {
        for (const auto& [app, window] : topLevels()) {
            if (nameOf(window.get()).find(title) != std::string::npos) {
                return true;
            }
        }
        return false;
    });
}

}  // namespace

bool Deadline::waitFor(const std::function<bool()>& done) const {
    while (!done()) {
        if (std::chrono::steady_clock::now() >= at) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return true;
}

int runDialogJob(const std::string& job, const std::string& argument, double seconds) {
    if (atspi_init() > 1) {
        return kJobFailed;
    }
    Deadline deadline{std::chrono::steady_clock::now() +
                      std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                          std::chrono::duration<double>(seconds))};
    bool done = false;
    if (job == "window") {
        done = waitForWindow(argument, deadline);
    } else if (job == "screen-share") {
        done = answerScreenShare(argument, deadline);
    } else if (job == "remote-desktop") {
        done = answerRemoteDesktop(deadline);
    } else {
        return kJobFailed;
    }
    return done ? kJobDone : kJobTimedOut;
}

}  // namespace quillo::testing::gnome
