#include "audio/convert/SampleFormat.h"

namespace ov::audio {

uint16_t EffectiveTag(const WAVEFORMATEX& format) {
  if (format.wFormatTag != WAVE_FORMAT_EXTENSIBLE) return format.wFormatTag;
  const auto& ext = reinterpret_cast<const WAVEFORMATEXTENSIBLE&>(format);
  if (IsEqualGUID(ext.SubFormat, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT)) return WAVE_FORMAT_IEEE_FLOAT;
  if (IsEqualGUID(ext.SubFormat, KSDATAFORMAT_SUBTYPE_PCM)) return WAVE_FORMAT_PCM;
  // Other subtypes follow the tag numbering in the low half of their first field.
  return static_cast<uint16_t>(ext.SubFormat.Data1);
}

SampleKind KindOf(const WAVEFORMATEX& format) {
  switch (EffectiveTag(format)) {
    case WAVE_FORMAT_PCM:
      switch (format.wBitsPerSample) {
        case 8:
          return SampleKind::kU8;
        case 16:
          return SampleKind::kI16;
        case 24:
          return SampleKind::kI24;
        case 32:
          return SampleKind::kI32;
        default:
          return SampleKind::kNone;
      }
    case WAVE_FORMAT_IEEE_FLOAT:
      return format.wBitsPerSample == 32 ? SampleKind::kF32 : SampleKind::kNone;
    default:
      return SampleKind::kNone;
  }
}

}  // namespace ov::audio

BOOL IsSameWaveFormat(const WAVEFORMATEX* a, const WAVEFORMATEX* b) {
  return ov::audio::EffectiveTag(*a) == ov::audio::EffectiveTag(*b) &&
         a->nSamplesPerSec == b->nSamplesPerSec && a->nChannels == b->nChannels &&
         a->wBitsPerSample == b->wBitsPerSample;
}
