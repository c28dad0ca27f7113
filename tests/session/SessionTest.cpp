// Session life on a real X server: options checked, states, clocks and
// durations without audio sources or encoders; and a host that misuses the
// recording calls: paths that do not fit, several threads at once, a second
// Start, freeing the files under a recording.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cwchar>
#include <filesystem>
#include <thread>
#include <vector>

#include "core/Globals.h"
#include "core/WriterStatistics.h"
#include "encode/VendorTable.h"
#include "formats/FrameIndex.h"
#include "orvanta/orvanta.h"
#include "platform/Files.h"
#include "support/Engine.h"
#include "support/FrameIndexFile.h"
#include "support/Scene.h"

namespace fs = std::filesystem;

namespace {

// The options of a test's recording: H.264 at 30 fps of a region, no sound
// and no pointer unless a test asks.
struct Options {
  VideoOpt video{};
  AudioOpt audio{};
  MouseOpt mouse{};
  explicit Options(RECT region = {0, 0, 1280, 720}) {
    video.bStream = 1;
    video.rcScreen = region;
    video.CodecType = CodecType_H264;
    video.FrameRate = 30;
    video.videoQuality = 5;
  }
  static Options AudioOnly() {
    Options o;
    o.video.bStream = 0;
    o.audio.bRender = 1;
    return o;
  }
};

auto* const g_env = ::testing::AddGlobalTestEnvironment(
    new ovtest::EngineEnvironment(ovtest::EngineEnvironment::Options{1280, 720, true}));

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

class SessionTest : public ::testing::Test {
 protected:
  CScreenRecoderObject* Record(Options& o, HRESULT* hr) {
    return ovVideoRecord(0, m_folder.WidePath().c_str(), &o.video, o.audio, &o.mouse, 0, hr);
  }
  void TearDown() override { FreeCapturedFile(1); }
  ovtest::ScratchFolder m_folder{"ovsession"};
};

// The encoder's reports reach progress and the record; a session destroyed
// before Start lasted one second.
TEST_F(SessionTest, ProgressFollowsTheReportsAndDestroyBeforeStartLastsOneSecond) {
  Options o = Options::AudioOnly();
  HRESULT hr = E_FAIL;
  CScreenRecoderObject* recorder = Record(o, &hr);
  ASSERT_NE(recorder, nullptr);
  EXPECT_EQ(hr, S_OK);
  uint32_t seconds = 99;
  int64_t bytes = -1;
  recorder->GetProgress(&seconds, &bytes);
  EXPECT_EQ(seconds, 0u) << "no progress before Start";
  EXPECT_EQ(bytes, 0);
  auto* statistics = dynamic_cast<CWriterStatistics*>(recorder);
  ASSERT_NE(statistics, nullptr);
  statistics->AddBytes(1000);
  statistics->AddBytes(234);
  statistics->AddFrame();
  recorder->GetProgress(nullptr, &bytes);
  EXPECT_EQ(bytes, 1234);
  EXPECT_EQ(recorder->GetFrameCounter(), 1u);
  recorder->Destroy();
  CapturedFile* file = GetCapturedFile();
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->nDuration, 1u);
  EXPECT_EQ(file->nFileBytes, 1234);
  EXPECT_FALSE(g_bRunning.load());
}

// A pause is left out of progress; a failed write ends the recording, its
// first failure is what progress reports, and nothing restarts it.
TEST_F(SessionTest, PauseIsLeftOutOfProgressAndAFailedWriteEndsTheRecording) {
  Options o = Options::AudioOnly();
  HRESULT hr;
  CScreenRecoderObject* recorder = Record(o, &hr);
  ASSERT_NE(recorder, nullptr);
  auto seconds = [recorder] {
    uint32_t s = 0;
    recorder->GetProgress(&s, nullptr);
    return s;
  };
  recorder->Start();
  SleepMs(1300);
  recorder->Pause();
  const uint32_t atPause = seconds();
  SleepMs(2500);
  EXPECT_EQ(seconds(), atPause) << "progress must stand still while paused";
  recorder->Resume();
  SleepMs(400);
  EXPECT_EQ(seconds(), 1u) << "1.3 s recorded + 0.4 s after the resume";

  const ovtest::LogMark mark;
  dynamic_cast<CWriterStatistics*>(recorder)->WriteFailed(OV_E_DISK_FULL);
  dynamic_cast<CWriterStatistics*>(recorder)->WriteFailed(OV_E_WRITE_FAULT);
  uint32_t atFailure = 0;
  int64_t bytes = 0;
  recorder->GetProgress(&atFailure, &bytes);
  EXPECT_EQ(bytes, OV_E_DISK_FULL) << "the first failure is the one reported";
  EXPECT_FALSE(g_bRecording.load());
  recorder->Resume();
  recorder->Start();
  SleepMs(1100);
  EXPECT_EQ(seconds(), atFailure) << "nothing restarts a recording that a failure ended";
  EXPECT_FALSE(g_bRecording.load());
  EXPECT_NE(mark.Text().find("Recording ended by failure(0x80070070)"), std::string::npos);
  recorder->Destroy();
}

