#include "Tone.h"

#include <pulse/error.h>
#include <pulse/simple.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "Console.h"
#include "Scene.h"

namespace cli {

namespace {

constexpr int kRate = 48000;
constexpr int kChannels = 2;
constexpr int kChunkFrames = kRate / 100;  // 10 ms
constexpr double kFrequency = 1000.0;
constexpr double kRampSeconds = 0.005;  // soft edges: no click, a clear onset

// The beep's level at t seconds after the epoch, 0 between beeps and in
// beeps that began before `from`: half a beep would seem to start late.
double Envelope(double t, double from) {
  if (t < 0 || std::floor(t) < from) return 0;
  double into = t - std::floor(t);
  double length = kFlashMs / 1000.0;
  if (into >= length) return 0;
  return std::min({1.0, into / kRampSeconds, (length - into) / kRampSeconds});
}

}  // namespace

int RunTone(const std::vector<std::string>& args) {
  long long epochNs = MonotonicNs();
  int readyFd = -1;
  for (size_t i = 0; i + 1 < args.size(); i += 2) {
    if (args[i] == "--epoch")
      epochNs = std::atoll(args[i + 1].c_str());
    else if (args[i] == "--ready-fd")
      readyFd = std::atoi(args[i + 1].c_str());
  }
  pa_sample_spec sampleSpec{PA_SAMPLE_S16LE, kRate, kChannels};
  const uint32_t bytesPerMs = kRate * kChannels * 2 / 1000;
  // A short buffer keeps the time from write to sound small and steady.
  pa_buffer_attr buffer{static_cast<uint32_t>(-1), 40 * bytesPerMs, static_cast<uint32_t>(-1),
                        10 * bytesPerMs, static_cast<uint32_t>(-1)};
  int error = 0;
  pa_simple* stream = pa_simple_new(nullptr, "orvanta", PA_STREAM_PLAYBACK, nullptr, "demo beeps",
                                    &sampleSpec, nullptr, &buffer, &error);
  if (!stream) {
    Error("tone: cannot play sound: %s", pa_strerror(error));
    return kExitFailed;
  }
  int16_t chunk[kChunkFrames * kChannels] = {};
  // Some silence first, so that playback runs before the clock is matched.
  for (int i = 0; i < 10; ++i) pa_simple_write(stream, chunk, sizeof chunk, &error);
  // From here on, sample n sounds at base + n / kRate seconds after the epoch.
  // An idle sink may have rendered silence up to two seconds ahead: beeps
  // due before this stream is heard are left out whole.
  pa_usec_t latency = pa_simple_get_latency(stream, &error);
  double base = static_cast<double>(MonotonicNs() - epochNs) / 1e9 + latency / 1e6;
  if (readyFd >= 0) {
    (void)!write(readyFd, "ready\n", 6);
    close(readyFd);
  }
  for (long long n = 0;; n += kChunkFrames) {
    for (int i = 0; i < kChunkFrames; ++i) {
      double t = base + static_cast<double>(n + i) / kRate;
      double value =
          0.5 * Envelope(t, base) * std::sin(2 * 3.14159265358979323846 * kFrequency * t);
      auto sample = static_cast<int16_t>(std::lround(value * 32767));
      for (int c = 0; c < kChannels; ++c) chunk[i * kChannels + c] = sample;
    }
    if (pa_simple_write(stream, chunk, sizeof chunk, &error) < 0) {
      Error("tone: sound output lost: %s", pa_strerror(error));
      pa_simple_free(stream);
      return kExitFailed;
    }
  }
}

}  // namespace cli
