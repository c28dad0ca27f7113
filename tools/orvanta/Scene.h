// `orvanta scene`: a moving picture on the X display for demos and tests.
// Shapes move, a clock and a frame counter run, and the whole picture flashes
// white for the first tenth of every second counted from an epoch that the
// tone player shares, so that picture and sound can be checked for sync.
#pragma once

#include <string>
#include <vector>

namespace cli {

// The flash and the beep: the first kFlashMs of every second after the epoch.
inline constexpr int kFlashMs = 100;

// Options: --epoch NS (CLOCK_MONOTONIC nanoseconds of second zero; default
// now), --fps N, --pointer (moves the pointer along a path), --ready-fd FD
// (a line is written there once the first picture is up).
int RunScene(const std::vector<std::string>& args);

// Nanoseconds of CLOCK_MONOTONIC.
long long MonotonicNs();

}  // namespace cli
