// The arithmetic and the edges of the pixel routines, on values worked out by
// hand. Each test runs on every path this processor has.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <tuple>

#include "PixelTestSupport.h"
#include "pixels/Pixels.h"

namespace {

using pixtest::AtLevel;

constexpr uint8_t kUntouched = 0xEE;

class PixelArithmetic : public testing::TestWithParam<int32_t> {
 protected:
  void SetUp() override { ov::SetPixelCpuLevel(GetParam()); }
  void TearDown() override { ov::SetPixelCpuLevel(ov::DetectPixelCpuLevel()); }
};

// A BGR32 image of one colour; Bgr is blue, green, red.
using Bgr = std::array<uint8_t, 3>;
std::vector<uint8_t> Flat32(int width, int height, Bgr c, int pitch = 0) {
  if (pitch == 0) pitch = width * 4;
  std::vector<uint8_t> image(size_t(pitch) * height, kUntouched);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* p = &image[size_t(y) * pitch + 4 * x];
      p[0] = c[0], p[1] = c[1], p[2] = c[2], p[3] = 0x5A;
    }
  }
  return image;
}

struct Yuv {
  int y, u, v;
};

// 2 x 2 of one colour through the I420 routine.
Yuv ConvertBlock(Bgr c) {
  auto src = Flat32(2, 2, c);
  std::vector<uint8_t> dst(6, kUntouched);
  EXPECT_EQ(ImageConvert_BGR32_to_I420(dst.data(), 2, src.data(), 8, 2, 2), S_OK);
  EXPECT_TRUE(dst[0] == dst[1] && dst[1] == dst[2] && dst[2] == dst[3]);
  return {dst[0], dst[4], dst[5]};
}

TEST_P(PixelArithmetic, FullRangeLumaAndChromaOfPrimaries) {
  const struct {
    Bgr colour;
    Yuv yuv;
  } cases[] = {
      {{255, 255, 255}, {255, 128, 128}}, {{0, 0, 0}, {0, 128, 128}},
      {{255, 0, 0}, {29, 239, 102}},  // blue: U at its ceiling
      {{0, 0, 255}, {76, 90, 255}},   // red: V clamped at 255
      {{0, 255, 0}, {149, 54, 0}},    // green: V clamped at 0
  };
  for (const auto& c : cases) {
    const Yuv got = ConvertBlock(c.colour);
    EXPECT_EQ(got.y, c.yuv.y) << int(c.colour[0]) << "," << int(c.colour[1]) << ","
                              << int(c.colour[2]);
    EXPECT_EQ(got.u, c.yuv.u);
    EXPECT_EQ(got.v, c.yuv.v);
  }
}

// Chroma rounds the block's sums, not each pixel's chroma.
TEST_P(PixelArithmetic, ChromaAveragesTheBlock) {
  const uint8_t src[16] = {10, 200, 30, 0, 250, 0,   90,  0,   // top row
                           0,  0,   0,  0, 255, 255, 255, 0};  // bottom row
  std::vector<uint8_t> dst(6);
  ASSERT_EQ(ImageConvert_BGR32_to_I420(dst.data(), 2, src, 8, 2, 2), S_OK);
  EXPECT_EQ(dst, (std::vector<uint8_t>{127, 55, 0, 255, 137, 114}));
}

