// Final files made from a real temp set through FFMux and the real mux
// program, checked with ffprobe and by decoding.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>

#include "TempSet.h"
#include "formats/FrameIndex.h"
#include "platform/Files.h"
#include "support/Engine.h"

namespace {

using ovtest::Codecs;
using ovtest::ProbeStreams;
using ovtest::RecordingSet;
using ovtest::RunMux;

constexpr int64_t kSecond = 10000000;
using ovtest::kBaseBeeps;

class FFMuxTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    s_base = &ovtest::BaseTempSet();
    ASSERT_FALSE(s_base->entries.empty()) << "the temp set was not made";
  }

  void SetUp() override {
    m_set = std::make_unique<RecordingSet>(s_base->folder);
    m_set->UseVideo();
    m_set->UseSpeaker();
    m_set->UseMicrophone();
  }

  std::string Output(const std::string& name) const { return m_out.Path() + "/" + name; }
  static const std::vector<ov::FrameIndexEntry>& Entries() { return s_base->entries; }
  // The last entry at or before time t.
  static size_t IndexAt(int64_t t) {
    size_t i = 0;
    while (i + 1 < Entries().size() && ov::TicksToTime(Entries()[i + 1].time) <= t) ++i;
    return i;
  }
  // The frame number drawn into index entry i.
  static int NumberOf(size_t i) {
    return static_cast<int>(std::lround(Entries()[i].time * s_base->video.fps / 90000.0));
  }

  static const ovtest::BaseSet* s_base;
  ovtest::ScratchFolder m_out{"ovmuxout"};
  std::unique_ptr<RecordingSet> m_set;
};

const ovtest::BaseSet* FFMuxTest::s_base;

// Every container plays; those with video keep every frame at its index
// time, gaps and all, and all keep the bursts of both tracks mixed.
TEST_F(FFMuxTest, EveryContainerKeepsEveryFrameAndTheMixedTracks) {
  const struct {
    int muxer;
    const char* file;
    const char* codecs;
  } cases[] = {{0, "out.mp4", "h264+aac"}, {1, "out.mov", "h264+aac"}, {2, "video.mp4", "h264"},
               {3, "out.m4a", "aac"},      {4, "out.aac", "aac"},      {5, "out.mp3", "mp3"},
               {6, "out.mkv", "h264+aac"}, {7, "out.flv", "h264+aac"}, {8, "out.avi", "h264+ac3"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const ovtest::LogMark mark;
    ovtest::MuxWaiter waiter;
    const std::string out = Output(c.file);
    ASSERT_EQ(RunMux(c.muxer, out, 0, &waiter), S_OK) << mark.Text();
    const std::vector<int> progress = waiter.Progress();
    EXPECT_TRUE(c.muxer != 0 || !progress.empty()) << "a file with video reports progress";
    for (size_t i = 1; i < progress.size(); ++i) EXPECT_GE(progress[i], progress[i - 1]);
    EXPECT_TRUE(progress.empty() || progress.back() <= 100);
    EXPECT_EQ(waiter.Completions(), 1);

    const auto streams = ProbeStreams(out);
    EXPECT_EQ(Codecs(out), c.codecs);
    EXPECT_EQ(ovtest::DecodeErrors(out), "");
    if (streams.size() == 2) {
      EXPECT_LT(std::fabs(streams[0].duration - streams[1].duration), 0.1);
    }
    if (c.muxer == 2) {
      EXPECT_EQ(mark.Text().find("Source Format"), std::string::npos) << "no wave file is read";
    } else {
      const std::vector<double> beeps = ovtest::BeepTimes(out);
      ASSERT_EQ(beeps.size(), std::size(kBaseBeeps));
      for (size_t i = 0; c.muxer == 0 && i < beeps.size(); ++i)
        EXPECT_NEAR(beeps[i], kBaseBeeps[i], 0.02);
    }
    if (std::string(c.codecs).find("h264") == std::string::npos) continue;
    const std::vector<int> numbers = ovtest::FrameNumbers(out);
    ASSERT_EQ(numbers.size(), Entries().size());
    for (size_t i = 0; i < numbers.size(); ++i) ASSERT_EQ(numbers[i], NumberOf(i)) << "frame " << i;
    if (c.muxer != 0) continue;
    const std::vector<double> times = ovtest::VideoTimes(out);
    ASSERT_EQ(times.size(), Entries().size());
    for (size_t i = 0; i < times.size(); ++i)
      ASSERT_NEAR(times[i], (Entries()[i].time - Entries()[0].time) / 90000.0, 1e-3) << i;
  }
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
  ASSERT_EQ(Codecs(out), "h264+aac");
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
  EXPECT_EQ(ovtest::BeepTimes(out).size(), 2u)
      << "the bursts at 0.2 and 2.7 s, not those after 3 s";
  EXPECT_EQ(ovtest::DecodeErrors(out), "");
}

// A recording whose video has no index (as a WMV one) still gives its audio.
TEST_F(FFMuxTest, AudioFilesNeedNoFrameIndex) {
  m_set->UseVideo(0);
  for (int muxer : {3, 5}) {
    const std::string out = Output("audio" + std::to_string(muxer));
    EXPECT_EQ(RunMux(muxer, out), S_OK) << "muxer " << muxer;
    const auto streams = ProbeStreams(out);
    ASSERT_EQ(streams.size(), 1u);
    EXPECT_EQ(streams[0].type, "audio");
  }
  const ovtest::LogMark mark;
  ovtest::MuxWaiter waiter;
  EXPECT_EQ(RunMux(0, Output("video.mp4"), 0, &waiter), E_FAIL);
  EXPECT_NE(mark.Text().find("to open file:"), std::string::npos);
  EXPECT_EQ(waiter.Completions(), 0);
}

// Three seconds of H.265 or MPEG-2 with a short track: copied where the
// container takes the codec, else encoded again as H.264.
TEST(OtherCodecTest, CopiedWhereTheContainerTakesItElseEncodedAsH264) {
  const struct {
    int codecType, muxer;
    const char* file;
    const char* codecs;
  } cases[] = {{2, 0, "hevc.mp4", "hevc+aac"},        {2, 7, "hevc.flv", "h264+aac"},
               {2, 6, "hevc.mkv", "hevc+aac"},        {3, 0, "mpeg2.mp4", "mpeg2video+aac"},
               {3, 8, "mpeg2.avi", "mpeg2video+ac3"}, {3, 7, "mpeg2.flv", "h264+aac"}};
  ovtest::ScratchFolder folder("ovmuxcodecs");
  RecordingSet set(folder.Path());
  set.UseSpeaker();
  ovtest::WaveSpec wave;
  wave.seconds = 3.0;
  ASSERT_TRUE(ovtest::WriteWave(ov::FromUtf8(folder.Path() + "/Speaker.wav"), wave));
  std::vector<int> expected(90);
  for (int i = 0; i < 90; ++i) expected[static_cast<size_t>(i)] = i;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    if (!std::filesystem::exists(set.VideoPath(c.codecType))) {
      ovtest::VideoSpec video;
      video.codecType = c.codecType;
      video.frames = 90;
      ASSERT_TRUE(ovtest::WriteTempVideo(ov::FromUtf8(set.VideoPath(c.codecType)), video));
    }
    set.UseVideo(c.codecType);
    const std::string out = folder.Path() + "/" + c.file;
    const ovtest::LogMark mark;
    ASSERT_EQ(RunMux(c.muxer, out), S_OK) << mark.Text();
    EXPECT_EQ(Codecs(out), c.codecs);
    EXPECT_EQ(ovtest::DecodeErrors(out), "");
    EXPECT_EQ(ovtest::FrameNumbers(out), expected);
  }
}

