// The flash-and-beep measure shared by the sync tests: a scene flashes white
// at the start of every second while a beep starts at the same instant, and
// a file that recorded it is measured for the onsets of both.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace ovsync {

long long MonotonicNs();

struct Offsets {
  size_t flashes = 0;
  int paired = 0;
  double mean = 0;
  double worst = 0;
  double low = 1e9, high = -1e9;  // the earliest and latest beep - flash
  std::string report;
};

// Every flash paired with the nearest beep, in the file; or in the picture
// of file and the sound of soundFile, with frameTimes (seconds) for the
// frames of a stream that has no times of its own.
Offsets MeasureFlashesAndBeeps(const std::string& file, const std::string& soundFile = "",
                               const std::vector<double>& frameTimes = {});

}  // namespace ovsync
