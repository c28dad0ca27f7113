// The vector members against the scalar rules, bit for bit, on random data
// that includes the values where rounding and limits decide: ties, full
// scale, infinities, NaN, denormals and negative zero.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "AudioTestUtil.h"
#include "audio/convert/ConvertFunctions.h"
#include "audio/convert/TrackMix.h"

namespace {

using ov::audio::SampleKind;

// An odd count, so that every vector loop leaves a scalar tail behind it.
constexpr int kFrames = 4099;

float AwkwardFloat(std::mt19937& rng) {
  using limits = std::numeric_limits<float>;
  static const float edgeValues[] = {0.0f,
                                     -0.0f,
                                     1.0f,
                                     -1.0f,
                                     0.5f / 32768,
                                     1.5f / 32768,
                                     -2.5f / 32768,
                                     32767.5f / 32768,
                                     0.5f / 128,
                                     127.5f / 128,
                                     1e30f,
                                     -1e30f,
                                     limits::infinity(),
                                     -limits::infinity(),
                                     limits::quiet_NaN(),
                                     limits::denorm_min(),
                                     limits::max()};
  std::uniform_int_distribution<int> pick(0, 7);
  if (pick(rng) == 0) {
    std::uniform_int_distribution<size_t> which(0, std::size(edgeValues) - 1);
    return edgeValues[which(rng)];
  }
  std::uniform_real_distribution<float> level(-1.6f, 1.6f);
  return level(rng);
}

std::vector<uint8_t> RandomSamples(SampleKind kind, int channels, std::mt19937& rng) {
  const size_t samples = static_cast<size_t>(kFrames) * static_cast<size_t>(channels);
  if (kind == SampleKind::kF32) {
    std::vector<float> v(samples);
    for (auto& x : v) x = AwkwardFloat(rng);
    return audiotest::Bytes(v);
  }
  std::vector<uint8_t> b(samples * static_cast<size_t>(ov::audio::BytesPerSample(kind)));
  std::uniform_int_distribution<int> byte(0, 255);
  for (auto& x : b) x = static_cast<uint8_t>(byte(rng));
  return b;
}

// Compares the bits, so that NaN and negative zero count too.
void ExpectSameBytes(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b,
                     const std::string& what) {
  ASSERT_EQ(a.size(), b.size()) << what;
  for (size_t i = 0; i < a.size(); ++i)
    if (a[i] != b[i]) {
      ADD_FAILURE() << what << ": first difference at byte " << i;
      return;
    }
}

TEST(SimdParity, EveryConversionMemberMatchesTheScalarRules) {
  const SampleKind kinds[] = {SampleKind::kU8, SampleKind::kI16, SampleKind::kI24, SampleKind::kI32,
                              SampleKind::kF32};
  std::mt19937 rng(20240611);
  int members = 0;
  for (SampleKind from : kinds)
    for (int fc = 1; fc <= 8; ++fc)
      for (SampleKind to : kinds)
        for (int tc = 1; tc <= 8; ++tc) {
          auto fast = ov::audio::FindConvertFunction(from, fc, to, tc);
          auto scalar = ov::audio::FindScalarConvertFunction(from, fc, to, tc);
          ASSERT_EQ(fast == nullptr, scalar == nullptr);
          if (!fast) continue;
          ++members;
          const auto in = RandomSamples(from, fc, rng);
          // Misaligned source and destination: the block of a caller need
          // not start on a vector boundary.
          std::vector<uint8_t> input(in.size() + 1);
          std::copy(in.begin(), in.end(), input.begin() + 1);
          const size_t outBytes = static_cast<size_t>(kFrames) * ov::audio::BytesPerSample(to) * tc;
          std::vector<uint8_t> a(outBytes + 1), b(outBytes + 1);
          const int32_t n = static_cast<int32_t>(in.size());
          ASSERT_EQ(fast(a.data() + 1, input.data() + 1, n), static_cast<int32_t>(outBytes));
          ASSERT_EQ(scalar(b.data() + 1, input.data() + 1, n), static_cast<int32_t>(outBytes));
          ExpectSameBytes(a, b,
                          "member " + std::to_string(static_cast<int>(from)) + "/" +
                              std::to_string(fc) + " -> " + std::to_string(static_cast<int>(to)) +
                              "/" + std::to_string(tc));
        }
  EXPECT_EQ(members, 19 * 9);
}

TEST(SimdParity, TrackMixesMatchTheScalarRules) {
  std::mt19937 rng(7);
  const auto pcmA = RandomSamples(SampleKind::kI16, 2, rng);
  const auto pcmB = RandomSamples(SampleKind::kI16, 2, rng);
  auto fast = pcmA, scalar = pcmA;
  ov::audio::MixI16(fast.data(), pcmB.data(), static_cast<int32_t>(fast.size()));
  ov::audio::ScalarMixI16(scalar.data(), pcmB.data(), static_cast<int32_t>(scalar.size()));
  ExpectSameBytes(fast, scalar, "16-bit mix");

  const auto fltA = RandomSamples(SampleKind::kF32, 2, rng);
  const auto fltB = RandomSamples(SampleKind::kF32, 2, rng);
  fast = fltA;
  scalar = fltA;
  ov::audio::MixF32(fast.data(), fltB.data(), static_cast<int32_t>(fast.size()));
  ov::audio::ScalarMixF32(scalar.data(), fltB.data(), static_cast<int32_t>(scalar.size()));
  ExpectSameBytes(fast, scalar, "float mix");
}

}  // namespace