// Pitch 7 and height 5: U at 35, V at 35 * 5 / 4 = 43, chroma pitch 3; the odd
// last column and row keep what they had.
TEST_P(PixelArithmetic, I420PlanesFollowPitchAndHeightAndSkipOddEdges) {
  auto src = Flat32(5, 5, {255, 255, 255});
  std::vector<uint8_t> dst(43 + 3 + 2, kUntouched);
  EXPECT_EQ(ImageConvert_BGR32_to_I420(dst.data(), 7, src.data(), 20, 5, 5), S_FALSE);
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 7; ++x) {
      const bool converted = x < 4 && y < 4;
      EXPECT_EQ(dst[y * 7 + x], converted ? 255 : kUntouched) << x << "," << y;
    }
  }
  const int u = 35, v = 43;
  EXPECT_EQ(dst[u], 128);
  EXPECT_EQ(dst[u + 1], 128);
  EXPECT_EQ(dst[u + 2], kUntouched);
  EXPECT_EQ(dst[u + 3], 128);
  EXPECT_EQ(dst[v], 128);
  EXPECT_EQ(dst[v + 1], 128);
  EXPECT_EQ(dst[v + 3], 128);
  EXPECT_EQ(dst[v + 4], 128);
  EXPECT_EQ(dst[v + 2], kUntouched);

  // One row has no 2 x 2 block to convert.
  std::vector<uint8_t> row(16, kUntouched);
  EXPECT_EQ(ImageConvert_BGR32_to_I420(row.data(), 8, src.data(), 32, 8, 1), S_FALSE);
  EXPECT_EQ(row, std::vector<uint8_t>(16, kUntouched));
}

// NV12 is the I420 result with its chroma woven into pairs; the chroma plane
// starts at pitch * height, so with an odd height the last luma row stays.
TEST_P(PixelArithmetic, Nv12IsI420WithWovenChroma) {
  const int width = 37, height = 9, pitch = 41, srcPitch = 37 * 4 + 4;
  const auto src = pixtest::RandomBytes(size_t(srcPitch) * height, 5);
  std::vector<uint8_t> i420(size_t(width) * height * 3 / 2, kUntouched);
  ASSERT_EQ(ImageConvert_BGR32_to_I420(i420.data(), width, src.data(), srcPitch, width, height),
            S_FALSE);
  std::vector<uint8_t> nv12(size_t(pitch) * height * 3 / 2, kUntouched);
  std::vector<uint8_t> scratch(size_t(width) * height * 3 / 2);
  ASSERT_EQ(ImageConvert_BGR32_to_NV12(nv12.data(), pitch, src.data(), srcPitch, width, height,
                                       scratch.data()),
            S_FALSE);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < pitch; ++x) {
      const uint8_t expected = (y < height - 1 && x < width - 1) ? i420[y * width + x] : kUntouched;
      ASSERT_EQ(nv12[y * pitch + x], expected) << "Y " << x << "," << y;
    }
  }
  const size_t u = size_t(width) * height, v = size_t(width) * height * 5 / 4;
  const int chromaPitch = width / 2;
  for (int y = 0; y < height / 2; ++y) {
    for (int x = 0; x < pitch; ++x) {
      const uint8_t* plane = (x % 2 == 0) ? &i420[u] : &i420[v];
      const uint8_t expected = x < width - 1 ? plane[y * chromaPitch + x / 2] : kUntouched;
      ASSERT_EQ(nv12[size_t(pitch) * height + y * pitch + x], expected) << "UV " << x << "," << y;
    }
  }
}

// Back from I420, byte 0 carries red and byte 2 blue, within rounding.
TEST_P(PixelArithmetic, I420RoundTripGivesRgbOrder) {
  const Bgr colours[] = {{40, 90, 200}, {200, 30, 60}, {128, 128, 128}, {10, 240, 10}};
  for (const Bgr& c : colours) {
    auto src = Flat32(2, 2, c);
    uint8_t i420[6], back[16];
    ASSERT_EQ(ImageConvert_BGR32_to_I420(i420, 2, src.data(), 8, 2, 2), S_OK);
    ASSERT_EQ(ImageConvert_I420_to_RGB32(back, 8, i420, 2, 2, 2), S_OK);
    EXPECT_NEAR(back[0], c[2], 3) << int(c[0]) << "," << int(c[1]) << "," << int(c[2]);
    EXPECT_NEAR(back[1], c[1], 3);
    EXPECT_NEAR(back[2], c[0], 3);
    // YV12 reads the same block with the chroma planes swapped.
    std::swap(i420[4], i420[5]);
    uint8_t same[16];
    ASSERT_EQ(ImageConvert_YV12_to_RGB32(same, 8, i420, 2, 2, 2), S_OK);
    EXPECT_EQ(0, std::memcmp(back, same, 16));
  }
}

