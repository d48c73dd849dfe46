#pragma once

// Clicks and key presses read from the kernel's input devices (/dev/input/event*), for
// sessions where no client may see other apps' input (Wayland). Reading them needs membership
// of the "input" group; without it there is no watcher and a message that says what to do.

#include <filesystem>
#include <functional>
#include <memory>

#include "base/result.h"
#include "capture/display_backend.h"

namespace quillo::capture::portal {

// Watches every event device in `folder`, and those plugged in later, on a thread of its own
// until destroyed. Fails when no device can be opened, with texts::kNoInputAccess when the
// reason is permission.
Result<std::unique_ptr<InputWatcher>> watchKernelInput(
    std::function<void(const InputEvent&)> onInput,
    const std::filesystem::path& folder = "/dev/input");

}  // namespace quillo::capture::portal
