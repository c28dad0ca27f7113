// Whole recordings through the public API on a real X server with the real
// encoder libraries: what lands in the temp set must decode, and its index
// must describe it.
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
#include "support/Scene.h"

namespace {

auto* const g_env = ::testing::AddGlobalTestEnvironment(
    new ovtest::EngineEnvironment(ovtest::EngineEnvironment::Options{640, 480, false}));

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// A key frame every second instead of every five (100-ns units), so that a
// short recording has a second one.
constexpr int64_t kKeySpacing = 10000000;

int DecodedFrames(const std::string& path) {
  int code = -1;
  std::string out = ovtest::RunCapture(
      "ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames "
      "-of csv=p=0 '" +
          path + "'",
      &code);
  return code == 0 ? std::atoi(out.c_str()) : -1;
}

std::string DecodeErrors(const std::string& path) {
  return ovtest::RunCapture("ffmpeg -v error -i '" + path + "' -f null - 2>&1");
}

// Moves a square across the screen until stopped, 60 times a second.
class MovingScene {
 public:
  MovingScene() {
    m_thread = std::thread([this] {
      ovtest::Scene scene;
      for (int step = 0; !m_stop; ++step) {
        scene.Fill(0, 0, 640, 480, 0x203040);
        scene.Fill((step * 9) % 560, (step * 5) % 400, 80, 80, 0xF0C020);
        scene.Sync();
        SleepMs(16);
      }
    });
  }
  ~MovingScene() {
    m_stop = true;
    m_thread.join();
  }

 private:
  std::atomic<bool> m_stop{false};
  std::thread m_thread;
};

struct Result {
  std::string video;
  ov::FrameIndexFile index;
  int decoded = 0;
};

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

  Result Record(int milliseconds) {
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
    EXPECT_EQ(hr, S_OK);
    if (!recorder) return {};
    recorder->Start();
    SleepMs(milliseconds);
    recorder->Destroy();
    Result result;
    result.video = ov::ToUtf8(GetCapturedFile()->szScreenCaptureFile);
    result.index = ovtest::ReadFrameIndex(result.video + ".idx");
    result.decoded = DecodedFrames(result.video);
    return result;
  }

  void ExpectConsistent(const Result& r) {
    EXPECT_EQ(DecodeErrors(r.video), "");
    EXPECT_EQ(static_cast<int>(r.index.entries.size()), r.decoded);
    EXPECT_EQ(r.index.header.width, 640u);
    EXPECT_EQ(r.index.header.height, 480u);
    uint64_t offset = 0;
    int64_t lastKey = -1;
    for (size_t i = 0; i < r.index.entries.size(); ++i) {
      const ov::FrameIndexEntry& e = r.index.entries[i];
      if (i > 0) {
        EXPECT_GT(e.time, r.index.entries[i - 1].time) << "entry " << i;
      }
      EXPECT_EQ(e.offset, offset) << "entries tile the stream";
      offset += e.size;
      if (e.pictureType == ov::kPictureKey) {
        if (lastKey >= 0) {
          EXPECT_LE(e.time - lastKey, ov::kIndexClock + 9000);
        }
        lastKey = e.time;
      }
    }
    EXPECT_EQ(r.index.entries.front().pictureType, ov::kPictureKey);
    EXPECT_EQ(static_cast<int64_t>(offset), ov::FileSize(ov::FromUtf8(r.video)));
  }

  ovtest::ScratchFolder m_folder{"ovrecord"};
  int64_t m_productSpacing = 0;
};

TEST_P(RecordingTest, MovingSceneDecodesInFullAndMatchesItsIndex) {
  Result r;
  {
    MovingScene scene;
    SleepMs(100);
    r = Record(3000);
  }
  ASSERT_GT(r.decoded, 60) << "3 s of motion at 30 fps";
  ExpectConsistent(r);
}

TEST_P(RecordingTest, StillScreenEncodesFewFramesButKeepsKeyFrames) {
  ovtest::Scene scene;
  scene.Fill(0, 0, 640, 480, 0x406080);
  scene.Sync();
  Result r = Record(1600);
  ExpectConsistent(r);
  // The first frame, the key frame at 1 s and the last frame of the stop.
  EXPECT_LE(r.decoded, 4);
  int keys = 0;
  for (const auto& e : r.index.entries) keys += e.pictureType == ov::kPictureKey;
  EXPECT_EQ(keys, 2);
  EXPECT_GE(r.index.entries.back().time, ov::kIndexClock);
}

INSTANTIATE_TEST_SUITE_P(Codecs, RecordingTest,
                         ::testing::Values(CodecType_H264, CodecType_H265, CodecType_MPEG2),
                         [](const auto& info) {
                           return std::string(ov::CodecTypeName(info.param));
                         });

}  // namespace
