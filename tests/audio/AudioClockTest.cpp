// A source fed by a simulated device whose clock runs apart from the
// system's: ten minutes of recording pass in seconds, and every frame of the
// wave file must stand where the recording's time line puts what was heard.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <thread>

#include "AudioTools.h"
#include "audio/AudioSource.h"
#include "core/Globals.h"
#include "support/Doubles.h"
#include "support/Engine.h"

namespace {

constexpr uint32_t kRate = 8000;
constexpr int64_t kUnits = 10000000;
constexpr int64_t kMs = 10000;

// A device that makes `speed` times the nominal rate of frames per second
// of the system clock, starting at firstHeard. Frame i is a counter of i + 1
// (low half on the left, high half on the right) and is heard at
// firstHeard + i / (rate * speed). It delivers 10 ms packets `lead` ahead of
// their hearing, as a monitor does, and tells their times as the sound
// server does: from a report of the device's position every 1.5 s, at the
// nominal rate in between. Time passes only while the reader sleeps.
class SimulatedDevice final : public ov::AudioClient, public ov::AudioClock {
 public:
  SimulatedDevice(double speed, int64_t firstHeard, int64_t lead, int64_t end)
      : m_speed(speed), m_firstHeard(firstHeard), m_lead(lead), m_end(end) {}

  bool Finished() const { return m_now.load() >= m_end; }
  // When the frame is heard, in truth.
  static int64_t HeardAt(double speed, int64_t firstHeard, int64_t frame) {
    return firstHeard + static_cast<int64_t>(std::llround(frame * kUnits / (kRate * speed)));
  }
  int64_t HeardAt(int64_t frame) const { return HeardAt(m_speed, m_firstHeard, frame); }

  HRESULT GetMixFormat(WAVEFORMATEXTENSIBLE* format) override {
    *format = ovtest::StereoS16(kRate);
    return S_OK;
  }
  HRESULT IsFormatSupported(const WAVEFORMATEXTENSIBLE&, WAVEFORMATEXTENSIBLE*,
                            bool* hasClosest) override {
    *hasClosest = false;
    return S_OK;
  }
  HRESULT Initialize(bool, REFERENCE_TIME, const WAVEFORMATEXTENSIBLE&) override { return S_OK; }
  HRESULT GetCaptureClient(std::unique_ptr<ov::AudioCaptureClient>* client) override {
    *client = std::make_unique<Reader>(this);
    return S_OK;
  }
  HRESULT Start() override { return S_OK; }
  HRESULT Stop() override { return S_OK; }
  ov::AudioClock& Clock() override { return *this; }