// The colour of the pixel at x, y of an RGB picture of the base set's width.
void ExpectColour(const std::string& picture, int x, int y, std::vector<int> rgb) {
  const size_t at = (static_cast<size_t>(y) * ovtest::BaseTempSet().video.width + x) * 3;
  ASSERT_LT(at + 2, picture.size());
  for (size_t c = 0; c < 3; ++c)
    EXPECT_NEAR(static_cast<uint8_t>(picture[at + c]), rgb[c], 24) << c << " at " << x << "," << y;
}

TEST_F(FFMuxTest, WatermarkIsLaidOnEveryFrameUnlessItCannotBeLoaded) {
  // Bottom right: the 64 x 48 picture covers x 240..303, y 176..223 of 320 x 240.
  ASSERT_EQ(UseWatermark(ov::FromUtf8(ovtest::MakeWatermarkPicture(m_out.Path())).c_str(), 2, 2),
            S_OK);
  ovtest::LogMark mark;
  const std::string marked = Output("marked.mp4");
  HRESULT result = RunMux(0, marked);
  ASSERT_EQ(result, S_OK) << mark.Text();
  EXPECT_NE(mark.Text().find("watermark"), std::string::npos);
  EXPECT_EQ(ovtest::DecodeErrors(marked), "");
  EXPECT_EQ(ovtest::FrameNumbers(marked).size(), Entries().size());
  const std::string picture = ovtest::PictureAt(marked, 0);
  ExpectColour(picture, 272, 200, {176, 48, 48});  // half red over the grey field
  ExpectColour(picture, 236, 200, {96, 96, 96});   // just beside it
  ExpectColour(picture, 272, 170, {96, 96, 96});   // just above it
  ExpectColour(ovtest::PictureAt(marked, 9.5), 272, 200, {176, 48, 48});

  UseWatermark(L"/nonexistent/logo.png", 2, 2);
  mark = ovtest::LogMark();
  const std::string plain = Output("plain.mp4");
  result = RunMux(0, plain);
  UseWatermark(nullptr, 0, 0);
  ASSERT_EQ(result, S_OK);
  const std::string log = mark.Text();
  EXPECT_NE(log.find("mux: the watermark covers nothing"), std::string::npos) << log;
  EXPECT_EQ(log.find("encoded again"), std::string::npos) << log;
  ExpectColour(ovtest::PictureAt(plain, 0), 272, 200, {96, 96, 96});
}

}  // namespace
