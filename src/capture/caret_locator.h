#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "base/geometry.h"

namespace quillo::capture {

// Finds the text caret of the focused text field through the accessibility bus (AT-SPI). Used
// on the "app.quillo.caret" queue only; each look-up waits at most half a second for an app.
class CaretLocator {
public:
    virtual ~CaretLocator() = default;
    // The caret's rectangle in screen pixels (on Wayland: in its window's), looked for in the
    // app with process id `pid` (any app when 0); none when no focused element tells where its
    // caret is. `foundIn`, when given, receives the process of the app it was found in.
    virtual std::optional<Rect> locate(int32_t pid, int32_t* foundIn = nullptr) = 0;
};

// The AT-SPI locator; one that never finds anything when the accessibility bus is missing.
std::unique_ptr<CaretLocator> makeCaretLocator();

}  // namespace quillo::capture
