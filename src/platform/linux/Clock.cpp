#include "platform/Clock.h"

#include <ctime>

namespace ov {

uint32_t TickCount() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  uint64_t ms =
      static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
  return static_cast<uint32_t>(ms);
}

int64_t MonotonicTime100ns() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 10000000 + ts.tv_nsec / 100;
}

void SleepMs(uint32_t ms) {
  timespec ts{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  while (nanosleep(&ts, &ts) != 0) {
  }
}

static LocalTime FromTm(const tm& t, int millisecond) {
  return LocalTime{t.tm_year + 1900, t.tm_mon + 1, t.tm_mday,  t.tm_hour,
                   t.tm_min,         t.tm_sec,     millisecond};
}

LocalTime Now() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  tm t;
  localtime_r(&ts.tv_sec, &t);
  return FromTm(t, static_cast<int>(ts.tv_nsec / 1000000));
}

LocalTime ToLocal(int64_t epochSeconds) {
  time_t s = static_cast<time_t>(epochSeconds);
  tm t;
  localtime_r(&s, &t);
  return FromTm(t, 0);
}

}  // namespace ov
