#pragma once

// QUILLO_ASSERT guards programming errors (never user input): it prints the failed condition
// with its place and aborts, in every build type.
#define QUILLO_ASSERT(cond)                                               \
    do {                                                                  \
        if (!(cond)) [[unlikely]] {                                       \
            ::quillo::detail::assertionFailed(#cond, __FILE__, __LINE__); \
        }                                                                 \
    } while (false)

namespace quillo::detail {
[[noreturn]] void assertionFailed(const char* condition, const char* file, int line);
}
