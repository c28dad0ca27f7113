// Pulse sample specs and channel maps against wave format records.
#include <bit>

#include "platform/linux/PulseContext.h"

namespace ov {

namespace {

struct SpeakerBit {
  pa_channel_position_t position;
  uint32_t bit;
};

// The speaker bits of a wave channel mask, in their order within a frame.
constexpr SpeakerBit kSpeakers[] = {
    {PA_CHANNEL_POSITION_FRONT_LEFT, 0x1},
    {PA_CHANNEL_POSITION_FRONT_RIGHT, 0x2},
    {PA_CHANNEL_POSITION_FRONT_CENTER, 0x4},
    {PA_CHANNEL_POSITION_LFE, 0x8},
    {PA_CHANNEL_POSITION_REAR_LEFT, 0x10},
    {PA_CHANNEL_POSITION_REAR_RIGHT, 0x20},
    {PA_CHANNEL_POSITION_FRONT_LEFT_OF_CENTER, 0x40},
    {PA_CHANNEL_POSITION_FRONT_RIGHT_OF_CENTER, 0x80},
    {PA_CHANNEL_POSITION_REAR_CENTER, 0x100},
    {PA_CHANNEL_POSITION_SIDE_LEFT, 0x200},
    {PA_CHANNEL_POSITION_SIDE_RIGHT, 0x400},
    {PA_CHANNEL_POSITION_TOP_CENTER, 0x800},
    {PA_CHANNEL_POSITION_TOP_FRONT_LEFT, 0x1000},
    {PA_CHANNEL_POSITION_TOP_FRONT_CENTER, 0x2000},
    {PA_CHANNEL_POSITION_TOP_FRONT_RIGHT, 0x4000},
    {PA_CHANNEL_POSITION_TOP_REAR_LEFT, 0x8000},
    {PA_CHANNEL_POSITION_TOP_REAR_CENTER, 0x10000},
    {PA_CHANNEL_POSITION_TOP_REAR_RIGHT, 0x20000},
};
constexpr uint32_t kMonoMask = 0x4;

uint32_t BitOf(pa_channel_position_t position) {
  for (const SpeakerBit& s : kSpeakers)
    if (s.position == position) return s.bit;
  return 0;
}

// 0 when some channel has no speaker bit, or two share one: the mask then
// says nothing about the order.
uint32_t MaskOf(const pa_channel_map& map) {
  if (map.channels == 1 && map.map[0] == PA_CHANNEL_POSITION_MONO) return kMonoMask;
  uint32_t mask = 0;
  for (unsigned i = 0; i < map.channels; ++i) {
    uint32_t bit = BitOf(map.map[i]);
    if (bit == 0 || (mask & bit)) return 0;
    mask |= bit;
  }
  return mask;
}

bool MapOfMask(uint32_t mask, unsigned channels, pa_channel_map* map) {
  if (static_cast<unsigned>(std::popcount(mask)) != channels) return false;
  pa_channel_map_init(map);
  map->channels = static_cast<uint8_t>(channels);
  if (channels == 1 && mask == kMonoMask) {
    map->map[0] = PA_CHANNEL_POSITION_MONO;
    return true;
  }
  unsigned i = 0;
  for (const SpeakerBit& s : kSpeakers)
    if (mask & s.bit) map->map[i++] = s.position;
  return i == channels;
}

}  // namespace

WAVEFORMATEXTENSIBLE MixFormatOf(const pa_sample_spec& sampleFormat, const pa_channel_map& map) {
  WORD bits = 16, valid = 16;
  GUID sub = KSDATAFORMAT_SUBTYPE_PCM;
  switch (sampleFormat.format) {
    case PA_SAMPLE_U8:
      bits = valid = 8;
      break;
    case PA_SAMPLE_S24LE:
    case PA_SAMPLE_S24BE:
      bits = valid = 24;
      break;
    case PA_SAMPLE_S24_32LE:
    case PA_SAMPLE_S24_32BE:
      bits = 32;
      valid = 24;
      break;
    case PA_SAMPLE_S32LE:
    case PA_SAMPLE_S32BE:
      bits = valid = 32;
      break;
    case PA_SAMPLE_FLOAT32LE:
    case PA_SAMPLE_FLOAT32BE:
      bits = valid = 32;
      sub = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
      break;
    default:  // 16-bit, and the companded and big-endian kinds the server converts to it
      break;
  }
  WAVEFORMATEXTENSIBLE f{};
  f.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
  f.Format.nChannels = sampleFormat.channels;
  f.Format.nSamplesPerSec = sampleFormat.rate;
  f.Format.wBitsPerSample = bits;
  f.Format.nBlockAlign = static_cast<WORD>(bits / 8 * sampleFormat.channels);
  f.Format.nAvgBytesPerSec = f.Format.nBlockAlign * sampleFormat.rate;
  f.Format.cbSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
  f.Samples.wValidBitsPerSample = valid;
  f.dwChannelMask = map.channels == sampleFormat.channels ? MaskOf(map) : 0;
  f.SubFormat = sub;
  return f;
}

bool PulseFormatOf(const WAVEFORMATEXTENSIBLE& format, const pa_channel_map& deviceMap,
                   pa_sample_spec* sampleFormat, pa_channel_map* map) {
  const WAVEFORMATEX& f = format.Format;
  const bool extensible = f.wFormatTag == WAVE_FORMAT_EXTENSIBLE;
  bool isFloat;
  if (extensible) {
    if (f.cbSize < sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX)) return false;
    if (IsEqualGUID(format.SubFormat, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT))
      isFloat = true;
    else if (IsEqualGUID(format.SubFormat, KSDATAFORMAT_SUBTYPE_PCM))
      isFloat = false;
    else
      return false;
  } else if (f.wFormatTag == WAVE_FORMAT_IEEE_FLOAT || f.wFormatTag == WAVE_FORMAT_PCM) {
    isFloat = f.wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
  } else {
    return false;
  }
  const WORD valid = extensible && format.Samples.wValidBitsPerSample
                         ? format.Samples.wValidBitsPerSample
                         : f.wBitsPerSample;
  pa_sample_format_t sample = PA_SAMPLE_INVALID;
  if (isFloat) {
    if (f.wBitsPerSample == 32 && valid == 32) sample = PA_SAMPLE_FLOAT32LE;
  } else if (f.wBitsPerSample == 8 && valid == 8) {
    sample = PA_SAMPLE_U8;
  } else if (f.wBitsPerSample == 16 && valid == 16) {
    sample = PA_SAMPLE_S16LE;
  } else if (f.wBitsPerSample == 24 && valid == 24) {
    sample = PA_SAMPLE_S24LE;
  } else if (f.wBitsPerSample == 32 && valid == 24) {
    sample = PA_SAMPLE_S24_32LE;
  } else if (f.wBitsPerSample == 32 && valid == 32) {
    sample = PA_SAMPLE_S32LE;
  }
  if (sample == PA_SAMPLE_INVALID) return false;
  if (f.nChannels == 0 || f.nChannels > PA_CHANNELS_MAX) return false;
  if (f.nBlockAlign != f.wBitsPerSample / 8 * f.nChannels) return false;
  if (f.nAvgBytesPerSec != static_cast<DWORD>(f.nBlockAlign) * f.nSamplesPerSec) return false;

  sampleFormat->format = sample;
  sampleFormat->rate = f.nSamplesPerSec;
  sampleFormat->channels = static_cast<uint8_t>(f.nChannels);
  if (!pa_sample_spec_valid(sampleFormat)) return false;
  if (extensible && MapOfMask(format.dwChannelMask, f.nChannels, map)) return true;
  if (deviceMap.channels == f.nChannels) {
    *map = deviceMap;
    return true;
  }
  return pa_channel_map_init_extend(map, f.nChannels, PA_CHANNEL_MAP_WAVEEX) != nullptr;
}

}  // namespace ov
