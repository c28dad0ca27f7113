#include "SoundLevel.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace cli {

namespace {

constexpr int kFloat = 33;
constexpr int kCells = 10;
constexpr float kFloorDb = -60.0f;

template <class T>
float Peak(const void* samples, uint32_t count, float scale) {
  const T* s = static_cast<const T*>(samples);
  float peak = 0.0f;
  for (uint32_t i = 0; i < count; ++i) peak = std::max(peak, std::fabs(static_cast<float>(s[i])));
  return peak * scale;
}

}  // namespace

void SoundLevel::SetFormat(int32_t type, const WAVEFORMATEX& format) {
  if (type < 0 || type > 1) return;
  const bool isFloat = format.wFormatTag == 3 && format.wBitsPerSample == 32;
  const bool isInt =
      format.wFormatTag == 1 && (format.wBitsPerSample == 16 || format.wBitsPerSample == 32);
  m_sources[type].channels = format.nChannels;
  m_sources[type].bits = isFloat ? kFloat : isInt ? format.wBitsPerSample : 0;
}

void SoundLevel::OnAudioData(int32_t type, const void* pSamples, uint32_t nFrames) {
  if (type < 0 || type > 1 || !pSamples) return;
  Source& source = m_sources[type];
  const uint32_t count = nFrames * static_cast<uint32_t>(source.channels.load());
  float peak = 0.0f;
  switch (source.bits.load()) {
    case 16:
      peak = Peak<int16_t>(pSamples, count, 1.0f / 32768);
      break;
    case 32:
      peak = Peak<int32_t>(pSamples, count, 1.0f / 2147483648.0f);
      break;
    case kFloat:
      peak = std::min(Peak<float>(pSamples, count, 1.0f), 1.0f);
      break;
    default:
      return;
  }
  float old = source.peak.load();
  while (peak > old && !source.peak.compare_exchange_weak(old, peak)) {
  }
}

std::string SoundLevel::Take(int32_t type) {
  if (type < 0 || type > 1 || m_sources[type].bits == 0) return {};
  const float peak = m_sources[type].peak.exchange(0.0f);
  const float db = peak > 0 ? std::max(20.0f * std::log10(peak), kFloorDb) : kFloorDb;
  const int lit = static_cast<int>(std::lround((db - kFloorDb) / -kFloorDb * kCells));
  std::string bar;
  for (int i = 0; i < kCells; ++i) bar += i < lit ? "\u2588" : "\u2591";
  char number[16];
  std::snprintf(number, sizeof number, " %3.0f dB", db);
  return bar + number;
}

}  // namespace cli
