#pragma once

#include <string>

namespace quillo {

// A random (version 4) UUID in its text form, upper-case hexadecimal:
// "3F2A9C1B-0D4E-4A7B-9C3D-5E6F7A8B9C0D". Drawn from the kernel's random source.
std::string makeUUID();

// `count` bytes from the kernel's cryptographically secure random source.
std::string secureRandomBytes(size_t count);

}  // namespace quillo
