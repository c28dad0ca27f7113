// Final files made from a real temp set through FFMux and the real mux
// program, checked with ffprobe and by decoding.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>

#include "TempSet.h"
#include "formats/FrameIndex.h"
#include "platform/Files.h"
#include "support/Engine.h"

namespace {

using ovtest::ProbeStreams;
using ovtest::RecordingSet;
using ovtest::RunMux;
using ovtest::StreamInfo;

constexpr int64_t kSecond = 10000000;
using ovtest::kBaseBeeps;

std::string Codecs(const std::vector<StreamInfo>& streams) {
  std::string text;
  for (const StreamInfo& s : streams) text += (text.empty() ? "" : "+") + s.codec;
  return text;
}

class FFMuxTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_base = &ovtest::BaseTempSet();
    ASSERT_FALSE(s_base->entries.empty()) << "the temp set was not made";
    s_entries = &s_base->entries;
  }

  void SetUp() override {
    m_set = std::make_unique<RecordingSet>(s_base->folder);
    m_set->UseVideo();
    m_set->UseSpeaker();
    m_set->UseMicrophone();
  }

  std::string Output(const std::string& name) const { return m_out.Path() + "/" + name; }
  // The last entry at or before time t.
  static size_t IndexAt(int64_t t) {
    size_t i = 0;
    while (i + 1 < s_entries->size() && ov::TicksToTime((*s_entries)[i + 1].time) <= t) ++i;
    return i;
  }
  // The frame number drawn into index entry i.
  static int NumberOf(size_t i) {
    return static_cast<int>(std::lround((*s_entries)[i].time * s_base->video.fps / 90000.0));
  }

  static const ovtest::BaseSet* s_base;
  static const std::vector<ov::FrameIndexEntry>* s_entries;
  ovtest::ScratchFolder m_out{"ovmuxout"};
  std::unique_ptr<RecordingSet> m_set;
};

const ovtest::BaseSet* FFMuxTest::s_base;
const std::vector<ov::FrameIndexEntry>* FFMuxTest::s_entries;

TEST_F(FFMuxTest, Mp4KeepsEveryFrameAndBothTracksMixed) {
  ovtest::MuxWaiter waiter;
  const std::string out = Output("all.mp4");
  ASSERT_EQ(RunMux(0, out, 0, &waiter), S_OK);

  const std::vector<int> progress = waiter.Progress();
  ASSERT_FALSE(progress.empty());
  for (size_t i = 1; i < progress.size(); ++i) EXPECT_GE(progress[i], progress[i - 1]);
  EXPECT_GE(progress.front(), 0);
  EXPECT_LE(progress.back(), 100);
  EXPECT_EQ(waiter.Completions(), 1);

  const auto streams = ProbeStreams(out);
  ASSERT_EQ(Codecs(streams), "h264+aac");
  EXPECT_LT(std::fabs(streams[0].duration - streams[1].duration), 0.1);
  EXPECT_EQ(ovtest::DecodeErrors(out), "");

  const std::vector<int> numbers = ovtest::FrameNumbers(out);
  ASSERT_EQ(numbers.size(), s_entries->size());
  for (size_t i = 0; i < numbers.size(); ++i) ASSERT_EQ(numbers[i], NumberOf(i)) << "frame " << i;

  // Each frame keeps its time from the index, gaps and all.
  const std::vector<double> times = ovtest::VideoTimes(out);
  ASSERT_EQ(times.size(), s_entries->size());
  for (size_t i = 0; i < times.size(); ++i)
    ASSERT_NEAR(times[i], ((*s_entries)[i].time - (*s_entries)[0].time) / 90000.0, 1e-3) << i;

  const std::vector<double> beeps = ovtest::BeepTimes(out);
  ASSERT_EQ(beeps.size(), std::size(kBaseBeeps));
  for (size_t i = 0; i < beeps.size(); ++i) EXPECT_NEAR(beeps[i], kBaseBeeps[i], 0.02);
}

TEST_F(FFMuxTest, TrimStartsOnTheKeyFrameBeforeItAndTheAudioFollows) {
  m_set->Record().nTrimStart = 6 * kSecond;
  m_set->Record().nTrimEnd = 85 * kSecond / 10;
  const std::string out = Output("trim.mp4");
  ASSERT_EQ(RunMux(0, out), S_OK);

  // The key frame at 5 s opens the file, and the audio starts with it.
  const size_t first = IndexAt(5 * kSecond);
  const size_t last = IndexAt(85 * kSecond / 10);
  EXPECT_EQ(m_set->Record().nTrimStart, 5 * kSecond);
  const std::vector<int> numbers = ovtest::FrameNumbers(out);
  ASSERT_EQ(numbers.size(), last - first + 1);
  EXPECT_EQ(numbers.front(), NumberOf(first));
  EXPECT_EQ(numbers.back(), NumberOf(last));

  const auto streams = ProbeStreams(out);
  ASSERT_EQ(Codecs(streams), "h264+aac");
  EXPECT_NEAR(streams[1].duration, 3.5, 0.05) << "audio from 5 s to the end of the trim";
  EXPECT_LT(std::fabs(streams[0].duration - streams[1].duration), 0.1);
  const std::vector<double> beeps = ovtest::BeepTimes(out);
  ASSERT_EQ(beeps.size(), 2u);
  EXPECT_NEAR(beeps[0], 5.3 - 5.0, 0.02);
  EXPECT_NEAR(beeps[1], 8.2 - 5.0, 0.02);
  EXPECT_EQ(ovtest::DecodeErrors(out), "");
}

