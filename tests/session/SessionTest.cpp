// Session life: options checked, states, clocks and durations, on a real X
// server and without audio sources or encoders.
#include <gtest/gtest.h>

#include <chrono>
#include <cwchar>
#include <filesystem>
#include <thread>

#include "RecordOptions.h"
#include "core/Globals.h"
#include "core/WriterStatistics.h"
#include "encode/VendorTable.h"
#include "orvanta/orvanta.h"
#include "support/Engine.h"

namespace {

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

}  // namespace
