// The box-filter resampler: the seamless joining of blocks, and what a tone
// keeps through a change of rate.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>

#include "AudioTestUtil.h"
#include "audio/convert/AudioConverter.h"
#include "audio/convert/Resampler.h"
#include "support/TestEnv.h"

namespace {

using audiotest::As;
using audiotest::Bytes;
using audiotest::MakeFormat;
using ov::audio::Resampler;
using ov::audio::SampleKind;

template <typename T>
std::vector<T> Resample(Resampler<T>& r, const std::vector<T>& in) {
  std::vector<T> out(in.size() * 8 + 8);
  const int32_t n = r.Run(out.data(), in.data(), static_cast<int32_t>(in.size() * sizeof(T)));
  out.resize(static_cast<size_t>(n) / sizeof(T));
  return out;
}

template <typename T>
void ExpectBlocksJoinWithoutSeam(uint32_t from, uint32_t to, int channels) {
  int32_t weight, width;
  ASSERT_TRUE(ov::audio::ResampleRatio(from, to, &weight, &width));
  std::mt19937 rng(from + to);
  std::vector<T> in(static_cast<size_t>(from) / 2 * static_cast<size_t>(channels));
  std::uniform_int_distribution<int> value(-32768, 32767);
  for (auto& x : in) x = static_cast<T>(value(rng)) / (std::is_same_v<T, float> ? 32768 : 1);

  Resampler<T> whole(channels, weight, width);
  const auto expected = Resample(whole, in);

  // Blocks of random length, among them empty ones and single frames, most
  // of them ending inside an output frame.
  Resampler<T> pieces(channels, weight, width);
  std::vector<T> joined;
  std::uniform_int_distribution<size_t> length(0, 700);
  for (size_t at = 0; at < in.size();) {
    size_t frames = length(rng);
    if (frames > 600) frames = frames % 2;
    const size_t n = std::min(frames * static_cast<size_t>(channels), in.size() - at);
    std::vector<T> block(in.begin() + static_cast<ptrdiff_t>(at),
                         in.begin() + static_cast<ptrdiff_t>(at + n));
    const auto out = Resample(pieces, block);
    joined.insert(joined.end(), out.begin(), out.end());
    at += n;
  }
  EXPECT_EQ(joined, expected);
  EXPECT_EQ(expected.size() / static_cast<size_t>(channels),
            static_cast<size_t>(in.size() / static_cast<size_t>(channels) * weight / width));
}

TEST(Resampler, BlocksJoinWithoutSeam) {
  ExpectBlocksJoinWithoutSeam<int16_t>(44100, 48000, 2);
  ExpectBlocksJoinWithoutSeam<int16_t>(48000, 44100, 1);
  ExpectBlocksJoinWithoutSeam<float>(44100, 48000, 6);
  ExpectBlocksJoinWithoutSeam<float>(48000, 44100, 2);
}

// One second in, run through the converter in blocks of 100 ms.
std::vector<uint8_t> ConvertStream(const WAVEFORMATEXTENSIBLE& from, const WAVEFORMATEXTENSIBLE& to,
                                   const std::vector<uint8_t>& in) {
  AudioConverter converter;
  EXPECT_EQ(converter.Initialize(&from.Format, &to.Format), S_OK);
  std::vector<uint8_t> out;
  const size_t block = from.Format.nAvgBytesPerSec / 10;
  for (size_t at = 0; at < in.size(); at += block) {
    const uint8_t* result = nullptr;
    const int32_t n = converter.Convert(
        in.data() + at, static_cast<int32_t>(std::min(block, in.size() - at)), &result);
    out.insert(out.end(), result, result + n);
  }
  return out;
}

TEST(ResampleTone, DepthAndLayoutChangeAroundTheResampler) {
  AudioConverter converter;
  const auto from = MakeFormat(SampleKind::kI16, 1, 44100);
  const auto to = MakeFormat(SampleKind::kF32, 8, 48000);
  ASSERT_EQ(converter.Initialize(&from.Format, &to.Format), S_OK);
  std::vector<int16_t> in(4410, 16384);
  const uint8_t* result = nullptr;
  const int32_t n = converter.Convert(in.data(), static_cast<int32_t>(in.size() * 2), &result);
  const auto out = As<float>(result, static_cast<size_t>(n));
  ASSERT_EQ(out.size(), 4800u * 8);
  for (size_t i = 0; i < out.size(); i += 8) {
    ASSERT_EQ(out[i], out[i + 1]);
    ASSERT_NEAR(out[i], 16384.0f / 32767.0f, 1e-6);
    for (int c = 2; c < 8; ++c) ASSERT_EQ(out[i + static_cast<size_t>(c)], 0.0f);
  }
}

// sox makes the tones and measures our result, channel by channel: an
// independent reading of frequency and level, up and down in rate.
TEST(ResampleTone, SoxAgreesOnFrequencyAndLevel) {
  const struct {
    SampleKind to;
    int channels;
    uint32_t from, rate;
  } cases[] = {{SampleKind::kF32, 1, 44100, 48000}, {SampleKind::kI16, 2, 48000, 44100}};
  ovtest::ScratchFolder folder("orvanta-resample");
  const std::string in = folder.Path() + "/in.raw";
  const std::string out = folder.Path() + "/out.raw";
  for (const auto& c : cases) {
    const std::string channels = " -c " + std::to_string(c.channels);
    int code = -1;
    ovtest::RunCapture("sox -n -r " + std::to_string(c.from) + channels +
                           " -b 16 -e signed-integer -t raw '" + in + "' synth 2 sine 1000" +
                           (c.channels == 2 ? " sine 1500" : "") + " vol 0.5 2>&1",
                       &code);
    ASSERT_EQ(code, 0);
    const std::string raw = ovtest::ReadFile(in);
    const auto converted = ConvertStream(MakeFormat(SampleKind::kI16, c.channels, c.from),
                                         MakeFormat(c.to, c.channels, c.rate),
                                         std::vector<uint8_t>(raw.begin(), raw.end()));
    ovtest::WriteFile(out, std::string(converted.begin(), converted.end()));
    const std::string encoding =
        c.to == SampleKind::kF32 ? " -b 32 -e floating-point" : " -b 16 -e signed-integer";
    for (int ch = 0; ch < c.channels; ++ch) {
      const std::string stat =
          ovtest::RunCapture("sox -t raw -r " + std::to_string(c.rate) + channels + encoding +
                                 " '" + out + "' -n remix " + std::to_string(ch + 1) + " stat 2>&1",
                             &code);
      ASSERT_EQ(code, 0) << stat;
      double frequency = 0, rms = 0;
      for (const auto& line : ovtest::Lines(stat)) {
        std::sscanf(line.c_str(), "Rough   frequency: %lf", &frequency);
        std::sscanf(line.c_str(), "RMS     amplitude: %lf", &rms);
      }
      EXPECT_NEAR(frequency, ch == 0 ? 1000 : 1500, 5) << c.from << "->" << c.rate;
      // Decoding by 32767 and the sox tone's own rounding stay far inside 0.1 dB.
      EXPECT_NEAR(20 * std::log10(rms / (0.5 / std::sqrt(2.0))), 0.0, 0.1);
    }
  }
}

}  // namespace