// Video range through the packed layouts, on one pair of pixels: Y 16 is
// black and Y 235 white; UYVY has constants of its own (green 54, not 55).
TEST_P(PixelArithmetic, PackedVideoRange) {
  using Routine = HRESULT (*)(BYTE*, int, const BYTE*, int, int, int);
  const struct {
    Routine routine;
    uint8_t pair[4];
    uint8_t first[4];
  } cases[] = {
      {ImageConvert_YUY2_to_BGR32, {16, 128, 235, 128}, {0, 0, 0, 255}},
      {ImageConvert_UYVY_to_BGR32, {128, 16, 128, 235}, {0, 0, 0, 255}},
      {ImageConvert_YVYU_to_BGR32, {16, 128, 235, 128}, {0, 0, 0, 255}},
      {ImageConvert_YUY2_to_BGR32, {16, 130, 16, 60}, {4, 55, 0, 255}},
      {ImageConvert_UYVY_to_BGR32, {130, 16, 60, 16}, {4, 54, 0, 255}},
      {ImageConvert_YVYU_to_BGR32, {16, 60, 16, 130}, {4, 55, 0, 255}},
  };
  for (const auto& c : cases) {
    uint8_t out[8];
    ASSERT_EQ(c.routine(out, 8, c.pair, 4, 2, 1), S_OK);
    EXPECT_EQ(0, std::memcmp(out, c.first, 4)) << int(c.pair[0]) << "," << int(c.pair[1]);
  }
  // The NV12 path: black, white.
  const uint8_t nv12[6] = {16, 235, 16, 235, 128, 128};
  uint8_t dst[16];
  ASSERT_EQ(ImageConvert_NV12_to_BGR32(dst, 8, nv12, 2, 2, 2), S_OK);
  EXPECT_EQ(dst[0] + dst[1] + dst[2], 0);
  EXPECT_EQ(dst[4] & dst[5] & dst[6] & dst[7], 255);
}

// The lone last pixel of an odd row borrows the missing chroma sample from the
// pair before it: in each layout it must come out like the first pixel of a
// full pair made of its own sample and the borrowed one.
TEST_P(PixelArithmetic, OddLastPackedPixelBorrowsChroma) {
  using Routine = HRESULT (*)(BYTE*, int, const BYTE*, int, int, int);
  struct Layout {
    Routine routine;
    int y, u, v;  // offsets inside a pair
  };
  const Layout layouts[] = {{ImageConvert_YUY2_to_BGR32, 0, 1, 3},
                            {ImageConvert_UYVY_to_BGR32, 1, 0, 2},
                            {ImageConvert_YVYU_to_BGR32, 0, 3, 1}};
  for (const Layout& l : layouts) {
    uint8_t row[6] = {};
    row[l.y] = 90, row[l.y + 2] = 120, row[l.u] = 70, row[l.v] = 210;  // the full pair
    uint8_t* half = row + 4;
    const int present = 1 - l.y;
    half[l.y] = 180;
    half[present] = 30;
    // The same pixel in a full pair: the present sample, and the lender's other.
    uint8_t pair[4] = {};
    pair[l.y] = 180;
    pair[l.u] = l.u == present ? 30 : 70;
    pair[l.v] = l.v == present ? 30 : 210;
    uint8_t odd[12], full[8];
    std::memset(odd, kUntouched, sizeof odd);
    EXPECT_EQ(l.routine(odd, 12, row, 6, 3, 1), S_FALSE);
    ASSERT_EQ(l.routine(full, 8, pair, 4, 2, 1), S_OK);
    EXPECT_EQ(0, std::memcmp(odd + 8, full, 4))
        << "layout with luma at " << l.y << ", u at " << l.u;

    // A row of one pixel has no lender and uses its one sample for both.
    uint8_t alone[4] = {};
    alone[l.y] = 180;
    alone[l.u] = 30;
    alone[l.v] = 30;
    uint8_t one[4], reference[8];
    EXPECT_EQ(l.routine(one, 4, half, 2, 1, 1), S_FALSE);
    ASSERT_EQ(l.routine(reference, 8, alone, 4, 2, 1), S_OK);
    EXPECT_EQ(0, std::memcmp(one, reference, 4));
  }
}

