// The two rules that FFMux applies before the mux program runs: which frames
// a trim keeps, and which audio format each output gets.
#include <gtest/gtest.h>

#include <vector>

#include "output/FFMux.h"

namespace {

constexpr int64_t kSecond = 10000000;

// 300 frames at 30 fps, the first 10 ms after the start; key frames at 0 and
// 150, an intra picture at 240.
std::vector<ov::FrameIndexEntry> Entries() {
  std::vector<ov::FrameIndexEntry> entries(300);
  for (size_t i = 0; i < entries.size(); ++i) {
    entries[i].time = 900 + static_cast<int64_t>(i) * 3000;
    entries[i].pictureType = ov::kPicturePredicted;
  }
  entries[0].pictureType = entries[150].pictureType = ov::kPictureKey;
  entries[240].pictureType = ov::kPictureIntra;
  return entries;
}

int64_t TimeOf(size_t i) { return ov::TicksToTime(Entries()[i].time); }
int64_t Span(size_t from, size_t to) {
  return ov::TicksToTime(Entries()[to].time - Entries()[from].time);
}

TEST(FrameRange, TrimAndLimitGiveTheFramesAndTheAudioSpan) {
  const struct {
    const char* name;
    int64_t trimStart, trimEnd, limit;
    int32_t first, end;
    int64_t newStart, newLimit;
  } cases[] = {
      {"start on a key frame moves to the one before", TimeOf(150), 0, 0, 0, 300, TimeOf(0), 0},
      {"an intra picture is a start too", 9 * kSecond, 0, 0, 240, 300, TimeOf(240), 0},
      {"a start past the end uses frame 0", 20 * kSecond, 0, 0, 0, 300, TimeOf(0), 0},
      {"a limit shorter than the trim ends past the start", 6 * kSecond, 9 * kSecond, 2 * kSecond,
       150, 240, TimeOf(150), Span(150, 240)},
      {"an end shorter than the limit wins", 6 * kSecond, 7 * kSecond, 5 * kSecond, 150, 210,
       TimeOf(150), Span(150, 210)},
      {"an end past the last frame spans to it", 0, 30 * kSecond, 0, 0, 300, 0, Span(0, 299)}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    int64_t start = c.trimStart, limit = c.limit;
    const ov::FrameRange range = ov::ComputeFrameRange(Entries(), &start, c.trimEnd, &limit);
    EXPECT_EQ(range.first, c.first);
    EXPECT_EQ(range.end, c.end);
    EXPECT_EQ(start, c.newStart);
    EXPECT_EQ(limit, c.newLimit);
  }
}

}  // namespace
