// WMV recordings on a real X server and sound server: the engine's own
// encoder writes the ASF temp file, and WMMux makes the final file of it.
// One recording is made for the whole program and shared by the cases.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

#include "capture/CaptureVideoStream.h"
#include "orvanta/orvanta.h"
#include "output/WMVMediaObject.h"
#include "platform/Files.h"
#include "support/Doubles.h"
#include "support/Engine.h"
#include "support/Media.h"
#include "support/Scene.h"

namespace {

auto* const g_env = ::testing::AddGlobalTestEnvironment(
    new ovtest::EngineEnvironment(ovtest::EngineEnvironment::Options{640, 480, true}));

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

std::vector<double> PacketTimes(const std::string& file) {
  std::vector<double> times;
  const std::string text = ovtest::Probe(file, "-select_streams v:0 -show_entries packet=pts_time");
  for (const char* p = text.c_str(); *p;) {
    char* end;
    double t = std::strtod(p, &end);
    if (end == p) break;
    times.push_back(t);
    p = end;
  }
  return times;
}

// 1.5 s of a still screen, then 3.5 s of motion, with both audio sources.
struct Recorded {
  ovtest::ScratchFolder folder{"ovwmv"};
  std::string video;
  std::string log;
};

const Recorded& Recording() {
  static std::unique_ptr<Recorded> made = [] {
    auto r = std::make_unique<Recorded>();
    const int64_t spacing = CCaptureVideoStream::s_nKeyFrameSpacing.exchange(10000000);
    ovtest::Scene scene;
    scene.Fill(0, 0, 640, 480, 0x406080);
    scene.Sync();
    VideoOpt video{};
    video.bStream = 1;
    video.rcScreen = {0, 0, 320, 240};
    video.CodecType = CodecType_WMV;
    video.FrameRate = 30;
    video.videoQuality = 3;
    MouseOpt mouse{};
    HRESULT hr = E_FAIL;
    ovtest::LogMark mark;
    CScreenRecoderObject* recorder =
        ovVideoRecord(0, r->folder.WidePath().c_str(), &video, AudioOpt{1, 1}, &mouse, 0, &hr);
    if (!recorder) return r;
    recorder->Start();
    SleepMs(1500);
    std::atomic<bool> stop{false};
    std::thread moving([&] {
      for (int step = 0; !stop; ++step) {
        scene.Fill(0, 0, 320, 240, 0x203040);
        scene.Fill((step * 9) % 260, (step * 5) % 180, 60, 60, 0xF0C020);
        scene.Sync();
        SleepMs(16);
      }
    });
    SleepMs(3500);
    recorder->Destroy();
    stop = true;
    moving.join();
    CCaptureVideoStream::s_nKeyFrameSpacing = spacing;
    r->video = ov::ToUtf8(GetCapturedFile()->szScreenCaptureFile);
    r->log = mark.Text();
    return r;
  }();
  return *made;
}

TEST(WmvRecording, TempFileIsWmv2InAsfWithEveryFrameTheCaptureWrote) {
  const Recorded& r = Recording();
  ASSERT_FALSE(r.video.empty());
  EXPECT_EQ(ovtest::Probe(r.video, "-show_entries format=format_name"), "asf\n");
  EXPECT_EQ(ovtest::Probe(r.video, "-select_streams v:0 -show_entries stream=codec_name"),
            "wmv2\n");
  EXPECT_EQ(ovtest::DecodeErrors(r.video), "");
  long long input = -1, output = -2;
  const size_t at = r.log.find("WMV: Frame Input=");
  ASSERT_NE(at, std::string::npos) << r.log;
  ASSERT_EQ(
      std::sscanf(r.log.c_str() + at, "WMV: Frame Input=%lld, Frame Output=%lld", &input, &output),
      2);
  EXPECT_EQ(input, output);
  const std::string decoded = ovtest::Probe(
      r.video, "-count_frames -select_streams v:0 -show_entries stream=nb_read_frames");
  EXPECT_EQ(std::atoll(decoded.c_str()), output);
  // The still screen: its first frame and few others; the motion: many.
  const std::vector<double> times = PacketTimes(r.video);
  const double first = times.empty() ? 0 : times.front();
  int still = 0;
  for (double t : times) still += t - first < 1.3;
  EXPECT_LE(still, 3);
  EXPECT_GT(times.size(), size_t(still) + 30);
}

TEST(WmvRecording, SlowEncoderMakesCaptureWaitAndLosesNoFrame) {
  ovtest::ScratchFolder folder("ovwmvslow");
  const std::wstring path = folder.WidePath() + L"/slow.wmv";
  ovtest::NullStatistics reports;
  std::vector<uint32_t> pixels(64 * 64);
  int64_t waits = 0;
  {
    CWMVMediaObject encoder(&reports, &reports);
    ASSERT_EQ(encoder.Initialize(0, 64, 64, 30, 3, path.c_str()), S_OK);
    CWMVMediaObject::s_nEncodeDelayMsForTesting = 5;
    for (int i = 0; i < 60; ++i) {
      pixels[static_cast<size_t>(i) * 37 % pixels.size()] = 0xFFFFFF;
      encoder.WriteFrame(reinterpret_cast<const uint8_t*>(pixels.data()), 256, i * 333333LL, 0, 0);
    }
    encoder.Finish();
    CWMVMediaObject::s_nEncodeDelayMsForTesting = 0;
    waits = encoder.CaptureWaits();
    EXPECT_EQ(encoder.OutputFrames(), 60);
  }
  EXPECT_GT(waits, 0);
  const std::string file = ov::ToUtf8(path);
  EXPECT_EQ(ovtest::Probe(file, "-count_frames -show_entries stream=nb_read_frames"), "60\n");
}

}  // namespace