  int64_t Now() override { return m_now.load(); }
  void Sleep(uint32_t ms) override {
    if (m_now.load() < m_end)
      m_now.fetch_add(ms * kMs);
    else
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  HRESULT GetNextPacketSize(uint32_t* frames) {
    *frames = static_cast<uint32_t>(Delivered() - m_next);
    return S_OK;
  }
  HRESULT GetBuffer(const BYTE** data, uint32_t* frames, uint32_t* flags, int64_t* heardAt) {
    *frames = static_cast<uint32_t>(std::min<int64_t>(Delivered() - m_next, kPacket));
    *flags = 0;
    for (uint32_t n = 0; n < *frames; ++n) {
      const auto count = static_cast<uint32_t>(m_next + n + 1);
      const uint16_t halves[2] = {static_cast<uint16_t>(count), static_cast<uint16_t>(count >> 16)};
      std::memcpy(m_packet + 4 * n, halves, 4);
    }
    *data = m_packet;
    *heardAt = Reported(m_next);
    return S_OK;
  }
  HRESULT ReleaseBuffer(uint32_t frames) {
    m_next += frames;
    return S_OK;
  }

 private:
  static constexpr int64_t kPacket = kRate / 100;
  static constexpr int64_t kReportPeriod = 15000000;

  // The capture client reads the device; the source owns both.
  class Reader final : public ov::AudioCaptureClient {
   public:
    explicit Reader(SimulatedDevice* device) : m_device(device) {}
    HRESULT GetNextPacketSize(uint32_t* frames) override {
      return m_device->GetNextPacketSize(frames);
    }
    HRESULT GetBuffer(const BYTE** data, uint32_t* frames, uint32_t* flags,
                      int64_t* heardAt) override {
      return m_device->GetBuffer(data, frames, flags, heardAt);
    }
    HRESULT ReleaseBuffer(uint32_t frames) override { return m_device->ReleaseBuffer(frames); }

   private:
    SimulatedDevice* m_device;
  };

  // Frames heard by time t, whole packets only.
  int64_t HeardBy(int64_t t) const {
    if (t < m_firstHeard) return 0;
    return static_cast<int64_t>((t - m_firstHeard) * kRate * m_speed / kUnits);
  }
  int64_t Delivered() const { return HeardBy(m_now.load() + m_lead) / kPacket * kPacket; }
  int64_t Reported(int64_t frame) const {
    const int64_t report = m_now.load() / kReportPeriod * kReportPeriod;
    const int64_t at = std::max<int64_t>(0, HeardBy(report));
    return HeardAt(at) + (frame - at) * kUnits / kRate;
  }

  const double m_speed;
  const int64_t m_firstHeard, m_lead, m_end;
  std::atomic<int64_t> m_now{0};
  int64_t m_next = 0;
  BYTE m_packet[kPacket * 4 * 16];
};

class DeviceClockTest : public ::testing::TestWithParam<double> {};

TEST_P(DeviceClockTest, WaveFileKeepsTheRecordingsTimeForTenMinutes) {
  const double speed = GetParam();
  constexpr int64_t kEnd = 600 * kUnits;
  ovtest::ScratchFolder folder("ovclock");
  const std::wstring path = folder.WidePath() + L"/Speaker.wav";
  // The device answers late, as an idle sink does, and hands its frames
  // over 20 ms before they are heard.
  constexpr int64_t kFirstHeard = 250 * kMs;
  auto owned = std::make_unique<SimulatedDevice>(speed, kFirstHeard, 20 * kMs, kEnd);
  SimulatedDevice* device = owned.get();
  const ovtest::LogMark mark;
  g_bRunning.exchange(1);
  ov::SetRecording(1);
  ovtest::NullStatistics statistics;
  {
    CAudioSource source(&statistics, nullptr);
    ov::AudioEndpoint endpoint;
    endpoint.name = L"Simulated";
    ASSERT_EQ(source.Initialize(AudioDevice_Render, path.c_str(), std::move(owned), endpoint),
              S_OK);
    while (!device->Finished()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ov::SetRecording(0);
    g_bRunning.exchange(0);
    source.Join();
  }

  const ovtest::WaveContent wave = ovtest::ReadWave(path);
  ASSERT_TRUE(wave.opened);
  EXPECT_NEAR(static_cast<double>(wave.Frames()), 600.0 * kRate, 0.01 * kRate)
      << "as long as the recording";
  double worst = 0;
  size_t silent = 0;
  for (size_t k = 0; k < wave.Frames(); ++k) {
    const uint32_t count = wave.CountAt(k);
    if (count == 0) {
      ++silent;
      continue;
    }
    const double offset =
        static_cast<double>(k) / kRate -
        static_cast<double>(SimulatedDevice::HeardAt(speed, kFirstHeard, count - 1)) / kUnits;
    worst = std::max(worst, std::fabs(offset));
  }
  std::printf("device clock x%g: largest offset %.2f ms\n", speed, worst * 1000);
  EXPECT_LE(worst, 0.020) << "largest distance from the recording's time";
  EXPECT_NEAR(static_cast<double>(silent), 0.25 * kRate, 0.02 * kRate)
      << "the late start is silence, and nothing else is";
  const std::string log = mark.Text();
  EXPECT_NE(log.find("eRender timeline: silence="), std::string::npos) << log;
}

INSTANTIATE_TEST_SUITE_P(Speeds, DeviceClockTest, ::testing::Values(1.001, 0.999),
                         [](const auto& info) {
                           return std::string(info.param > 1 ? "Fast" : "Slow");
                         });

}  // namespace
