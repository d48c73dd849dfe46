#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/geometry.h"

namespace quillo::capture {

// One element of an app's accessibility tree: role (AT-SPI's role name, e.g. "push button",
// "text", "menu item"), label (its name, else its text's first line, trimmed to 80 characters),
// frame in screen pixels.
struct AccessibleElement {
    std::string role;
    std::string label;
    Rect frame;
};

// Reads an app's elements through the accessibility bus. Used on one thread at a time (the input
// queue); each look-up waits at most half a second for the app.
class AccessibleElements {
public:
    virtual ~AccessibleElements() = default;
    // The visible (showing) elements of app `pid` whose frames intersect `area` (screen pixels),
    // in reading order (top to bottom, left to right), that have a label or are
    // actionable/editable, at most `limit`, only those whose role or label contains `filter`
    // (case-insensitive) when it is not empty.
    virtual std::vector<AccessibleElement> list(int32_t pid, const Rect& area, size_t limit,
                                                const std::string& filter) = 0;
    // At the screen point in app `pid`: finds the deepest element containing the point and walks
    // up its parents; a pressable element (buttons, check and radio boxes, menu items, links,
    // page tabs, toggles) gets its first action done (preferring "click", "press" or
    // "activate"); a text element (text, entry, password text, editable combo box, terminal,
    // document text) gets the focus. Returns what it did: "pressed" or "focused"; none when
    // nothing matched.
    virtual std::optional<std::string> activate(int32_t pid, Point screen) = 0;
    // Inserts `text` at the caret of app `pid`'s focused editable text, moving the caret after
    // it; false when no editable text has the focus.
    virtual bool insertText(int32_t pid, const std::string& text) = 0;
};

// The AT-SPI reader; one that finds nothing when the accessibility bus is missing.
std::unique_ptr<AccessibleElements> makeAccessibleElements();

}  // namespace quillo::capture
