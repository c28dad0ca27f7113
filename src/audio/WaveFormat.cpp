#include "audio/WaveFormat.h"

#include <algorithm>
#include <cstring>

#include "session/Log.h"

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

void LogWaveFormat(const char* title, const WAVEFORMATEXTENSIBLE& format) {
  const WAVEFORMATEX& f = format.Format;
  if (f.wFormatTag != WAVE_FORMAT_EXTENSIBLE) {
    WriteLog(kMsg,
             "%s:FormatTag=%d, %d Hz, %d Channels, %d Bits; AvgBytesPerSec=%d, BlockAlign=%d, "
             "Extra size=%d\n",
             title, f.wFormatTag, static_cast<int>(f.nSamplesPerSec), f.nChannels, f.wBitsPerSample,
             static_cast<int>(f.nAvgBytesPerSec), f.nBlockAlign, f.cbSize);
    return;
  }
  const char* sub = "Unknown";
  if (IsEqualGUID(format.SubFormat, KSDATAFORMAT_SUBTYPE_PCM))
    sub = "FORMAT_PCM";
  else if (IsEqualGUID(format.SubFormat, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT))
    sub = "IEEE_FLOAT";
  WriteLog(kMsg,
           "%s:FormatTag=Ext(%s), %d Hz, %d Channels, %d Bits; AvgBytesPerSec=%d, BlockAlign=%d, "
           "Extra size=%d, SubFormat=%d, wValidBitsPerSample=%d,dwChannelMask=0x%X\n",
           title, sub, static_cast<int>(f.nSamplesPerSec), f.nChannels, f.wBitsPerSample,
           static_cast<int>(f.nAvgBytesPerSec), f.nBlockAlign, f.cbSize,
           static_cast<int>(format.SubFormat.Data1), format.Samples.wValidBitsPerSample,
           static_cast<unsigned>(format.dwChannelMask));
}

}  // namespace ov
