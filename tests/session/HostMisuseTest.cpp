// A host that misuses the recording calls: paths that do not fit, several
// threads at once, a second Start, freeing the files under a recording.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "RecordOptions.h"
#include "core/Globals.h"
#include "formats/FrameIndex.h"
#include "orvanta/orvanta.h"
#include "platform/Files.h"
#include "support/Engine.h"
#include "support/FrameIndexFile.h"
#include "support/Scene.h"

namespace fs = std::filesystem;

namespace {

class HostMisuseTest : public ::testing::Test {
 protected:
  CScreenRecoderObject* Record(const std::wstring& folder, HRESULT* hr) {
    Options o({0, 0, 320, 240});
    return ovVideoRecord(0, folder.c_str(), &o.video, o.audio, &o.mouse, 0, hr);
  }
  void TearDown() override { FreeCapturedFile(1); }
  ovtest::ScratchFolder m_folder{"ovmisuse"};
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
