#pragma once

#include <string>

namespace quillo {

// Elapsed-time text "m:ss" (minutes are not wrapped into hours: 75 minutes read "75:00").
// `precise` adds tenths of a second, "m:ss.t". Negative or non-finite input reads as zero;
// seconds are cut down, never rounded up, so a clock never shows a second that has not passed.
std::string clock(double seconds, bool precise = false);

}  // namespace quillo

namespace quillo {

// Seconds on the steady clock (CLOCK_MONOTONIC): the one clock that capture, sound and the
// cursor recorder stamp their samples with.
double monotonicSeconds();

}  // namespace quillo
