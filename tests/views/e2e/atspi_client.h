#pragma once

#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "base/geometry.h"

namespace quillo::testing {

// A test's view of one app's accessibility tree over AT-SPI: find elements by role and name,
// press them, type into them, read them. Looks up afresh on every call (trees change), waiting
// up to a bound for an element to appear. One per test process; the bus must be up first.
class AccessibleApp {
public:
    struct Element {
        std::string role;
        std::string name;
        Rect frame;  // screen pixels
        std::shared_ptr<void> handle;
    };

    explicit AccessibleApp(pid_t pid);

    // The first showing element whose role equals `role` (any when empty) and whose name
    // contains `name` (equals it with `exact`), in tree order; waits up to `seconds` for it.
    std::optional<Element> find(const std::string& role, const std::string& name,
                                double seconds = 10, bool exact = false) const;
    std::vector<Element> findAll(const std::string& role, const std::string& name,
                                 bool exact = false) const;
    // Does the element's action named `action` (the first one when empty).
    bool act(const Element& element, const std::string& action = "") const;
    bool focus(const Element& element) const;
    // Replaces an editable text's contents.
    bool setText(const Element& element, const std::string& text) const;
    std::string text(const Element& element) const;
    std::string description(const Element& element) const;
    // Sets a value (spin box, slider).
    bool setValue(const Element& element, double value) const;
    // Every element, one per line ("role: name"), for failure messages.
    std::string dump() const;

private:
    pid_t m_pid;
};

}  // namespace quillo::testing