// Refused before anything starts, without touching the host's result.
TEST_F(SessionTest, RegionsOutsideTheDisplayOrEmptyAreRefused) {
  const struct {
    RECT region;
    int32_t mouseMode;
  } cases[] = {
      {{1000, 500, 1400, 800}, 0},
      {{200, 100, 100, 300}, 0},
      {{10, 10, 10, 300}, MOUSE_MODE_CENTER},
      {{10, 10, 10, 300}, MOUSE_MODE_FOLLOW},
  };
  for (const auto& c : cases) {
    Options o(c.region);
    o.mouse.Mode = c.mouseMode;
    HRESULT hr = 0x1234;
    EXPECT_EQ(Record(o, &hr), nullptr) << c.region.left << " mode " << c.mouseMode;
    EXPECT_EQ(hr, 0x1234);
    EXPECT_FALSE(g_bRunning.load());
  }
}

// A machine where no encoder library serves H.265: the session is refused
// with its result, and the record of its files stays.
TEST_F(SessionTest, MissingEncoderFailsCreationAndKeepsTheRecord) {
  int32_t& h265 = ov::VendorTable()[CodecType_H265];
  const int32_t probed = h265;
  h265 = ov::kVendorNone;
  Options o;
  o.video.CodecType = CodecType_H265;
  HRESULT hr = S_OK;
  EXPECT_EQ(Record(o, &hr), nullptr);
  h265 = probed;
  EXPECT_EQ(hr, E_FAIL);
  ASSERT_NE(GetCapturedFile(), nullptr);
  EXPECT_NE(std::wcsstr(GetCapturedFile()->szScreenCaptureFile, L"/ScreenCapture.h265"), nullptr);
  EXPECT_FALSE(g_bRunning.load());
}

TEST_F(SessionTest, FolderWithAnEarlierRecordingIsRefusedAndLeftAlone) {
  const std::string wave = m_folder.Path() + "/Speaker.wav";
  ovtest::WriteFile(wave, "RIFF and the sound of an earlier recording");
  const ovtest::LogMark mark;
  Options o = Options::AudioOnly();
  HRESULT hr = 12345;
  EXPECT_EQ(Record(o, &hr), nullptr);
  EXPECT_EQ(hr, 12345);
  EXPECT_FALSE(g_bRunning.load());
  EXPECT_EQ(ovtest::ReadFile(wave), "RIFF and the sound of an earlier recording");
  EXPECT_NE(mark.Text().find("Error: an earlier recording left Speaker.wav in"), std::string::npos);
  // Once the host has its way with them, the folder takes a recording again.
  ASSERT_EQ(RecoverCapturedFile(m_folder.WidePath().c_str()), E_FAIL) << "no valid header";
  EXPECT_EQ(DeleteFolder(m_folder.WidePath().c_str()), 1);
  CScreenRecoderObject* recorder = Record(o, &hr);
  ASSERT_NE(recorder, nullptr);
  recorder->Destroy();
}

class HostMisuseTest : public SessionTest {
 protected:
  CScreenRecoderObject* Record(const std::wstring& folder, HRESULT* hr) {
    Options o({0, 0, 320, 240});
    return ovVideoRecord(0, folder.c_str(), &o.video, o.audio, &o.mouse, 0, hr);
  }
};

// A folder of this many characters gives a video index path of 260 with its
// terminator: one more than a path field holds.
std::string FolderOfLength(const std::string& base, size_t length) {
  std::string folder = base + "/";
  while (folder.size() < length)
    folder += std::string(std::min<size_t>(60, length - folder.size()), 'd') + "/";
  folder.resize(length);
  if (folder.back() == '/') folder.back() = 'e';
  return folder;
}

