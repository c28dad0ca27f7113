// WMV recordings on a real X server and sound server: the engine's own
// encoder writes the ASF temp file, and WMMux makes the final file of it.
// One recording is made for the whole program and shared by the cases.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
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

// Start times of a stream's packets, in seconds.
std::vector<double> Packets(const std::string& file, const char* stream) {
  std::vector<double> times;
  const std::string text = ovtest::Probe(
      file, std::string("-select_streams ") + stream + " -show_entries packet=pts_time");
  for (const char* p = text.c_str();;) {
    char* end;
    const double t = std::strtod(p, &end);
    if (end == p) break;
    times.push_back(t);
    p = end;
  }
  return times;
}

// How long a stream lasts: the demuxer gives no packet durations, so the
// last packet is taken to last as long as the mean.
double Span(const std::string& file, const char* stream) {
  const auto t = Packets(file, stream);
  return t.size() < 2 ? 0 : (t.back() - t.front()) * t.size() / (t.size() - 1);
}
// 4 s of motion with both audio sources, then 1.2 s of a still screen. Key
// frames are asked for at every frame, so that a trim keeps to its start.
struct Recorded {
  ovtest::ScratchFolder folder{"ovwmv"};
  std::string video;
  std::string log;
};

const Recorded& Recording() {
  static std::unique_ptr<Recorded> made = [] {
    auto r = std::make_unique<Recorded>();
    const int64_t spacing = CCaptureVideoStream::s_nKeyFrameSpacing.exchange(1);
    ovtest::Scene scene;
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
    for (int step = 0; step < 4000 / 20; ++step) {
      scene.Fill(0, 0, 320, 240, 0x203040);
      scene.Fill((step * 9) % 260, (step * 5) % 180, 60, 60, 0xF0C020);
      scene.Sync();
      SleepMs(20);
    }
    SleepMs(1200);
    recorder->Destroy();
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
  // The motion: about 30 frames a second; the still second at the end: none.
  const auto packets = Packets(r.video, "v:0");
  const double end = GetCapturedFile()->nScreenDuration / 1e7;
  int still = 0;
  for (double t : packets) still += t > end - 1.0;
  EXPECT_GT(packets.size(), 80u);
  EXPECT_LE(still, 1);
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

TEST(AudioCatalogue, DefaultDevicesAreTheServersWithFormatsAtTheirRate) {
  const char* ids[] = {"nullsink", "micsink.monitor"};
  for (int i = 0; i < 2; ++i) {
    const AudioDeviceInfo* device = GetAudioDeviceInfo(i);
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(ov::ToUtf8(device->szId), ids[i]);
    EXPECT_NE(device->szName[0], L'\0');
    EXPECT_EQ(device->Format.Format.nSamplesPerSec, 48000u);
    EXPECT_EQ(device->Format.Format.nChannels, 2);
    ASSERT_GE(GetAudioCodecInfoCount(i), 2);
    for (int n = 0; n < GetAudioCodecInfoCount(i); ++n) {
      const WAVEFORMATEX& f = *GetAudioCodecInfo(i, n)->pFormat;
      EXPECT_EQ(f.nSamplesPerSec, 48000u);
      EXPECT_EQ(f.nChannels, 2);
    }
    EXPECT_EQ(GetAudioCodecInfo(i, GetAudioCodecInfoCount(i)), nullptr);
  }
}

// Runs WMMux on the recording's temp set and waits for its end.
HRESULT RunWMMux(const std::string& out, const AudioCodecInfo* render,
                 const AudioCodecInfo* capture, int mix, int cancelAt = -1) {
  ovtest::MuxWaiter waiter(cancelAt);
  HRESULT hr = WMMux(ov::FromUtf8(out).c_str(), 0, render, capture, mix, &waiter);
  if (hr != S_OK) return hr;
  return waiter.Wait(60) ? waiter.Result() : 0x7FFF0001;
}

class WMMuxTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(Recording().video.empty());
    m_saved = *GetCapturedFile();
    CapturedFile& r = *GetCapturedFile();
    r.bUseWaveOut = r.bUseWaveIn = 1;
    r.lWaveOutVolume = r.lWaveInVolume = 100;
  }
  void TearDown() override { *GetCapturedFile() = m_saved; }
  std::string Codecs(const std::string& file) {
    return ovtest::Probe(file, "-show_entries stream=codec_name");
  }
  CapturedFile m_saved{};
  ovtest::ScratchFolder m_out{"ovwmmux"};
};

