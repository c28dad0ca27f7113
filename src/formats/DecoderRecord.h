// The record that the player shares with the `mux` program in decoder mode:
// the temp video's path and index, the requests of the player, and one slot
// that the program fills with a decoded frame. A wire format between two
// builds: every field sits at a fixed offset. Little-endian; what is not
// written stays 0.
//
// The two events are eventfd descriptors that the program inherits by
// number: the first is never used; the player signals the second whenever
// the slot has been emptied or a seek is asked for.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "formats/FrameIndex.h"

namespace ov {

inline constexpr uint32_t kDecoderRecordSize = 1160;  // the fixed part and one entry
inline constexpr int kDecoderPathChars = 256;         // UTF-16 units, terminator included
inline constexpr int64_t kSlotEmpty = -1;

struct DecoderRecord {
  uint32_t size;                          // kDecoderRecordSize
  char16_t videoPath[kDecoderPathChars];  // the temp video, zero-terminated
  uint8_t unused[0x204];                  //
  int64_t readyEvent;                     // unused
  int64_t slotEvent;                      // set by the player: slot free, or seek asked
  int32_t reserved;                       //
  int32_t seekEntry;                      // player: the entry to decode from; -1 at start
  int64_t slotTime;                       // both: 90 kHz time of the slot's frame; -1 empty
  int32_t ended;                          // both: the last frame has been delivered
  int32_t width;                          //
  int32_t height;                         //
  int32_t stride;                         // width * 4
  uint32_t slotOffset;                    // from the start of the record, 64-aligned
  uint32_t entryCount;                    //
  FrameIndexHeader header;                // of the .idx, byte for byte
  uint8_t pad[4];                         //
  FrameIndexEntry entries[1];             // entryCount of them
};

static_assert(offsetof(DecoderRecord, readyEvent) == 0x408);
static_assert(offsetof(DecoderRecord, slotEvent) == 0x410);
static_assert(offsetof(DecoderRecord, seekEntry) == 0x41C);
static_assert(offsetof(DecoderRecord, slotTime) == 0x420);
static_assert(offsetof(DecoderRecord, ended) == 0x428);
static_assert(offsetof(DecoderRecord, slotOffset) == 0x438);
static_assert(offsetof(DecoderRecord, header) == 0x440);
static_assert(offsetof(DecoderRecord, entries) == 0x470);
static_assert(sizeof(DecoderRecord) == 0x470 + 24);

// The size of the mapping for entryBytes of index entries and a frame of
// width by height.
inline size_t DecoderRecordBytes(size_t entryBytes, uint32_t width, uint32_t height) {
  const size_t w = (width + 63) / 64 * 64, h = (height + 63) / 64 * 64;
  return entryBytes + 4 * (w * h + 306);
}
inline uint32_t DecoderSlotOffset(size_t entryBytes) {
  return static_cast<uint32_t>((entryBytes + 1287) / 64 * 64);
}

// The words that both sides change while the other runs.
inline std::atomic<int64_t>& SlotTime(DecoderRecord* r) {
  return *reinterpret_cast<std::atomic<int64_t>*>(&r->slotTime);
}
inline std::atomic<int32_t>& SeekEntry(DecoderRecord* r) {
  return *reinterpret_cast<std::atomic<int32_t>*>(&r->seekEntry);
}
inline std::atomic<int32_t>& EndFlag(DecoderRecord* r) {
  return *reinterpret_cast<std::atomic<int32_t>*>(&r->ended);
}

}  // namespace ov
