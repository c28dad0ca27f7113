#include "output/WmaFormats.h"

#include <cstring>
#include <cwchar>

#include "core/Log.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
}

namespace ov {

namespace {

// WMA 9 Standard is WMA 2 on the wire (tag 0x161), and that is the only WMA
// that FFmpeg can encode: WMA 9 Pro (0x162), Lossless and Voice exist only
// as decoders, so no format of the newer codec is ever listed.
constexpr int kRates[] = {48000, 44100, 32000, 22050, 16000, 11025, 8000};
constexpr int kChannels[] = {2, 1};
// wmav2 is constant-rate; a quality stands for a bit rate per channel of
// bits per sample times the rate, and the low byte of nAvgBytesPerSec
// carries the quality as it does for VBR formats. Qualities below 75 are
// not offered.
struct QualityStep {
  int quality;
  int bitsPerSampleTimes4;
};
constexpr QualityStep kQualities[] = {{98, 8}, {90, 6}, {75, 4}};
constexpr int64_t kMinBitRate = 24000;

struct CodecContext {
  AVCodecContext* p = nullptr;
  ~CodecContext() { avcodec_free_context(&p); }
};

bool MakeRecord(const AVCodec* codec, int rate, int channels, const QualityStep& step,
                AudioCodecRecord* record) {
  const int64_t bytesPerSec = int64_t{rate} * channels * step.bitsPerSampleTimes4 / 32;
  WAVEFORMATEX f{};
  f.wFormatTag = 0x161;
  f.nChannels = static_cast<WORD>(channels);
  f.nSamplesPerSec = static_cast<DWORD>(rate);
  f.nAvgBytesPerSec = static_cast<DWORD>((bytesPerSec & ~int64_t{0xFF}) | step.quality);
  f.wBitsPerSample = 16;

  // The encoder refuses less than this; asking would only fill the log.
  if (WmaBitRate(f) < kMinBitRate) return false;
  CodecContext context;
  context.p = avcodec_alloc_context3(codec);
  if (!context.p) return false;
  context.p->sample_fmt = AV_SAMPLE_FMT_FLTP;
  context.p->sample_rate = rate;
  av_channel_layout_default(&context.p->ch_layout, channels);
  context.p->bit_rate = WmaBitRate(f);
  if (avcodec_open2(context.p, codec, nullptr) < 0) return false;
  const int extra = context.p->extradata_size;
  if (extra < 0 || sizeof(WAVEFORMATEX) + extra > sizeof record->format) return false;
  f.nBlockAlign = static_cast<WORD>(context.p->block_align);
  f.cbSize = static_cast<WORD>(extra);
  std::memcpy(record->format, &f, sizeof f);
  if (extra) std::memcpy(record->format + sizeof f, context.p->extradata, extra);

  WM_MEDIA_TYPE& mt = record->mediaType;
  mt.majortype = WMMEDIATYPE_Audio;
  mt.subtype = WMMEDIASUBTYPE_WMAudioV8;
  mt.bFixedSizeSamples = 1;
  mt.lSampleSize = f.nBlockAlign;
  mt.formattype = WMFORMAT_WaveFormatEx;
  mt.cbFormat = static_cast<uint32_t>(sizeof f + extra);
  mt.pbFormat = record->format;

  AudioCodecInfo& info = record->info;
  std::swprintf(info.szName, 256, L"%s", codec->long_name);
  std::swprintf(info.szDescription, 256, L"Quality %d (%d kbps), %d kHz, %ls", step.quality,
                static_cast<int>(context.p->bit_rate / 1000), rate / 1000,
                channels == 2 ? L"stereo" : L"mono");
  info.nQuality = step.quality;
  info.pFormat = reinterpret_cast<const WAVEFORMATEX*>(record->format);
  info.pMediaType = &record->mediaType;
  return true;
}

}  // namespace

int64_t WmaBitRate(const WAVEFORMATEX& format) {
  return int64_t{format.nAvgBytesPerSec & ~0xFFu} * 8;
}

HRESULT EnumAudioCodecs(AudioCodecList* allCodecInfo) {
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_WMAV2);
  if (!codec) {
    WriteLog(kErr, "Failed(0x%x) in WMCreateProfileManager(&pProfileManager), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), OV_FILE, __LINE__);
    return E_FAIL;
  }
  for (int rate : kRates)
    for (int channels : kChannels)
      for (const QualityStep& step : kQualities) {
        auto record = std::make_unique<AudioCodecRecord>();
        if (MakeRecord(codec, rate, channels, step, record.get()))
          allCodecInfo->push_back(std::move(record));
      }
  WriteLog(kMsg, "WMA formats: %d\n", static_cast<int>(allCodecInfo->size()));
  return S_OK;
}

}  // namespace ov
