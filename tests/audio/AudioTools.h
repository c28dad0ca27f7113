// Known signals played into the private sound server, and what tests need
// to look into the wave files that came back.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "orvanta/types.h"

namespace ovtest {

// A raw sample format as pacat and the null sink name it.
struct RawFormat {
  const char* name;  // "s16le" or "float32le"
  uint32_t rate;
  uint32_t channels;
  uint32_t SampleBytes() const;
  uint32_t FrameBytes() const { return SampleBytes() * channels; }
};

// Interleaved samples, value in [-1, 1) per frame and channel.
class Signal {
 public:
  Signal(RawFormat format, size_t frames);
  void Set(size_t frame, uint32_t channel, double value);
  // Channel c carries a sine of frequency f * (1 + c / 4), never exactly 0.
  static Signal Tone(RawFormat format, double seconds, double frequency, double amplitude);
  // A 32-bit frame counter starting at 1 (s16le stereo, see CountAt): every
  // frame tells when it was played.
  static Signal Counter(RawFormat format, double seconds);
  const std::vector<uint8_t>& Bytes() const { return m_bytes; }
  RawFormat Format() const { return m_format; }
  size_t Frames() const { return m_bytes.size() / m_format.FrameBytes(); }

 private:
  RawFormat m_format;
  std::vector<uint8_t> m_bytes;
};

// Plays the signal, after 200 ms of silence, into a sink with pacat; returns
// its pid. channelMap as pactl writes it; empty for the channel count's default.
pid_t Play(const Signal& signal, const std::string& sink, const std::string& folder,
           const std::string& channelMap = "");

// 16-bit stereo PCM, extensible.
WAVEFORMATEXTENSIBLE StereoS16(uint32_t rate);

// A wave temp file read back with the engine's reader.
struct WaveContent {
  bool opened = false;
  WAVEFORMATEXTENSIBLE format{};
  std::vector<uint8_t> data;
  size_t Frames() const;
  const uint8_t* Frame(size_t frame) const {
    return data.data() + frame * format.Format.nBlockAlign;
  }
  // The counter of a Counter signal: low half on the left, high on the right.
  uint32_t CountAt(size_t frame) const;
};
WaveContent ReadWave(const std::wstring& path);

// The frames in which any channel is not zero: [first, last].
bool NonSilentSpan(const WaveContent& wave, size_t* first, size_t* last);

// "codec_name,sample_rate,channels,duration" as ffprobe sees the file.
std::string Probe(const std::wstring& path);

}  // namespace ovtest
