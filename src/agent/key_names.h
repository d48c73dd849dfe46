#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quillo::agent {

// The X keysym press_key sends for a key name: a letter, digit or punctuation character, or one
// of the named keys (texts::kNamedKeys); none for anything else.
std::optional<uint32_t> keysymForKey(const std::string& name);

// The keysym held for a modifier name: "command" is Ctrl (as shortcuts are on Linux),
// "control" the Super key beside it, "option" and "alt" Alt, "shift", "super".
std::optional<uint32_t> keysymForModifier(const std::string& name);

}  // namespace quillo::agent
