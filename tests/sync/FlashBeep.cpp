#include "sync/FlashBeep.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "support/TestEnv.h"

namespace ovsync {

long long MonotonicNs() {
  timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return ts.tv_sec * 1000000000LL + ts.tv_nsec;
}

namespace {

// Times at which a series crosses its threshold upwards, after being below
// it for at least `quiet` seconds.
std::vector<double> Onsets(const std::vector<std::pair<double, double>>& series, double threshold,
                           double quiet) {
  std::vector<double> onsets;
  double lastAbove = -1e9;
  bool above = false;
  for (const auto& [t, value] : series) {
    bool now = value > threshold;
    if (now && !above && t - lastAbove > quiet) onsets.push_back(t);
    if (now) lastAbove = t;
    above = now;
  }
  return onsets;
}

// Mean luma of each video frame, at its presentation time.
std::vector<std::pair<double, double>> FrameLuma(const std::string& file) {
  std::string out = ovtest::RunCapture(
      "ffprobe -v error -f lavfi -i \"movie='" + file +
      "',signalstats\" -show_entries frame=pts_time:frame_tags=lavfi.signalstats.YAVG "
      "-of csv=p=0");
  std::vector<std::pair<double, double>> series;
  for (const std::string& line : ovtest::Lines(out)) {
    double t, y;
    // A stream without times (a temp video) gives N/A: its frames are counted.
    if (std::sscanf(line.c_str(), "%lf,%lf", &t, &y) == 2 ||
        (std::sscanf(line.c_str(), "N/A,%lf", &y) == 1 && (t = series.size(), true)))
      series.push_back({t, y});
  }
  return series;
}

// RMS of the sound in 5 ms steps, at the time of each step's start.
std::vector<std::pair<double, double>> SoundLevel(const std::string& file) {
  double start = std::atof(ovtest::RunCapture("ffprobe -v error -select_streams a:0 -show_entries "
                                              "stream=start_time -of csv=p=0 '" +
                                              file + "'")
                               .c_str());
  std::string pcm =
      ovtest::RunCapture("ffmpeg -v error -i '" + file + "' -map 0:a -ac 1 -ar 48000 -f s16le -");
  const int16_t* samples = reinterpret_cast<const int16_t*>(pcm.data());
  size_t count = pcm.size() / 2;
  const size_t step = 240;
  std::vector<std::pair<double, double>> series;
  for (size_t i = 0; i + step <= count; i += step) {
    double sum = 0;
    for (size_t j = i; j < i + step; ++j) sum += static_cast<double>(samples[j]) * samples[j];
    series.push_back({start + i / 48000.0, std::sqrt(sum / step) / 32768.0});
  }
  return series;
}

}  // namespace

Offsets MeasureFlashesAndBeeps(const std::string& file, const std::string& soundFile,
                               const std::vector<double>& frameTimes) {
  auto luma = FrameLuma(file);
  for (size_t i = 0; i < luma.size() && i < frameTimes.size(); ++i) luma[i].first = frameTimes[i];
  std::vector<double> flashes = Onsets(luma, 128, 0.5);
  std::vector<double> beeps = Onsets(SoundLevel(soundFile.empty() ? file : soundFile), 0.05, 0.5);
  std::printf("%zu flashes, %zu beeps\n", flashes.size(), beeps.size());
  Offsets o;
  o.flashes = flashes.size();
  std::ostringstream report;
  for (double flash : flashes) {
    double nearest = 1e9;
    for (double beep : beeps)
      if (std::fabs(beep - flash) < std::fabs(nearest)) nearest = beep - flash;
    if (std::fabs(nearest) > 0.5) continue;
    ++o.paired;
    o.mean += nearest;
    o.worst = std::max(o.worst, std::fabs(nearest));
    o.low = std::min(o.low, nearest);
    o.high = std::max(o.high, nearest);
    report << static_cast<int>(std::lround(nearest * 1000)) << " ";
  }
  if (o.paired) o.mean /= o.paired;
  o.report = report.str();
  std::printf("beep - flash offsets (ms): %s\nmean %.1f ms, worst %.1f ms over %d pairs\n",
              o.report.c_str(), o.mean * 1000, o.worst * 1000, o.paired);
  return o;
}

}  // namespace ovsync
