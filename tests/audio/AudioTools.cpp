#include "AudioTools.h"

#include <cmath>
#include <cstring>

#include "audio/WaveReader.h"
#include "platform/Text.h"
#include "support/Servers.h"
#include "support/TestEnv.h"

namespace ovtest {

uint32_t RawFormat::SampleBytes() const { return std::strcmp(name, "s16le") == 0 ? 2 : 4; }

Signal::Signal(RawFormat format, size_t frames)
    : m_format(format), m_bytes(frames * format.FrameBytes()) {}

void Signal::Set(size_t frame, uint32_t channel, double value) {
  uint8_t* at = m_bytes.data() + frame * m_format.FrameBytes() + channel * m_format.SampleBytes();
  if (std::strcmp(m_format.name, "s16le") == 0) {
    int16_t v = static_cast<int16_t>(std::lround(value * 32767.0));
    std::memcpy(at, &v, 2);
  } else {
    float v = static_cast<float>(value);
    std::memcpy(at, &v, 4);
  }
}

Signal Signal::Tone(RawFormat format, double seconds, double frequency, double amplitude) {
  Signal s(format, static_cast<size_t>(seconds * format.rate));
  for (size_t n = 0; n < s.Frames(); ++n) {
    for (uint32_t c = 0; c < format.channels; ++c) {
      const double f = frequency * (1.0 + c / 4.0);
      double v = amplitude * std::sin(2 * M_PI * f * (n + 0.5) / format.rate + 0.3 * c);
      // No sample is exactly 0, so that silence marks where the tone is not.
      if (std::fabs(v) < 1e-3) v = v < 0 ? -1e-3 : 1e-3;
      s.Set(n, c, v);
    }
  }
  return s;
}

Signal Signal::Counter(RawFormat format, double seconds) {
  Signal s(format, static_cast<size_t>(seconds * format.rate));
  for (size_t n = 0; n < s.Frames(); ++n) {
    const uint32_t count = static_cast<uint32_t>(n + 1);
    const uint16_t halves[2] = {static_cast<uint16_t>(count & 0xFFFF),
                                static_cast<uint16_t>(count >> 16)};
    std::memcpy(s.m_bytes.data() + n * 4, halves, 4);
  }
  return s;
}

pid_t Play(const Signal& signal, const std::string& sink, const std::string& folder,
           const std::string& channelMap) {
  static int serial = 0;
  const std::string path = folder + "/signal" + std::to_string(++serial) + ".raw";
  // A sink that takes a new stream re-renders what it had mixed ahead; the
  // part of that which a monitor had already delivered is not delivered
  // again. Silence in front keeps the signal itself clear of it.
  const RawFormat f = signal.Format();
  std::string bytes(f.rate / 5 * f.FrameBytes(), '\0');
  bytes.append(signal.Bytes().begin(), signal.Bytes().end());
  WriteFile(path, bytes);
  std::vector<std::string> args = {"pacat",
                                   "--playback",
                                   "--raw",
                                   "--device=" + sink,
                                   std::string("--format=") + f.name,
                                   "--rate=" + std::to_string(f.rate),
                                   "--channels=" + std::to_string(f.channels)};
  if (!channelMap.empty()) args.push_back("--channel-map=" + channelMap);
  args.push_back(path);
  return Spawn(args);
}

WAVEFORMATEXTENSIBLE StereoS16(uint32_t rate) {
  WAVEFORMATEXTENSIBLE f{};
  f.Format = {WAVE_FORMAT_EXTENSIBLE, 2, rate, rate * 4, 4, 16, 22};
  f.Samples.wValidBitsPerSample = 16;
  f.dwChannelMask = 3;
  f.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
  return f;
}

size_t WaveContent::Frames() const {
  return format.Format.nBlockAlign ? data.size() / format.Format.nBlockAlign : 0;
}

uint32_t WaveContent::CountAt(size_t frame) const {
  uint16_t halves[2];
  std::memcpy(halves, Frame(frame), 4);
  return halves[0] | (uint32_t{halves[1]} << 16);
}

WaveContent ReadWave(const std::wstring& path) {
  WaveContent wave;
  CWaveReader reader;
  if (reader.Open(path.c_str()) != S_OK) return wave;
  wave.opened = true;
  wave.format = reader.Format();
  wave.data.resize(static_cast<size_t>(reader.DataLength()));
  size_t at = 0;
  while (at < wave.data.size()) {
    uint32_t n = reader.Read(wave.data.data() + at, static_cast<uint32_t>(wave.data.size() - at));
    if (n == 0) break;
    at += n;
  }
  wave.data.resize(at);
  return wave;
}

bool NonSilentSpan(const WaveContent& wave, size_t* first, size_t* last) {
  const uint32_t block = wave.format.Format.nBlockAlign;
  auto silent = [&](size_t f) {
    const uint8_t* p = wave.Frame(f);
    for (uint32_t i = 0; i < block; ++i)
      if (p[i]) return false;
    return true;
  };
  size_t n = wave.Frames();
  size_t a = 0;
  while (a < n && silent(a)) ++a;
  if (a == n) return false;
  size_t b = n - 1;
  while (silent(b)) --b;
  *first = a;
  *last = b;
  return true;
}

std::string Probe(const std::wstring& path) {
  std::string out = RunCapture(
      "ffprobe -v error -show_entries stream=codec_name,sample_rate,channels,duration -of csv=p=0 "
      "'" +
      ov::ToUtf8(path) + "' 2>&1");
  while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
  return out;
}

}  // namespace ovtest
