#include "uuid.h"

#include <cerrno>
#include <cstdio>
#include <sys/random.h>

#include "assert.h"

namespace quillo {

std::string secureRandomBytes(size_t count) {
    std::string bytes(count, '\0');
    size_t filled = 0;
    while (filled < count) {
        ssize_t n = ::getrandom(bytes.data() + filled, count - filled, 0);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        QUILLO_ASSERT(n > 0);
        filled += static_cast<size_t>(n);
    }
    return bytes;
}

std::string makeUUID() {
    std::string bytes = secureRandomBytes(16);
    auto b = reinterpret_cast<unsigned char*>(bytes.data());
    b[6] = static_cast<unsigned char>((b[6] & 0x0F) | 0x40);  // version 4
    b[8] = static_cast<unsigned char>((b[8] & 0x3F) | 0x80);  // RFC 4122 variant
    char text[37];
    std::snprintf(text, sizeof text,
                  "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b[0],
                  b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13],
                  b[14], b[15]);
    return text;
}

}  // namespace quillo
