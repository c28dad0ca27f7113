// Whole recordings through the public API on a real X server with the real
// encoder libraries: a still screen, then motion. What lands in the temp set
// must decode, and its index must describe it: few frames while the screen
// stands still but a key frame at each spacing, every frame once it moves.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "capture/CaptureVideoStream.h"
#include "encode/VendorTable.h"
#include "formats/FrameIndex.h"
#include "orvanta/orvanta.h"
#include "platform/Files.h"
#include "support/Engine.h"
#include "support/FrameIndexFile.h"
#include "support/Media.h"
#include "support/Scene.h"

namespace {

auto* const g_env = ::testing::AddGlobalTestEnvironment(
    new ovtest::EngineEnvironment(ovtest::EngineEnvironment::Options{640, 480, false}));

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// A key frame every second instead of every five (100-ns units), so that the
// still part has a second one.
constexpr int64_t kKeySpacing = 10000000;

class RecordingTest : public ::testing::TestWithParam<int32_t> {
 protected:
  void SetUp() override {
    if (!IsSupportHwVideoCodec(GetParam()))
      GTEST_SKIP() << "no encoder library for codec type " << GetParam();
    m_productSpacing = CCaptureVideoStream::s_nKeyFrameSpacing.exchange(kKeySpacing);
  }
  void TearDown() override {
    FreeCapturedFile(1);
    CCaptureVideoStream::s_nKeyFrameSpacing = m_productSpacing;
  }
  ovtest::ScratchFolder m_folder{"ovrecord"};
  int64_t m_productSpacing = 0;
};

TEST_P(RecordingTest, StillThenMovingSceneDecodesInFullAndMatchesItsIndex) {
  ovtest::Scene scene;
  scene.Fill(0, 0, 640, 480, 0x406080);
  scene.Sync();
  VideoOpt video{};
  video.bStream = 1;
  video.rcScreen = {0, 0, 640, 480};
  video.CodecType = GetParam();
  video.FrameRate = 30;
  video.videoQuality = 3;
  MouseOpt mouse{};
  HRESULT hr = E_FAIL;
  CScreenRecoderObject* recorder =
      ovVideoRecord(0, m_folder.WidePath().c_str(), &video, AudioOpt{}, &mouse, 0, &hr);
  ASSERT_NE(recorder, nullptr);
  recorder->Start();
  SleepMs(1600);
  std::atomic<bool> stop{false};
  std::thread moving([&] {
    for (int step = 0; !stop; ++step) {
      scene.Fill(0, 0, 640, 480, 0x203040);
      scene.Fill((step * 9) % 560, (step * 5) % 400, 80, 80, 0xF0C020);
      scene.Sync();
      SleepMs(16);
    }
  });
  SleepMs(1500);
  recorder->Destroy();
  stop = true;
  moving.join();

  const std::string file = ov::ToUtf8(GetCapturedFile()->szScreenCaptureFile);
  const ov::FrameIndexFile index = ovtest::ReadFrameIndex(file + ".idx");
  EXPECT_EQ(ovtest::DecodeErrors(file), "");
  const std::string decoded =
      ovtest::Probe(file, "-count_frames -select_streams v:0 -show_entries stream=nb_read_frames");
  EXPECT_EQ(std::atoi(decoded.c_str()), static_cast<int>(index.entries.size()));
  EXPECT_EQ(index.header.width, 640u);
  EXPECT_EQ(index.header.height, 480u);
  ASSERT_FALSE(index.entries.empty());
  EXPECT_EQ(index.entries.front().pictureType, ov::kPictureKey);
  uint64_t offset = 0;
  int64_t lastKey = 0;
  int stillFrames = 0, stillKeys = 0;
  for (size_t i = 0; i < index.entries.size(); ++i) {
    const ov::FrameIndexEntry& e = index.entries[i];
    EXPECT_GT(e.time, i > 0 ? index.entries[i - 1].time : -1) << i;
    EXPECT_EQ(e.offset, offset) << "entries tile the stream";
    offset += e.size;
    const bool key = e.pictureType == ov::kPictureKey;
    EXPECT_LE(e.time - lastKey, ov::kIndexClock + 9000) << "key frames apart at " << i;
    if (key) lastKey = e.time;
    if (e.time < ov::kIndexClock * 3 / 2) {
      ++stillFrames;
      stillKeys += key;
    }
  }
  EXPECT_EQ(static_cast<int64_t>(offset), ov::FileSize(ov::FromUtf8(file)));
  EXPECT_LE(stillFrames, 3) << "the still screen: its first frame and the key frame at 1 s";
  EXPECT_EQ(stillKeys, 2);
  EXPECT_GT(index.entries.size(), size_t(stillFrames) + 10) << "the moving scene";
}

INSTANTIATE_TEST_SUITE_P(Codecs, RecordingTest,
                         ::testing::Values(CodecType_H264, CodecType_H265, CodecType_MPEG2),
                         [](const auto& info) {
                           return std::string(ov::CodecTypeName(info.param));
                         });

}  // namespace
