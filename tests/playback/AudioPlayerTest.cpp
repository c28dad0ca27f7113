// The sound player against a private PulseAudio daemon: two wave files play
// at once, and the null sink's monitor, recorded by ffmpeg, must hold their
// sum, with the track volumes the host set.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <fstream>
#include <vector>

#include "audio/WaveEncoder.h"
#include "core/Globals.h"
#include "orvanta/orvanta.h"
#include "platform/AudioClient.h"
#include "platform/AudioEndpoint.h"
#include "platform/AudioOutput.h"
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

namespace {

// A beep in the first tenth of every second.
struct Beeps : ov::AudioOutputSource {
  int64_t frame = 0;
  uint32_t Read(void* dest, uint32_t bytes) override {
    auto* s = static_cast<int16_t*>(dest);
    const uint32_t n = bytes / 4;
    for (uint32_t i = 0; i < n; ++i, ++frame) {
      const double t = static_cast<double>(frame) / kRate;
      const double v = std::fmod(t, 1.0) < 0.1 ? 0.5 * std::sin(2 * M_PI * 1000 * t) : 0;
      s[2 * i] = s[2 * i + 1] = static_cast<int16_t>(v * 32767);
    }
    return n * 4;
  }
};

// The position of an output is the time of what is heard, from its first
// sample on, even where an idle sink had rendered far ahead: each beep
// starts in the sink's loopback when the position passes its second.
TEST(AudioOutput, PositionIsWhatIsHeard) {
  ov::AudioEndpoint endpoint;
  ASSERT_EQ(ov::GetDefaultAudioEndpoint(ov::AudioFlow::Render, &endpoint), S_OK);
  std::unique_ptr<ov::AudioClient> loopback;
  std::unique_ptr<ov::AudioCaptureClient> packets;
  WAVEFORMATEXTENSIBLE mix{};
  ASSERT_EQ(ov::AudioClient::Activate(endpoint, &loopback), S_OK);
  ASSERT_EQ(loopback->GetMixFormat(&mix), S_OK);
  ASSERT_EQ(mix.Format.wBitsPerSample, 16);
  ASSERT_EQ(loopback->Initialize(true, 20000000, mix), S_OK);
  ASSERT_EQ(loopback->GetCaptureClient(&packets), S_OK);
  ASSERT_EQ(loopback->Start(), S_OK);
  WAVEFORMATEXTENSIBLE format{};
  format.Format = {WAVE_FORMAT_PCM, 2, kRate, kRate * 4, 4, 16, 0};
  Beeps beeps;
  std::unique_ptr<ov::AudioOutput> output;
  ASSERT_EQ(ov::AudioOutput::Open(format, &beeps, &output), S_OK);
  ASSERT_EQ(output->Play(), S_OK);

  std::vector<int64_t> passed, heard;  // monotonic 100-ns times
  int64_t quietUntil = 0;
  for (const int64_t end = ov::MonotonicTime100ns() + 60000000; ov::MonotonicTime100ns() < end;) {
    const int64_t position = output->Position(), now = ov::MonotonicTime100ns();
    // Second 0 is passed before anything is heard; from 1 on, when heard.
    const int64_t second = static_cast<int64_t>(passed.size() + 1) * 10000000;
    if (position >= second) passed.push_back(now - (position - second));
    uint32_t frames = 0, flags = 0;
    const BYTE* data = nullptr;
    int64_t at = 0;
    while (packets->GetBuffer(&data, &frames, &flags, &at) == S_OK && frames > 0) {
      for (uint32_t i = 0; i < frames; ++i) {
        const int64_t t = at + int64_t{i} * 10000000 / mix.Format.nSamplesPerSec;
        int16_t sample;
        std::memcpy(&sample, data + i * mix.Format.nBlockAlign, 2);
        if (std::abs(sample) > 3000 && t > quietUntil) heard.push_back(t);
        if (std::abs(sample) > 3000) quietUntil = t + 3000000;
      }
      packets->ReleaseBuffer(frames);
    }
    ov::SleepMs(1);
  }
  // The loopback may miss the first beeps: it starts late on an idle sink.
  ASSERT_GE(heard.size(), 4u);
  for (int64_t h : heard) {
    if (h < heard[0] + 5000000) continue;  // the beep of second 0, if heard
    int64_t nearest = INT64_MAX;
    for (int64_t p : passed)
      if (std::llabs(p - h) < std::llabs(nearest)) nearest = p - h;
    EXPECT_NEAR(nearest / 1e4, 0, 10) << "ms from the position to the beep heard";
  }
}

}  // namespace
