#include "audio/WaveFormat.h"

#include <algorithm>
#include <cstring>

#include "audio/convert/FormatLog.h"

namespace ov {

WAVEFORMATEXTENSIBLE WaveFileFormat(const WAVEFORMATEXTENSIBLE& format) {
  WAVEFORMATEXTENSIBLE record{};
  if (format.Format.wFormatTag == WAVE_FORMAT_EXTENSIBLE)
    record = format;
  else
    record.Format = format.Format;
  return record;
}

WaveHeader MakeWaveHeader(const WAVEFORMATEXTENSIBLE& format, uint64_t dataBytes) {
  WaveHeader header;
  std::memcpy(header.riff, "RIFF", 4);
  std::memcpy(header.wave, "WAVE", 4);
  std::memcpy(header.fmt, "fmt ", 4);
  std::memcpy(header.data, "data", 4);
  const uint64_t riffSize = dataBytes + kWaveHeaderSize - 8;
  header.riffSize = static_cast<uint32_t>(std::min<uint64_t>(riffSize, kWaveUnknownLength));
  header.formatSize = kWaveFormatSize;
  header.format = WaveFileFormat(format);
  header.dataSize = static_cast<uint32_t>(std::min<uint64_t>(dataBytes, kWaveUnknownLength));
  return header;
}

// One line shape for every format the engine logs.
void LogWaveFormat(const char* title, const WAVEFORMATEXTENSIBLE& format) {
  audio::LogFormat(title, format.Format);
}

}  // namespace ov