TEST_F(FFMuxTest, TimeLimitEndsVideoAndAudioTogether) {
  const std::string out = Output("limit.mkv");
  ASSERT_EQ(RunMux(6, out, 3), S_OK);
  const std::vector<int> numbers = ovtest::FrameNumbers(out);
  ASSERT_FALSE(numbers.empty());
  EXPECT_EQ(numbers.back(), NumberOf(IndexAt(3 * kSecond)));
  const std::vector<double> beeps = ovtest::BeepTimes(out);
  ASSERT_EQ(beeps.size(), 2u) << "the bursts at 0.2 and 2.7 s, not those after 3 s";
  EXPECT_EQ(ovtest::DecodeErrors(out), "");
}

struct ContainerCase {
  int muxer;
  const char* file;
  const char* codecs;
};

class FFMuxContainerTest : public FFMuxTest, public ::testing::WithParamInterface<ContainerCase> {};

TEST_P(FFMuxContainerTest, MakesAFileThatPlays) {
  const ContainerCase c = GetParam();
  const ovtest::LogMark mark;
  const std::string out = Output(c.file);
  ASSERT_EQ(RunMux(c.muxer, out), S_OK) << mark.Text();
  EXPECT_EQ(Codecs(ProbeStreams(out)), c.codecs);
  EXPECT_EQ(ovtest::DecodeErrors(out), "");
  if (std::string(c.codecs).find("h264") != std::string::npos) {
    EXPECT_EQ(ovtest::FrameNumbers(out).size(), s_entries->size());
  }
  // A file without audio reads no wave file at all.
  if (c.muxer == 2) {
    EXPECT_EQ(mark.Text().find("Source Format"), std::string::npos);
  }
}

INSTANTIATE_TEST_SUITE_P(EveryMuxer, FFMuxContainerTest,
                         ::testing::Values(ContainerCase{0, "out.mp4", "h264+aac"},
                                           ContainerCase{1, "out.mov", "h264+aac"},
                                           ContainerCase{2, "video.mp4", "h264"},
                                           ContainerCase{3, "out.m4a", "aac"},
                                           ContainerCase{4, "out.aac", "aac"},
                                           ContainerCase{5, "out.mp3", "mp3"},
                                           ContainerCase{6, "out.mkv", "h264+aac"},
                                           ContainerCase{7, "out.flv", "h264+aac"},
                                           ContainerCase{8, "out.avi", "h264+ac3"}),
                         [](const ::testing::TestParamInfo<ContainerCase>& info) {
                           return "Muxer" + std::to_string(info.param.muxer);
                         });

// A recording whose video has no index (as a WMV one) still gives its audio.
TEST_F(FFMuxTest, AudioFilesNeedNoFrameIndex) {
  m_set->UseVideo(0);
  for (int muxer : {3, 4, 5}) {
    const std::string out = Output("audio" + std::to_string(muxer));
    EXPECT_EQ(RunMux(muxer, out), S_OK) << "muxer " << muxer;
    const auto streams = ProbeStreams(out);
    ASSERT_EQ(streams.size(), 1u);
    EXPECT_EQ(streams[0].type, "audio");
    EXPECT_EQ(ovtest::BeepTimes(out).size(), std::size(kBaseBeeps));
  }
  const ovtest::LogMark mark;
  ovtest::MuxWaiter waiter;
  EXPECT_EQ(RunMux(0, Output("video.mp4"), 0, &waiter), E_FAIL);
  EXPECT_NE(mark.Text().find("to open file:"), std::string::npos);
  EXPECT_EQ(waiter.Completions(), 0);
}

}  // namespace

