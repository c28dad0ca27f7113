// The two rules that FFMux applies before the mux program runs: which frames
// a trim keeps, and which audio format each output gets.
#include <gtest/gtest.h>

#include <vector>

#include "output/FFMux.h"

namespace {

using ov::ComputeFrameRange;
using ov::FrameIndexEntry;
using ov::FrameRange;

constexpr int64_t kSecond = 10000000;
constexpr int64_t kOffsetTicks = 900;  // the first frame comes 10 ms after the start

// 300 frames at 30 fps; key frames at 0 and 150, an intra picture at 240.
std::vector<FrameIndexEntry> Entries() {
  std::vector<FrameIndexEntry> entries(300);
  for (size_t i = 0; i < entries.size(); ++i) {
    entries[i].time = kOffsetTicks + static_cast<int64_t>(i) * 3000;
    entries[i].pictureType = ov::kPicturePredicted;
  }
  entries[0].pictureType = ov::kPictureKey;
  entries[150].pictureType = ov::kPictureKey;
  entries[240].pictureType = ov::kPictureIntra;
  return entries;
}

int64_t TimeOf(size_t i) { return ov::TicksToTime(Entries()[i].time); }
// The span from entry from to entry to, as the limit holds it.
int64_t Span(size_t from, size_t to) {
  return ov::TicksToTime(Entries()[to].time - Entries()[from].time);
}

struct RangeCase {
  const char* name;
  int64_t trimStart, trimEnd, limit;
  int32_t first, end;
  int64_t newStart;  // nTrimStart afterwards
  int64_t newLimit;  // limit afterwards
};

class FrameRangeTest : public ::testing::TestWithParam<RangeCase> {};

TEST_P(FrameRangeTest, TrimAndLimitGiveTheFramesAndTheAudioSpan) {
  const RangeCase c = GetParam();
  int64_t start = c.trimStart, limit = c.limit;
  const FrameRange range = ComputeFrameRange(Entries(), &start, c.trimEnd, &limit);
  EXPECT_EQ(range.first, c.first);
  EXPECT_EQ(range.end, c.end);
  EXPECT_EQ(start, c.newStart);
  EXPECT_EQ(limit, c.newLimit);
}

// Frame n lies at 10 ms + n / 30 s.
INSTANTIATE_TEST_SUITE_P(
    Cases, FrameRangeTest,
    ::testing::Values(
        RangeCase{"NoTrimKeepsAll", 0, 0, 0, 0, 300, 0, 0},
        RangeCase{"StartOnAKeyFrameMovesToTheOneBefore", TimeOf(150), 0, 0, 0, 300, TimeOf(0), 0},
        RangeCase{"StartAfterAKeyFrameMovesBackToIt", 6 * kSecond, 0, 0, 150, 300, TimeOf(150), 0},
        RangeCase{"IntraPictureIsAStartToo", 9 * kSecond, 0, 0, 240, 300, TimeOf(240), 0},
        RangeCase{"StartPastTheEndUsesFrameZero", 20 * kSecond, 0, 0, 0, 300, TimeOf(0), 0},
        RangeCase{"LimitShorterThanTheTrimEndsAtLimitPastTheStart", 6 * kSecond, 9 * kSecond,
                  2 * kSecond, 150, 240, TimeOf(150), Span(150, 240)},
        RangeCase{"EndShorterThanTheLimitWins", 6 * kSecond, 7 * kSecond, 5 * kSecond, 150, 210,
                  TimeOf(150), Span(150, 210)},
        RangeCase{"EndPastTheLastFrameSpansToTheLastEntry", 0, 30 * kSecond, 0, 0, 300, 0,
                  Span(0, 299)}),
    [](const ::testing::TestParamInfo<RangeCase>& info) { return info.param.name; });

struct FormatCase {
  int muxer;
  DWORD rate;
  WORD channels;
  DWORD wantedRate;
  WORD wantedChannels;
};

class AudioFormatTest : public ::testing::TestWithParam<FormatCase> {};

TEST_P(AudioFormatTest, FollowsTheRowOfTheMuxer) {
  const FormatCase c = GetParam();
  CFFMux mux(c.muxer, 0, L"unused.mp4", 0, nullptr);
  WAVEFORMATEXTENSIBLE source{};
  source.Format.wFormatTag = WAVE_FORMAT_PCM;
  source.Format.nSamplesPerSec = c.rate;
  source.Format.nChannels = c.channels;
  source.Format.wBitsPerSample = 16;
  WAVEFORMATEX wanted{};
  mux.ChooseAudioFormat(&source, &wanted);

  const bool aac = c.muxer != 5 && c.muxer != 8;
  EXPECT_EQ(wanted.wFormatTag, aac ? WAVE_FORMAT_PCM : WAVE_FORMAT_IEEE_FLOAT);
  EXPECT_EQ(wanted.wBitsPerSample, aac ? 16 : 32);
  EXPECT_EQ(wanted.nSamplesPerSec, c.wantedRate);
  EXPECT_EQ(wanted.nChannels, c.wantedChannels);
  EXPECT_EQ(wanted.nAvgBytesPerSec, wanted.nSamplesPerSec * wanted.nBlockAlign);
}

// One case for each way a row can move a format; the rows themselves are
// not restated.
INSTANTIATE_TEST_SUITE_P(Rows, AudioFormatTest,
                         ::testing::Values(
                             // An unlisted rate takes the next higher one.
                             FormatCase{5, 32000, 2, 44100, 2}, FormatCase{6, 50000, 2, 64000, 2},
                             // Mono stays mono except for AC-3.
                             FormatCase{1, 44100, 1, 44100, 1}, FormatCase{8, 44100, 1, 44100, 2},
                             // Many channels: 8, 6 or 2 by the row.
                             FormatCase{7, 48000, 10, 48000, 8}, FormatCase{8, 48000, 4, 48000, 6},
                             FormatCase{5, 48000, 6, 48000, 2},
                             // Rates beyond the ends of a list are held to them.
                             FormatCase{0, 192000, 2, 96000, 2}, FormatCase{0, 4000, 1, 8000, 1}));

}  // namespace
