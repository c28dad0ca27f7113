// The ".idx" file beside a temp video: one entry per encoded frame, so that
// the muxer and the player find frames and their times without parsing the
// elementary stream. Little-endian, packed.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ov {

inline constexpr char kFrameIndexMagic[4] = {'O', 'V', 'I', 'X'};
inline constexpr uint32_t kFrameIndexVersion = 1;
inline constexpr int64_t kIndexClock = 90000;  // ticks per second

#pragma pack(push, 1)
struct FrameIndexHeader {
  char magic[4];      // "OVIX"
  uint32_t version;   // kFrameIndexVersion
  int32_t codecType;  // 1 H.264, 2 H.265, 3 MPEG-2, 4 GIF (FFV1 frames)
  uint32_t width;     // true size of the picture
  uint32_t height;
  uint32_t frameRate;  // nominal; the entries carry the real times
  uint32_t timeBase;   // kIndexClock
  uint8_t reserved[16];
};

// Picture types: where decoding can start (1, 2) and where it cannot.
enum : uint32_t {
  kPictureKey = 1,    // IDR / closed-GOP I picture
  kPictureIntra = 2,  // other intra picture
  kPicturePredicted = 3,
};

struct FrameIndexEntry {
  int64_t time;     // presentation time in kIndexClock ticks
  uint64_t offset;  // byte offset of the frame in the elementary stream
  uint32_t size;    // bytes of the frame, parameter sets included
  uint32_t pictureType;
};
#pragma pack(pop)

static_assert(sizeof(FrameIndexHeader) == 44);
static_assert(sizeof(FrameIndexEntry) == 24);

// No recording runs longer than this; a later time is a damaged entry.
inline constexpr int64_t kMaxIndexTime = 100ll * 3600 * kIndexClock;

// The first of count entries whose time is negative, beyond kMaxIndexTime or
// before its predecessor's; count when all are in order.
inline size_t FirstDisorderedEntry(const FrameIndexEntry* entries, size_t count) {
  int64_t previous = 0;
  for (size_t i = 0; i < count; ++i) {
    if (entries[i].time < previous || entries[i].time > kMaxIndexTime) return i;
    previous = entries[i].time;
  }
  return count;
}

// Conversions between 100-ns time and index ticks, truncating toward zero.
inline int64_t TimeToTicks(int64_t time) { return time * kIndexClock / 10000000; }
inline int64_t TicksToTime(int64_t ticks) { return ticks * 10000000 / kIndexClock; }

}  // namespace ov