TEST_P(PixelArithmetic, Bgr24KeepsTheFourthByte) {
  const int width = 21, height = 3, pitch = 21 * 3 + 1, dstPitch = 21 * 4 + 8;
  const auto src = pixtest::RandomBytes(size_t(pitch) * height, 11);
  auto dst = pixtest::RandomBytes(size_t(dstPitch) * height, 12);
  const auto before = dst;
  ASSERT_EQ(ImageConvert_BGR24_to_BGR32(dst.data(), dstPitch, src.data(), pitch, width, height),
            S_OK);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < dstPitch; ++x) {
      const size_t at = size_t(y) * dstPitch + x;
      const bool colour = x < width * 4 && x % 4 != 3;
      const uint8_t expected = colour ? src[size_t(y) * pitch + x / 4 * 3 + x % 4] : before[at];
      ASSERT_EQ(dst[at], expected) << x << "," << y;
    }
  }
}

// FlipRows32 moves the colour bytes and leaves each pixel's fourth byte.
TEST_P(PixelArithmetic, FlipsReverseRows) {
  const int width = 7, height = 4;
  for (int bytes : {3, 4}) {
    std::vector<uint8_t> image(width * height * bytes);
    for (size_t i = 0; i < image.size(); ++i) image[i] = uint8_t(i);
    const auto before = image;
    ASSERT_EQ((bytes == 4 ? FlipRows32 : FlipRows24)(image.data(), width, height), S_OK);
    const int row = width * bytes;
    for (int at = 0; at < height * row; ++at) {
      const bool stays = bytes == 4 && at % 4 == 3;
      const int from = stays ? at : (height - 1 - at / row) * row + at % row;
      ASSERT_EQ(image[at], before[from]) << bytes << " bytes, at " << at;
    }
  }
}

TEST_P(PixelArithmetic, FillAndCopyStayInsideTheRectangle) {
  const int width = 13, height = 3, pitch = 13 * 4 + 6;
  std::vector<uint8_t> dst(pitch * height, kUntouched);
  ASSERT_EQ(FillRect32(0x11223344u, dst.data(), pitch, width, height), S_OK);
  std::vector<uint8_t> copy(pitch * height, 0);
  ASSERT_EQ(CopyRect32(copy.data(), pitch, dst.data(), pitch, width, height), S_OK);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < pitch; ++x) {
      const bool inside = x < width * 4;
      const uint8_t fill[4] = {0x44, 0x33, 0x22, 0x11};
      EXPECT_EQ(dst[y * pitch + x], inside ? fill[x % 4] : kUntouched) << x << "," << y;
      EXPECT_EQ(copy[y * pitch + x], inside ? fill[x % 4] : 0) << x << "," << y;
    }
  }
}