TEST_F(HostMisuseTest, FoldersThatDoNotFitOrAreNotAbsoluteAreRefused) {
  const size_t room = OV_MAX_PATH - 1 - std::string("/ScreenCapture.h264.idx").size();
  const std::string longest = FolderOfLength(m_folder.Path(), room);
  const std::string tooLong = FolderOfLength(m_folder.Path(), room + 1);
  const std::string farTooLong = FolderOfLength(m_folder.Path(), 250);
  fs::create_directories(tooLong);
  fs::create_directories(farTooLong);
  // Somebody's file where the video's name, cut to fit, would point.
  const std::string cut = (farTooLong + "/ScreenCapture.h264").substr(0, OV_MAX_PATH - 1);
  ovtest::WriteFile(cut, "keep me");

  for (const std::string& folder :
       {farTooLong, tooLong, std::string(), std::string("relative/set")}) {
    const ovtest::LogMark mark;
    HRESULT hr = S_OK;
    EXPECT_EQ(Record(ov::FromUtf8(folder), &hr), nullptr) << folder;
    EXPECT_EQ(hr, E_INVALIDARG) << folder;
    EXPECT_NE(mark.Text().find("Error: temp folder refused"), std::string::npos);
    EXPECT_FALSE(g_bRunning.load());
  }
  EXPECT_EQ(ovtest::ReadFile(cut), "keep me");
  EXPECT_FALSE(fs::exists("relative"));

  HRESULT hr = E_FAIL;
  CScreenRecoderObject* recorder = Record(ov::FromUtf8(longest), &hr);
  ASSERT_NE(recorder, nullptr) << "a folder whose names just fit is fine";
  recorder->Destroy();
  EXPECT_EQ(fs::path(GetCapturedFile()->szScreenCaptureFile).parent_path(), fs::path(longest));

  std::wstring watermark(OV_MAX_PATH, L'w');
  watermark[0] = L'/';
  EXPECT_EQ(UseWatermark(watermark.c_str(), 0, 0), E_INVALIDARG);
}

TEST_F(HostMisuseTest, ThreadsRacingToRecordGetOneSession) {
  for (int round = 0; round < 5; ++round) {
    std::atomic<int> ready{0};
    std::vector<CScreenRecoderObject*> made(4, nullptr);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < made.size(); ++t) {
      threads.emplace_back([&, t] {
        ready.fetch_add(1);
        while (ready.load() < static_cast<int>(made.size())) {
        }
        HRESULT hr = S_OK;
        made[t] = Record(m_folder.WidePath(), &hr);
      });
    }
    for (std::thread& t : threads) t.join();
    int sessions = 0;
    for (CScreenRecoderObject* recorder : made) {
      if (!recorder) continue;
      ++sessions;
      recorder->Start();
      recorder->Destroy();
    }
    EXPECT_EQ(sessions, 1) << "round " << round;
    FreeCapturedFile(1);
  }
}

// The recorded region changes every few milliseconds, so that every
// interval gives a frame.
TEST_F(HostMisuseTest, SecondStartKeepsTheClockAndFreeWaitsForTheStop) {
  std::atomic<bool> stop{false};
  std::thread flicker([&stop] {
    ovtest::Scene scene;
    for (uint32_t n = 0; !stop; ++n) {
      scene.Fill(0, 0, 320, 240, n * 0x102030u);
      scene.Sync();
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  });
  HRESULT hr = E_FAIL;
  CScreenRecoderObject* recorder = Record(m_folder.WidePath(), &hr);
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  ovtest::LogMark mark;
  recorder->Start();
  EXPECT_NE(mark.Text().find("Start: already started, ignored\n"), std::string::npos);

  const std::string video = ov::ToUtf8(GetCapturedFile()->szScreenCaptureFile);
  mark = ovtest::LogMark();
  FreeCapturedFile(1);
  EXPECT_NE(mark.Text().find("Error: FreeCapturedFile while a recording runs"), std::string::npos);
  ASSERT_NE(GetCapturedFile(), nullptr);
  EXPECT_TRUE(fs::exists(video));
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  recorder->Destroy();
  stop = true;
  flicker.join();

  const auto entries = ovtest::ReadFrameIndex(video + ".idx").entries;
  EXPECT_GT(entries.size(), 2u);
  for (size_t i = 1; i < entries.size(); ++i)
    EXPECT_GE(entries[i].time, entries[i - 1].time) << "time ran backwards at " << i;
  FreeCapturedFile(1);
  EXPECT_FALSE(fs::exists(video));
}

}  // namespace
