// The record that the engine hands to the `mux` program in shared memory:
// everything the program needs beyond its two descriptor numbers. It is a
// wire format between two builds, so every field sits at a fixed offset;
// the natural alignment of the fields gives exactly those offsets.
// Little-endian; what is not written stays 0.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace ov {

inline constexpr uint32_t kMuxRecordSize = 1680;
inline constexpr int kMuxPathChars = 256;  // UTF-16 units, terminator included

// What `mux` makes of each container code.
enum MuxContainer : int32_t {
  kMuxMp4 = 0,           // MP4: video and AAC
  kMuxMp4VideoOnly = 1,  // MP4: video alone
  kMuxM4a = 2,           // MPEG-4 audio (.m4a): AAC alone
  kMuxAdts = 3,          // raw AAC in ADTS frames (.aac)
  kMuxMov = 4,           // QuickTime: video and AAC
  kMuxMkv = 5,           // Matroska: video and AAC
  kMuxFlv = 6,           // Flash video: H.264 and AAC
  kMuxMp3 = 7,           // MP3 audio alone
  kMuxAvi = 8,           // AVI: video and AC-3
  kMuxContainerCount = 9,
};

struct MuxRecord {
  uint32_t size;                       // kMuxRecordSize
  char16_t outputPath[kMuxPathChars];  // UTF-16, zero-terminated
  int32_t container;                   // MuxContainer
  int32_t noVideo;                     // 1: the output has no video
  char16_t videoPath[kMuxPathChars];   // the temp video (elementary stream)
  char16_t indexPath[kMuxPathChars];   // its frame index
  int32_t firstFrame;                  // index entries first .. endFrame - 1
  int32_t endFrame;                    //
  int32_t noAudio;                     // 1: the output has no audio
  int32_t audioChannels;               // of the raw audio file
  int32_t audioRate;                   //
  char encoder[64];                    // ASCII: "libfdk_aac", "libmp3lame", "ac3"
  int64_t audioFd;                     // inherited descriptor of the raw audio
  int32_t audioSetting;                // bit rate in kbit/s; 0 or less: the default
  int32_t reserved;                    //
  int64_t audioFrames;                 // sample frames in the raw audio file
  int32_t progress;                    // written by mux: frames done, or percent
  int32_t hasWatermark;                // 1: the raster follows
  uint8_t watermark[16];               // the raster starts here and runs past size
};

static_assert(offsetof(MuxRecord, outputPath) == 0x004);
static_assert(offsetof(MuxRecord, container) == 0x204);
static_assert(offsetof(MuxRecord, noVideo) == 0x208);
static_assert(offsetof(MuxRecord, videoPath) == 0x20C);
static_assert(offsetof(MuxRecord, indexPath) == 0x40C);
static_assert(offsetof(MuxRecord, firstFrame) == 0x60C);
static_assert(offsetof(MuxRecord, endFrame) == 0x610);
static_assert(offsetof(MuxRecord, noAudio) == 0x614);
static_assert(offsetof(MuxRecord, audioChannels) == 0x618);
static_assert(offsetof(MuxRecord, audioRate) == 0x61C);
static_assert(offsetof(MuxRecord, encoder) == 0x620);
static_assert(offsetof(MuxRecord, audioFd) == 0x660);
static_assert(offsetof(MuxRecord, audioSetting) == 0x668);
static_assert(offsetof(MuxRecord, audioFrames) == 0x670);
static_assert(offsetof(MuxRecord, progress) == 0x678);
static_assert(offsetof(MuxRecord, hasWatermark) == 0x67C);
static_assert(offsetof(MuxRecord, watermark) == 0x680);
static_assert(sizeof(MuxRecord) == kMuxRecordSize);

// The progress word is shared by two processes without a lock: a single
// aligned 32-bit word.
inline std::atomic_ref<int32_t> MuxProgress(MuxRecord* record) {
  return std::atomic_ref<int32_t>(record->progress);
}

// Mapping size of a record with a watermark raster of a width x height frame.
inline size_t MuxRecordBytes(uint32_t width, uint32_t height) {
  return kMuxRecordSize + static_cast<size_t>(width) * height * 4;
}

}  // namespace ov
