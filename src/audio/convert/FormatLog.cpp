#include "audio/convert/FormatLog.h"

#include "core/Log.h"

namespace ov::audio {

void LogFormat(const char* title, const WAVEFORMATEX& f) {
  if (f.wFormatTag != WAVE_FORMAT_EXTENSIBLE) {
    WriteLog(kMsg,
             "%s:FormatTag=%d, %d Hz, %d Channels, %d Bits; AvgBytesPerSec=%d, BlockAlign=%d, "
             "Extra size=%d\n",
             title, f.wFormatTag, static_cast<int>(f.nSamplesPerSec), f.nChannels, f.wBitsPerSample,
             static_cast<int>(f.nAvgBytesPerSec), f.nBlockAlign, f.cbSize);
    return;
  }
  const auto& ext = reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(f);
  const char* sub = "Unknown";
  if (IsEqualGUID(ext.SubFormat, KSDATAFORMAT_SUBTYPE_PCM))
    sub = "FORMAT_PCM";
  else if (IsEqualGUID(ext.SubFormat, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT))
    sub = "IEEE_FLOAT";
  WriteLog(kMsg,
           "%s:FormatTag=Ext(%s), %d Hz, %d Channels, %d Bits; AvgBytesPerSec=%d, BlockAlign=%d, "
           "Extra size=%d, SubFormat=%d, wValidBitsPerSample=%d,dwChannelMask=0x%X\n",
           title, sub, static_cast<int>(f.nSamplesPerSec), f.nChannels, f.wBitsPerSample,
           static_cast<int>(f.nAvgBytesPerSec), f.nBlockAlign, f.cbSize,
           static_cast<int>(ext.SubFormat.Data1), ext.Samples.wValidBitsPerSample,
           static_cast<unsigned>(ext.dwChannelMask));
}

}  // namespace ov::audio
