// Formats of the audio path: the 68-byte header that the wave temp files
// share between writer and reader, and the format line of the log.
#pragma once

#include <cstdint>

#include "orvanta/types.h"

namespace ov {

inline constexpr uint32_t kWaveHeaderSize = 68;
inline constexpr uint32_t kWaveFormatSize = 40;
// A length that the 32-bit fields cannot hold, and the mark of a file whose
// writer has not finished it yet.
inline constexpr uint32_t kWaveUnknownLength = 0xFFFFFFFFu;

#pragma pack(push, 1)
struct WaveHeader {
  char riff[4];
  uint32_t riffSize;
  char wave[4];
  char fmt[4];
  uint32_t formatSize;
  WAVEFORMATEXTENSIBLE format;
  char data[4];
  uint32_t dataSize;
};
#pragma pack(pop)
static_assert(sizeof(WaveHeader) == kWaveHeaderSize);

// The record as the file keeps it: all 40 bytes of an extensible format, or
// the 18 bytes of a plain one followed by zeros.
WAVEFORMATEXTENSIBLE WaveFileFormat(const WAVEFORMATEXTENSIBLE& format);

// The header for dataBytes of samples; lengths past 32 bits are held at
// kWaveUnknownLength.
WaveHeader MakeWaveHeader(const WAVEFORMATEXTENSIBLE& format, uint64_t dataBytes);

// Writes one line describing the format at level 1, after the title.
void LogWaveFormat(const char* title, const WAVEFORMATEXTENSIBLE& format);

}  // namespace ov
