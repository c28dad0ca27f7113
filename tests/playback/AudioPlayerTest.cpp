// The sound player against a private PulseAudio daemon: two wave files play
// at once, and the null sink's monitor, recorded by ffmpeg, must hold their
// sum, with the track volumes the host set.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <cmath>
#include <fstream>
#include <vector>

#include "audio/WaveEncoder.h"
#include "core/Globals.h"
#include "orvanta/orvanta.h"
#include "platform/Clock.h"
#include "platform/Text.h"
#include "support/Engine.h"
#include "support/Servers.h"
#include "support/TestEnv.h"

namespace {

auto* const g_env = ::testing::AddGlobalTestEnvironment(
    new ovtest::EngineEnvironment(ovtest::EngineEnvironment::Options{320, 240, true}));

constexpr int kRate = 48000;
constexpr double kLow = 440, kHigh = 1250, kAmplitude = 0.25;

void WriteTone(const std::string& path, double frequency, double seconds) {
  WAVEFORMATEXTENSIBLE format{};
  format.Format = {WAVE_FORMAT_PCM, 2, kRate, kRate * 4, 4, 16, 0};
  CWaveEncoder writer;
  ASSERT_EQ(writer.Initialize(ov::FromUtf8(path).c_str(), &format), S_OK);
  std::vector<int16_t> samples(static_cast<size_t>(seconds * kRate) * 2);
  for (size_t i = 0; i < samples.size(); ++i)
    samples[i] = static_cast<int16_t>(
        std::lround(32767 * kAmplitude * std::sin(2 * M_PI * frequency * (i / 2) / kRate)));
  ASSERT_EQ(writer.Write(samples.data(), static_cast<uint32_t>(samples.size() * 2)), S_OK);
}

struct EndCallback : CPlayerCallback {
  std::atomic<int> ends{0};
  void OnPlayEnd() override { ++ends; }
};

// Records the sink's monitor with ffmpeg while the player plays to its end;
// the left channel as values in [-1, 1).
std::vector<double> RecordPlayback(CAudioPlayerObject* player, EndCallback* callback,
                                   const std::string& folder) {
  const std::string raw = folder + "/monitor.raw";
  const pid_t ffmpeg = ovtest::Spawn({"ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "pulse",
                                      "-sample_rate", "48000", "-channels", "2", "-i",
                                      "nullsink.monitor", "-t", "6", "-f", "s16le", raw});
  ov::SleepMs(1000);  // the peer's stream is up before the first sample plays
  const int ends = callback->ends;
  player->Play();
  for (int i = 0; i < 1000 && callback->ends == ends; ++i) ov::SleepMs(10);
  EXPECT_EQ(callback->ends, ends + 1) << "the end was not reported";
  int status = 0;
  waitpid(ffmpeg, &status, 0);
  std::ifstream in(raw, std::ios::binary);
  std::vector<double> left;
  std::vector<int16_t> s(2);
  while (in.read(reinterpret_cast<char*>(s.data()), 4)) left.push_back(s[0] / 32768.0);
  return left;
}

// The amplitudes of the two tones over the middle second of the sound, and
// the RMS of what is neither.
void Analyse(const std::vector<double>& x, double* low, double* high, double* rest) {
  size_t first = 0, last = x.size();
  while (first < x.size() && std::fabs(x[first]) < 0.01) ++first;
  while (last > first && std::fabs(x[last - 1]) < 0.01) --last;
  const size_t n = kRate;
  ASSERT_GE(last - first, 2 * n) << "the monitor holds less than 2 s of sound";
  const size_t from = (first + last - n) / 2;
  double fit[4] = {};
  const double freq[2] = {kLow, kHigh};
  for (size_t i = 0; i < n; ++i)
    for (int k = 0; k < 4; ++k) {
      const double phase = 2 * M_PI * freq[k / 2] * i / kRate;
      fit[k] += x[from + i] * (k % 2 ? std::cos(phase) : std::sin(phase)) * 2 / n;
    }
  *low = std::hypot(fit[0], fit[1]);
  *high = std::hypot(fit[2], fit[3]);
  double residual = 0;
  for (size_t i = 0; i < n; ++i) {
    double e = x[from + i];
    for (int k = 0; k < 4; ++k) {
      const double phase = 2 * M_PI * freq[k / 2] * i / kRate;
      e -= fit[k] * (k % 2 ? std::cos(phase) : std::sin(phase));
    }
    residual += e * e;
  }
  *rest = std::sqrt(residual / n);
}

TEST(AudioPlayer, TwoTracksMixWithTheirVolumes) {
  ovtest::ScratchFolder folder("playback");
  const std::string out = folder.Path() + "/SystemAudio.wav", in = folder.Path() + "/Mic.wav";
  WriteTone(out, kLow, 3);
  WriteTone(in, kHigh, 3);
  CapturedFile record{};
  record.bWaveOutStream = record.bUseWaveOut = record.bWaveInStream = record.bUseWaveIn = 1;
  record.lWaveOutVolume = record.lWaveInVolume = 100;
  std::wcsncpy(record.szWaveOutFile, ov::FromUtf8(out).c_str(), OV_MAX_PATH - 1);
  std::wcsncpy(record.szWaveInFile, ov::FromUtf8(in).c_str(), OV_MAX_PATH - 1);
  g_Recording = &record;
  EndCallback callback;
  CAudioPlayerObject* player = PlayCapturedAudio(&callback);
  ASSERT_NE(player, nullptr);

  double low = 0, high = 0, rest = 1;
  Analyse(RecordPlayback(player, &callback, folder.Path()), &low, &high, &rest);
  EXPECT_NEAR(low, kAmplitude, 0.005);
  EXPECT_NEAR(high, kAmplitude, 0.005);
  EXPECT_LT(rest, 0.002) << "the monitor holds more than the sum of the tracks";

  // Half of the track's half, and the microphone left out: played again from
  // the start, since the player has ended.
  record.lWaveOutVolume = 50;
  record.bUseWaveIn = 0;
  player->SetVolume(50);
  Analyse(RecordPlayback(player, &callback, folder.Path()), &low, &high, &rest);
  EXPECT_NEAR(low, kAmplitude / 4, 0.005);
  EXPECT_LT(high, 0.001);
  player->Destroy();
  g_Recording = nullptr;
}

}  // namespace