TEST_P(PixelArithmetic, BadArgumentsDoNothing) {
  std::vector<uint8_t> buf(64, kUntouched);
  const std::vector<uint8_t> before = buf;
  const uint8_t* src = buf.data();
  // NV12 needs 2 x 2 and all its pointers.
  const auto bgr = Flat32(4, 4, {9, 9, 9});
  std::vector<uint8_t> scratch(24);
  for (auto [w, h, sc] :
       {std::tuple{1, 4, scratch.data()}, {4, 1, scratch.data()}, {4, 4, nullptr}})
    EXPECT_LT(ImageConvert_BGR32_to_NV12(buf.data(), 4, bgr.data(), 16, w, h, sc), 0);
  EXPECT_LT(ImageConvert_BGR32_to_NV12(nullptr, 4, bgr.data(), 16, 4, 4, scratch.data()), 0);
  EXPECT_LT(ImageConvert_BGR32_to_I420(nullptr, 4, src, 16, 4, 4), 0);
  EXPECT_LT(ImageConvert_BGR32_to_I420(buf.data(), 4, nullptr, 16, 4, 4), 0);
  EXPECT_LT(ImageConvert_I420_to_RGB32(buf.data(), 16, src, 4, 0, 4), 0);
  EXPECT_LT(ImageConvert_NV12_to_BGR32(buf.data(), 16, src, 4, 4, -1), 0);
  EXPECT_LT(ImageConvert_YUY2_to_BGR32(buf.data(), 16, nullptr, 8, 4, 1), 0);
  EXPECT_LT(ImageConvert_BGR24_to_BGR32(buf.data(), 16, src, 12, 0, 1), 0);
  EXPECT_LT(CopyRect32(nullptr, 16, src, 16, 4, 4), 0);
  EXPECT_LT(ImageCopy32(buf.data(), 16, src, 16, 4, 0), 0);
  EXPECT_LT(FillRect32(0, nullptr, 16, 4, 4), 0);
  EXPECT_LT(FillRect32(0, buf.data(), 16, 0, 4), 0);
  EXPECT_LT(FlipRows32(buf.data(), 4, 0), 0);
  EXPECT_LT(FlipRows24(nullptr, 4, 4), 0);
  EXPECT_EQ(buf, before);
}

// A host's pitch that runs upward or is shorter than a row, or a source that
// overlaps the destination, would have the exports write outside the
// buffers they were given. The rows such a call would reach lie inside buf.
TEST_P(PixelArithmetic, ExportsRefuseHostPitchesAndOverlaps) {
  const int w = 4, h = 4, row = w * 4;
  std::vector<uint8_t> buf(row * h * 6, kUntouched);
  const std::vector<uint8_t> before = buf;
  uint8_t* middle = buf.data() + row * h * 3;
  const std::vector<uint8_t> src = Flat32(w, h, {9, 9, 9});
  std::vector<uint8_t> scratch(w * h * 3 / 2);
  EXPECT_EQ(CopyRect32(middle, -row, src.data(), row, w, h), E_INVALIDARG);
  EXPECT_EQ(CopyRect32(middle, row - 4, src.data(), row, w, h), E_INVALIDARG);
  EXPECT_EQ(CopyRect32(middle, row, middle - row, row, w, h), E_INVALIDARG);
  EXPECT_EQ(CopyRect32(middle, row, middle + 2 * row, row, w, h), E_INVALIDARG);
  EXPECT_EQ(ImageConvert_BGR32_to_NV12(middle, -w, src.data(), row, w, h, scratch.data()),
            E_INVALIDARG);
  EXPECT_EQ(ImageConvert_BGR32_to_NV12(middle, w - 2, src.data(), row, w, h, scratch.data()),
            E_INVALIDARG);
  EXPECT_EQ(ImageConvert_BGR32_to_NV12(middle, w, middle, -row, w, h, scratch.data()),
            E_INVALIDARG);
  // The source standing on the chroma rows below the luma.
  EXPECT_EQ(ImageConvert_BGR32_to_NV12(middle, w, middle + w * h, row, w, h, scratch.data()),
            E_INVALIDARG);
  EXPECT_EQ(buf, before);
}

INSTANTIATE_TEST_SUITE_P(Paths, PixelArithmetic, testing::ValuesIn(pixtest::Levels()),
                         [](const testing::TestParamInfo<int32_t>& info) {
                           return "Level" + std::to_string(info.param);
                         });

TEST(PixelDispatch, ChoosesOnceAndClampsRequests) {
  ov::InitializePixelDispatch();
  const int32_t detected = ov::DetectPixelCpuLevel();
  EXPECT_EQ(g_nCpuLevel.load(), detected);
  EXPECT_EQ(ov::SetPixelCpuLevel(0), 0);
  ov::InitializePixelDispatch();  // a level in force stays
  EXPECT_EQ(g_nCpuLevel.load(), 0);
  EXPECT_EQ(ov::SetPixelCpuLevel(99), detected);
  EXPECT_EQ(ov::SetPixelCpuLevel(-3), 0);
  ov::SetPixelCpuLevel(detected);
}

}  // namespace
