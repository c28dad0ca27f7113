#include "AudioTestUtil.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <fstream>

#include "audio/convert/ConvertFunctions.h"
#include "core/Log.h"
#include "support/TestEnv.h"

namespace audiotest {

WAVEFORMATEXTENSIBLE MakeFormat(SampleKind kind, int channels, uint32_t rate, bool extensible) {
  WAVEFORMATEXTENSIBLE f{};
  const int bits = ov::audio::BytesPerSample(kind) * 8;
  const bool isFloat = kind == SampleKind::kF32;
  f.Format.wFormatTag =
      extensible ? WAVE_FORMAT_EXTENSIBLE : (isFloat ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM);
  f.Format.nChannels = static_cast<WORD>(channels);
  f.Format.nSamplesPerSec = rate;
  f.Format.wBitsPerSample = static_cast<WORD>(bits);
  f.Format.nBlockAlign = static_cast<WORD>(bits / 8 * channels);
  f.Format.nAvgBytesPerSec = f.Format.nBlockAlign * rate;
  if (extensible) {
    f.Format.cbSize = 22;
    f.Samples.wValidBitsPerSample = static_cast<WORD>(bits);
    f.dwChannelMask = channels == 2 ? 3 : 0;
    f.SubFormat = isFloat ? KSDATAFORMAT_SUBTYPE_IEEE_FLOAT : KSDATAFORMAT_SUBTYPE_PCM;
  }
  return f;
}

std::vector<uint8_t> RunMember(SampleKind from, int fromChannels, SampleKind to, int toChannels,
                               const std::vector<uint8_t>& input) {
  auto fn = ov::audio::FindConvertFunction(from, fromChannels, to, toChannels);
  EXPECT_NE(fn, nullptr);
  if (!fn) return {};
  const size_t frames = input.size() / (ov::audio::BytesPerSample(from) * fromChannels);
  std::vector<uint8_t> out(frames * ov::audio::BytesPerSample(to) * toChannels + 64);
  const int32_t n = fn(out.data(), input.data(), static_cast<int32_t>(input.size()));
  out.resize(static_cast<size_t>(n));
  return out;
}

namespace {

class LogEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    setenv("XDG_DOCUMENTS_DIR", m_folder.Path().c_str(), 1);
    ASSERT_GE(ov::OpenLogFile(), 0);
  }

 private:
  ovtest::ScratchFolder m_folder{"orvanta-audiolog"};
};

[[maybe_unused]] auto* const g_logEnvironment =
    ::testing::AddGlobalTestEnvironment(new LogEnvironment);

}  // namespace

void WriteWaveTempFile(const std::string& path, const WAVEFORMATEXTENSIBLE& format,
                       const std::vector<uint8_t>& samples) {
  uint8_t header[68] = {};
  auto put32 = [&](int at, uint32_t v) { std::memcpy(header + at, &v, 4); };
  std::memcpy(header, "RIFF", 4);
  put32(4, static_cast<uint32_t>(samples.size() + 60));
  std::memcpy(header + 8, "WAVE", 4);
  std::memcpy(header + 12, "fmt ", 4);
  put32(16, 40);
  std::memcpy(header + 20, &format, 40);
  if (format.Format.wFormatTag != WAVE_FORMAT_EXTENSIBLE) std::memset(header + 38, 0, 22);
  std::memcpy(header + 60, "data", 4);
  put32(64, static_cast<uint32_t>(samples.size()));
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(header), sizeof header);
  out.write(reinterpret_cast<const char*>(samples.data()),
            static_cast<std::streamsize>(samples.size()));
}

std::vector<float> Sine(double f, double a, uint32_t rate, size_t n) {
  std::vector<float> x(n);
  for (size_t i = 0; i < n; ++i)
    x[i] = static_cast<float>(a * std::sin(2 * M_PI * f * static_cast<double>(i) / rate));
  return x;
}

ToneMeasure MeasureTone(const std::vector<float>& x, uint32_t rate) {
  const size_t begin = x.size() / 10;
  const size_t end = x.size() - x.size() / 10;
  // Rising zero crossings, placed between samples by linear interpolation.
  double first = -1, last = -1;
  int cycles = -1;
  for (size_t i = begin; i + 1 < end; ++i) {
    if (x[i] < 0 && x[i + 1] >= 0) {
      const double t = static_cast<double>(i) + x[i] / (x[i] - x[i + 1]);
      if (first < 0) first = t;
      last = t;
      ++cycles;
    }
  }
  ToneMeasure m{};
  if (cycles <= 0) return m;
  m.frequency = cycles * static_cast<double>(rate) / (last - first);
  // Least squares fit of a sin + b cos + c at that frequency: a correlation
  // over whole cycles, where the three are orthogonal.
  const size_t span = static_cast<size_t>((last - first));
  const size_t from = static_cast<size_t>(first);
  double s = 0, c = 0, dc = 0;
  const double w = 2 * M_PI * m.frequency / rate;
  for (size_t i = from; i < from + span; ++i) {
    s += x[i] * std::sin(w * static_cast<double>(i));
    c += x[i] * std::cos(w * static_cast<double>(i));
    dc += x[i];
  }
  s *= 2.0 / static_cast<double>(span);
  c *= 2.0 / static_cast<double>(span);
  dc /= static_cast<double>(span);
  m.amplitude = std::hypot(s, c);
  double residual = 0;
  for (size_t i = from; i < from + span; ++i) {
    const double fit =
        s * std::sin(w * static_cast<double>(i)) + c * std::cos(w * static_cast<double>(i)) + dc;
    residual += (x[i] - fit) * (x[i] - fit);
  }
  const double residualRms = std::sqrt(residual / static_cast<double>(span));
  m.residualDb = 20 * std::log10(residualRms / (m.amplitude / std::sqrt(2.0)));
  return m;
}

double AmplitudeAt(const std::vector<float>& x, uint32_t rate, double f, size_t count) {
  double s = 0, c = 0;
  const double w = 2 * M_PI * f / rate;
  for (size_t i = 0; i < count && i < x.size(); ++i) {
    s += x[i] * std::sin(w * static_cast<double>(i));
    c += x[i] * std::cos(w * static_cast<double>(i));
  }
  return std::hypot(s, c) * 2.0 / static_cast<double>(count);
}

std::vector<float> Channel(const std::vector<float>& interleaved, int channels, int c) {
  std::vector<float> x;
  x.reserve(interleaved.size() / static_cast<size_t>(channels));
  for (size_t i = static_cast<size_t>(c); i < interleaved.size();
       i += static_cast<size_t>(channels))
    x.push_back(interleaved[i]);
  return x;
}

}  // namespace audiotest
