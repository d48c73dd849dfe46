#include "clock.h"

#include <chrono>
#include <cmath>
#include <cstdio>

namespace quillo {

std::string clock(double seconds, bool precise) {
    if (!std::isfinite(seconds) || seconds < 0) {
        seconds = 0;
    }
    // Tenths are counted with a small allowance so 1.3 (stored as 1.29999...) shows "0:01.3".
    long long tenths = static_cast<long long>(std::floor(seconds * 10 + 1e-6));
    long long whole = tenths / 10;
    char buffer[48];
    if (precise) {
        std::snprintf(buffer, sizeof buffer, "%lld:%02lld.%lld", whole / 60, whole % 60,
                      tenths % 10);
    } else {
        std::snprintf(buffer, sizeof buffer, "%lld:%02lld", whole / 60, whole % 60);
    }
    return buffer;
}

}  // namespace quillo

namespace quillo {

double monotonicSeconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace quillo
