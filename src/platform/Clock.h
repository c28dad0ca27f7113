// Millisecond tick and sleeping, as the pacing loops need them.
#pragma once

#include <cstdint>

namespace ov {

// Monotonic milliseconds truncated to 32 bits; unsigned differences stay
// right across the wrap.
uint32_t TickCount();

// Monotonic time in 100-ns units, for finer measurements.
int64_t MonotonicTime100ns();

void SleepMs(uint32_t ms);

struct LocalTime {
  int year, month, day, hour, minute, second, millisecond;
};
LocalTime Now();
// Local time of a file time given as seconds since the epoch.
LocalTime ToLocal(int64_t epochSeconds);

}  // namespace ov