namespace {

struct CodecCase {
  int codecType;
  int muxer;
  const char* file;
  const char* codecs;
};

// Three seconds of H.265 or MPEG-2 with a short track, each made once.
class OtherCodecTest : public ::testing::TestWithParam<CodecCase> {
 protected:
  static const std::string& SetFor(int codecType) {
    static ovtest::ScratchFolder folders[2] = {ovtest::ScratchFolder("ovmuxhevc"),
                                               ovtest::ScratchFolder("ovmuxmpeg2")};
    static bool made[2];
    const int slot = codecType == 2 ? 0 : 1;
    if (!made[slot]) {
      made[slot] = true;
      RecordingSet set(folders[slot].Path());
      ovtest::VideoSpec video;
      video.codecType = codecType;
      video.frames = 90;
      EXPECT_TRUE(ovtest::WriteTempVideo(ov::FromUtf8(set.VideoPath(codecType)), video));
      ovtest::WaveSpec wave;
      wave.seconds = 3.0;
      EXPECT_TRUE(ovtest::WriteWave(ov::FromUtf8(folders[slot].Path() + "/Speaker.wav"), wave));
    }
    return folders[slot].Path();
  }
  ovtest::ScratchFolder m_out{"ovmuxout"};
};

TEST_P(OtherCodecTest, CopiedWhereTheContainerTakesItElseEncodedAsH264) {
  const CodecCase c = GetParam();
  RecordingSet set(SetFor(c.codecType));
  set.UseVideo(c.codecType);
  set.UseSpeaker();
  const std::string out = m_out.Path() + "/" + c.file;
  const ovtest::LogMark mark;
  ASSERT_EQ(RunMux(c.muxer, out), S_OK) << mark.Text();
  const auto streams = ProbeStreams(out);
  EXPECT_EQ(Codecs(streams), c.codecs);
  EXPECT_EQ(ovtest::DecodeErrors(out), "");
  std::vector<int> expected(90);
  for (int i = 0; i < 90; ++i) expected[static_cast<size_t>(i)] = i;
  EXPECT_EQ(ovtest::FrameNumbers(out), expected);
}

INSTANTIATE_TEST_SUITE_P(Codecs, OtherCodecTest,
                         ::testing::Values(CodecCase{2, 0, "hevc.mp4", "hevc+aac"},
                                           CodecCase{2, 7, "hevc.flv", "h264+aac"},
                                           CodecCase{2, 6, "hevc.mkv", "hevc+aac"},
                                           CodecCase{3, 0, "mpeg2.mp4", "mpeg2video+aac"},
                                           CodecCase{3, 8, "mpeg2.avi", "mpeg2video+ac3"},
                                           CodecCase{3, 7, "mpeg2.flv", "h264+aac"}),
                         [](const ::testing::TestParamInfo<CodecCase>& info) {
                           return std::string(info.param.codecType == 2 ? "H265" : "Mpeg2") +
                                  "Muxer" + std::to_string(info.param.muxer);
                         });

// The colour of the pixel at x, y of an RGB picture of the base set's width.
void ExpectColour(const std::string& picture, int x, int y, int r, int g, int b) {
  const size_t at = (static_cast<size_t>(y) * ovtest::BaseTempSet().video.width + x) * 3;
  ASSERT_LT(at + 2, picture.size());
  EXPECT_NEAR(static_cast<uint8_t>(picture[at]), r, 24) << "red at " << x << "," << y;
  EXPECT_NEAR(static_cast<uint8_t>(picture[at + 1]), g, 24) << "green at " << x << "," << y;
  EXPECT_NEAR(static_cast<uint8_t>(picture[at + 2]), b, 24) << "blue at " << x << "," << y;
}

TEST_F(FFMuxTest, WatermarkIsLaidOnEveryFrameUntilTurnedOff) {
  // Bottom right: the 64 x 48 picture covers x 240..303, y 176..223 of 320 x 240.
  ASSERT_EQ(UseWatermark(ov::FromUtf8(ovtest::MakeWatermarkPicture(m_out.Path())).c_str(), 2, 2),
            S_OK);
  ovtest::LogMark mark;
  const std::string marked = Output("marked.mp4");
  const HRESULT result = RunMux(0, marked);
  UseWatermark(nullptr, 0, 0);
  ASSERT_EQ(result, S_OK) << mark.Text();
  EXPECT_NE(mark.Text().find("watermark"), std::string::npos);
  EXPECT_EQ(ovtest::DecodeErrors(marked), "");
  EXPECT_EQ(ovtest::FrameNumbers(marked).size(), s_entries->size());
  const std::string picture = ovtest::PictureAt(marked, 0);
  ExpectColour(picture, 272, 200, 176, 48, 48);  // half red over the grey field
  ExpectColour(picture, 236, 200, 96, 96, 96);   // just beside it
  ExpectColour(picture, 272, 170, 96, 96, 96);   // just above it
  ExpectColour(ovtest::PictureAt(marked, 9.5), 272, 200, 176, 48, 48);

  mark = ovtest::LogMark();
  const std::string plain = Output("plain.mp4");
  ASSERT_EQ(RunMux(0, plain), S_OK);
  EXPECT_EQ(mark.Text().find("watermark"), std::string::npos);
  ExpectColour(ovtest::PictureAt(plain, 0), 272, 200, 96, 96, 96);
}

TEST_F(FFMuxTest, WatermarkThatCannotBeLoadedLeavesTheVideoAsItIs) {
  UseWatermark(L"/nonexistent/logo.png", 0, 0);
  const ovtest::LogMark mark;
  const std::string out = Output("unmarked.mp4");
  const HRESULT result = RunMux(0, out);
  UseWatermark(nullptr, 0, 0);
  ASSERT_EQ(result, S_OK);
  const std::string log = mark.Text();
  EXPECT_NE(log.find("mux: the watermark covers nothing"), std::string::npos) << log;
  EXPECT_EQ(log.find("encoded again"), std::string::npos) << log;
  ExpectColour(ovtest::PictureAt(out, 0), 40, 100, 96, 96, 96);
}

}  // namespace