TEST_F(WMMuxTest, TrimKeepsThreeSecondsOfEveryStreamInEachFormat) {
  CapturedFile& r = *GetCapturedFile();
  r.nTrimStart = 10000000;
  r.nTrimEnd = 40000000;
  for (int n = 0; n < 2; ++n) {
    for (int mix = 0; mix < 2; ++mix) {
      SCOPED_TRACE("format " + std::to_string(n) + (mix ? ", mixed" : ""));
      const std::string out = m_out.Path() + "/trim" + std::to_string(n * 2 + mix) + ".wmv";
      ASSERT_EQ(RunWMMux(out, GetAudioCodecInfo(0, n), GetAudioCodecInfo(1, n), mix), S_OK);
      EXPECT_EQ(Codecs(out), mix ? "wmv2\nwmav2\n" : "wmv2\nwmav2\nwmav2\n");
      EXPECT_NEAR(Span(out, "v:0"), 3.0, 0.1);
      EXPECT_NEAR(Span(out, "a:0"), 3.0, 0.1);
      EXPECT_EQ(ovtest::DecodeErrors(out), "");
    }
  }
}

TEST_F(WMMuxTest, SoundOnlyGivesWmaInEveryListedFormat) {
  CapturedFile& r = *GetCapturedFile();
  r.bScreenStream = 0;
  r.bUseWaveIn = 0;
  for (int i = 0; i < 2; ++i) {
    for (int n = 0; n < GetAudioCodecInfoCount(i); ++n) {
      const std::string out = m_out.Path() + "/sound.wma";
      ASSERT_EQ(RunWMMux(out, GetAudioCodecInfo(i, n), nullptr, 0), S_OK);
      EXPECT_EQ(Codecs(out), "wmav2\n");
      EXPECT_NEAR(Span(out, "a:0"), r.nWaveOutDuration / 1e7, 0.1);
      EXPECT_EQ(ovtest::DecodeErrors(out), "");
    }
  }
}

TEST_F(WMMuxTest, CancelOrMisuseLeavesNoFile) {
  const std::string out = m_out.Path() + "/cancel.wmv";
  EXPECT_EQ(RunWMMux(out, GetAudioCodecInfo(0, 0), GetAudioCodecInfo(1, 0), 1, 0), E_ABORT);
  // A track in use without its format, a relative path, a trim the wrong way round.
  EXPECT_EQ(RunWMMux(out, nullptr, GetAudioCodecInfo(1, 0), 1), E_FAIL);
  EXPECT_EQ(RunWMMux("cancel.wmv", GetAudioCodecInfo(0, 0), GetAudioCodecInfo(1, 0), 1),
            E_INVALIDARG);
  GetCapturedFile()->nTrimStart = 20000000;
  GetCapturedFile()->nTrimEnd = 10000000;
  EXPECT_EQ(RunWMMux(out, GetAudioCodecInfo(0, 0), GetAudioCodecInfo(1, 0), 1), E_INVALIDARG);
  EXPECT_TRUE(std::filesystem::is_empty(m_out.Path()));
}

TEST_F(WMMuxTest, WatermarkIsLaidOnTheVideo) {
  const std::string picture = m_out.Path() + "/mark.png";
  ovtest::RunCapture("ffmpeg -v error -f lavfi -i color=c=red:s=64x48 -frames:v 1 '" + picture +
                     "'");
  ASSERT_EQ(UseWatermark(ov::FromUtf8(picture).c_str(), 0, 0), S_OK);
  const std::string out = m_out.Path() + "/mark.wmv";
  const HRESULT hr = RunWMMux(out, GetAudioCodecInfo(0, 0), GetAudioCodecInfo(1, 0), 1);
  UseWatermark(nullptr, 0, 0);
  ASSERT_EQ(hr, S_OK);
  EXPECT_EQ(ovtest::DecodeErrors(out), "");
  // Red under the picture, 16 pixels from the corner; the scene elsewhere.
  auto pixel = [&](int x, int y) {
    return ovtest::RunCapture("ffmpeg -v error -i '" + out + "' -vf crop=2:2:" + std::to_string(x) +
                              ":" + std::to_string(y) +
                              " -frames:v 1 -f rawvideo -pix_fmt rgb24 - | od -An -tu1");
  };
  unsigned r = 0, g = 0, b = 0;
  ASSERT_EQ(std::sscanf(pixel(40, 36).c_str(), "%u %u %u", &r, &g, &b), 3);
  EXPECT_GT(r, 200u);
  EXPECT_LT(g + b, 80u);
  ASSERT_EQ(std::sscanf(pixel(300, 230).c_str(), "%u %u %u", &r, &g, &b), 3);
  EXPECT_LT(r, 100u);
}
}  // namespace
