#include "assert.h"

#include <cstdio>
#include <cstdlib>

namespace quillo::detail {

void assertionFailed(const char* condition, const char* file, int line) {
    std::fprintf(stderr, "quillo: assertion failed: %s (%s:%d)\n", condition, file, line);
    std::abort();
}

}  // namespace quillo::detail
