// The scalar conversion rules at their edges, which the vector members must
// match: rounding and limits, channel layouts and the down-mix positions.
#include <gtest/gtest.h>

#include <cmath>

#include "AudioTestUtil.h"
#include "audio/convert/AudioConverter.h"

namespace {

using audiotest::As;
using audiotest::Bytes;
using audiotest::RunMember;
using ov::audio::SampleKind;
constexpr SampleKind kU8 = SampleKind::kU8;
constexpr SampleKind kI16 = SampleKind::kI16;
constexpr SampleKind kF32 = SampleKind::kF32;

TEST(SampleEncode, RoundsToEvenAndLimits) {
  const float q = 1.0f / 32768.0f;
  const std::vector<float> in = {-1.0f,    1.0f,      0.5f, 0.5f * q, 1.5f * q,
                                 2.5f * q, -1.5f * q, 2.0f, 1e30f,    -1e30f,
                                 INFINITY, -INFINITY, NAN,  -0.0f,    32767.5f * q};
  const std::vector<int16_t> expected = {-32768, 32767,  16384, 0,      2,      2, -2,   32767,
                                         32767,  -32768, 32767, -32768, -32768, 0, 32767};
  EXPECT_EQ(As<int16_t>(RunMember(kF32, 1, kI16, 1, Bytes(in))), expected);
  const float q8 = 1.0f / 128.0f;
  const std::vector<float> in8 = {1, -1, 0, 0.5f * q8, 1.5f * q8, 2.5f * q8, 127.5f * q8, 5};
  EXPECT_EQ(RunMember(kF32, 1, kU8, 1, Bytes(in8)),
            (std::vector<uint8_t>{255, 0, 128, 128, 130, 130, 255, 255}));
}

TEST(ChannelMix, SixteenBitMonoMixGoesThroughFloatAndLimits) {
  // (1 + 1) x 0.5 x 32768 is one past the top.
  EXPECT_EQ(As<int16_t>(RunMember(kI16, 2, kI16, 1,
                                  Bytes<int16_t>({32767, 32767, 1000, 3000, -32768, -32768}))),
            (std::vector<int16_t>{32767, 2000, -32768}));
  EXPECT_EQ(RunMember(kI16, 2, kU8, 1, Bytes<int16_t>({32767, 32767, 0, 0, -32767, -32767})),
            (std::vector<uint8_t>{255, 128, 0}));
}

// A unit on each input channel in turn shows that channel's weight in each
// output: the surround channels land on their own side.
TEST(ChannelMix, SixChannelsMixToStereoByPosition) {
  const float s = 0.7071f;
  const std::vector<std::vector<float>> expected = {{1, 0},       {0, 1}, {s, s},
                                                    {0.5f, 0.5f}, {s, 0}, {0, s}};
  for (size_t c = 0; c < 6; ++c) {
    std::vector<float> unit(6, 0.0f);
    unit[c] = 1.0f;
    EXPECT_EQ(As<float>(RunMember(kF32, 6, kF32, 2, Bytes(unit))), expected[c]) << "channel " << c;
  }
}

TEST(ChannelMix, LayoutsWithoutArithmeticCopyDropOrAddSilence) {
  using V = std::vector<int16_t>;
  EXPECT_EQ(As<int16_t>(RunMember(kI16, 1, kI16, 6, Bytes<int16_t>({5}))), (V{5, 5, 0, 0, 0, 0}));
  EXPECT_EQ(As<int16_t>(RunMember(kI16, 8, kI16, 6, Bytes<int16_t>({1, 2, 3, 4, 5, 6, 7, 8}))),
            (V{1, 2, 3, 4, 5, 6}));
  // A depth change and an up-mix together: u8 mono into 16-bit stereo.
  EXPECT_EQ(As<int16_t>(RunMember(kU8, 1, kI16, 2, {0, 255})), (V{-32768, -32768, 32512, 32512}));
}

}  // namespace
