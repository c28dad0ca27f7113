// The pixel routines on every path this processor has: known colours, the
// edges of odd sizes and the refusal of bad arguments; and every vector path
// giving the plain path's bytes, on odd sizes and odd pitches, without
// writing outside the rectangle.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "pixels/PixelDispatch.h"
#include "pixels/Pixels.h"

namespace {

// The levels worth running here: the plain path, the 128-bit and the 256-bit
// kernels, as far as this processor has them.
inline std::vector<int32_t> Levels() {
  std::vector<int32_t> levels;
  for (int32_t level : {0, 1, 7}) {
    if (level <= ov::DetectPixelCpuLevel()) levels.push_back(level);
  }
  return levels;
}

// Runs the body with the given path in force and puts the detected one back.
class AtLevel {
 public:
  explicit AtLevel(int32_t level) { ov::SetPixelCpuLevel(level); }
  ~AtLevel() { ov::SetPixelCpuLevel(ov::DetectPixelCpuLevel()); }
  AtLevel(const AtLevel&) = delete;
  AtLevel& operator=(const AtLevel&) = delete;
};

// Random bytes, a third of them at 0 or 255 so that the clamps are reached.
inline std::vector<uint8_t> RandomBytes(size_t size, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> bytes(size);
  for (auto& b : bytes) {
    const uint32_t r = rng();
    b = (r % 6 == 0) ? 0 : (r % 6 == 1) ? 255 : static_cast<uint8_t>(r >> 8);
  }
  return bytes;
}

// Exact sizes, so that the address sanitizer sees any access past the end.
inline size_t RowsSize(int pitch, int rows, int rowBytes) {
  return rows < 1 || rowBytes < 1 ? 0 : size_t(pitch) * size_t(rows - 1) + size_t(rowBytes);
}

// A block of I420 or YV12 at this pitch and height, for width columns.
inline size_t I420Size(int pitch, int width, int height) {
  size_t size = RowsSize(pitch, height, width);
  const size_t luma = size_t(pitch) * height;
  const size_t chroma = RowsSize(pitch / 2, height / 2, width / 2);
  if (chroma > 0) size = luma * 5 / 4 + chroma;
  return size;
}

inline size_t Nv12Size(int pitch, int width, int height) {
  const size_t chroma = RowsSize(pitch, height / 2, width & ~1);
  return chroma > 0 ? size_t(pitch) * height + chroma : RowsSize(pitch, height, width);
}

constexpr uint8_t kUntouched = 0xEE;
using Routine = HRESULT (*)(BYTE*, int, const BYTE*, int, int, int);

class PixelArithmetic : public testing::TestWithParam<int32_t> {
 protected:
  void SetUp() override { ov::SetPixelCpuLevel(GetParam()); }
  void TearDown() override { ov::SetPixelCpuLevel(ov::DetectPixelCpuLevel()); }
};

// A BGR32 image of one colour; Bgr is blue, green, red.
using Bgr = std::array<uint8_t, 3>;
std::vector<uint8_t> Flat32(int width, int height, Bgr c) {
  std::vector<uint8_t> image(size_t(width) * height * 4);
  for (size_t i = 0; i < image.size(); i += 4)
    image[i] = c[0], image[i + 1] = c[1], image[i + 2] = c[2], image[i + 3] = 0x5A;
  return image;
}

// Full-range primaries with the chroma clamps reached; back from I420 (and
// YV12, the same block with its chroma planes swapped) in RGB order.
TEST_P(PixelArithmetic, KnownColoursAndTheirRoundTrip) {
  const struct {
    Bgr colour;
    std::vector<uint8_t> yuv;
  } known[] = {
      {{255, 255, 255}, {255, 128, 128}}, {{0, 0, 0}, {0, 128, 128}},
      {{255, 0, 0}, {29, 239, 102}},      {{0, 0, 255}, {76, 90, 255}},
      {{0, 255, 0}, {149, 54, 0}},
  };
  uint8_t i420[6], back[16], yv12[16];
  for (const auto& c : known) {
    ASSERT_EQ(ImageConvert_BGR32_to_I420(i420, 2, Flat32(2, 2, c.colour).data(), 8, 2, 2), S_OK);
    EXPECT_EQ(std::vector<uint8_t>(i420 + 3, i420 + 6), c.yuv) << int(c.colour[0]);
  }
  for (const Bgr& c : {Bgr{40, 90, 200}, Bgr{200, 30, 60}, Bgr{10, 240, 10}}) {
    ASSERT_EQ(ImageConvert_BGR32_to_I420(i420, 2, Flat32(2, 2, c).data(), 8, 2, 2), S_OK);
    ASSERT_EQ(ImageConvert_I420_to_RGB32(back, 8, i420, 2, 2, 2), S_OK);
    EXPECT_NEAR(back[0], c[2], 3) << int(c[0]);
    EXPECT_NEAR(back[1], c[1], 3);
    EXPECT_NEAR(back[2], c[0], 3);
    std::swap(i420[4], i420[5]);
    ASSERT_EQ(ImageConvert_YV12_to_RGB32(yv12, 8, i420, 2, 2, 2), S_OK);
    EXPECT_EQ(0, std::memcmp(back, yv12, 16));
  }
}

// Pitch 7 and height 5: U at 35, V at 35 * 5 / 4 = 43, chroma pitch 3; the odd
// last column and row keep what they had, and one row converts nothing.
TEST_P(PixelArithmetic, I420PlanesFollowPitchAndHeightAndSkipOddEdges) {
  auto src = Flat32(8, 5, {255, 255, 255});
  std::vector<uint8_t> dst(48, kUntouched);
  EXPECT_EQ(ImageConvert_BGR32_to_I420(dst.data(), 7, src.data(), 32, 5, 5), S_FALSE);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 7; ++x)
      EXPECT_EQ(dst[y * 7 + x], x < 4 && y < 4 ? 255 : kUntouched) << x << "," << y;
  for (int plane : {35, 43})
    for (int at : {0, 1, 2, 3, 4})
      EXPECT_EQ(dst[plane + at], at == 2 ? kUntouched : 128) << plane << "+" << at;
  std::vector<uint8_t> row(16, kUntouched);
  EXPECT_EQ(ImageConvert_BGR32_to_I420(row.data(), 8, src.data(), 32, 8, 1), S_FALSE);
  EXPECT_EQ(row, std::vector<uint8_t>(16, kUntouched));
}

// NV12 is the I420 result with its chroma woven into pairs; the chroma plane
// starts at pitch * height, so with an odd height the last luma row stays.
TEST_P(PixelArithmetic, Nv12IsI420WithWovenChroma) {
  const int width = 37, height = 9, pitch = 41, srcPitch = 37 * 4 + 4;
  const auto src = RandomBytes(size_t(srcPitch) * height, 5);
  std::vector<uint8_t> i420(size_t(width) * height * 3 / 2, kUntouched);
  ASSERT_EQ(ImageConvert_BGR32_to_I420(i420.data(), width, src.data(), srcPitch, width, height),
            S_FALSE);
  std::vector<uint8_t> nv12(size_t(pitch) * height * 3 / 2, kUntouched), scratch(i420.size());
  ASSERT_EQ(ImageConvert_BGR32_to_NV12(nv12.data(), pitch, src.data(), srcPitch, width, height,
                                       scratch.data()),
            S_FALSE);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < pitch; ++x)
      ASSERT_EQ(nv12[y * pitch + x],
                y < height - 1 && x < width - 1 ? i420[y * width + x] : kUntouched)
          << "Y " << x << "," << y;
  const uint8_t* planes[2] = {&i420[width * height], &i420[width * height * 5 / 4]};
  for (int y = 0; y < height / 2; ++y)
    for (int x = 0; x < pitch; ++x)
      ASSERT_EQ(nv12[pitch * height + y * pitch + x],
                x < width - 1 ? planes[x % 2][y * (width / 2) + x / 2] : kUntouched)
          << "UV " << x << "," << y;
}

// Video range in each packed layout: Y 16 is black and 235 white. The lone
// last pixel of an odd row borrows the missing chroma sample from the pair
// before it.
TEST_P(PixelArithmetic, PackedLayoutsAndTheirOddLastPixel) {
  const struct {
    Routine routine;
    int y, u, v;  // offsets inside a pair
  } layouts[] = {{ImageConvert_YUY2_to_BGR32, 0, 1, 3},
                 {ImageConvert_UYVY_to_BGR32, 1, 0, 2},
                 {ImageConvert_YVYU_to_BGR32, 0, 3, 1}};
  for (const auto& l : layouts) {
    SCOPED_TRACE(::testing::Message() << "luma at " << l.y << ", u at " << l.u);
    uint8_t bw[4] = {}, out[8];
    bw[l.y] = 16, bw[l.y + 2] = 235, bw[l.u] = bw[l.v] = 128;
    ASSERT_EQ(l.routine(out, 8, bw, 4, 2, 1), S_OK);
    EXPECT_EQ(std::vector<uint8_t>(out, out + 8),
              (std::vector<uint8_t>{0, 0, 0, 255, 255, 255, 255, 255}));

    uint8_t row[6] = {};
    row[l.y] = 90, row[l.y + 2] = 120, row[l.u] = 70, row[l.v] = 210;
    uint8_t* half = row + 4;
    const int present = 1 - l.y;
    half[l.y] = 180, half[present] = 30;
    uint8_t pair[4] = {};
    pair[l.y] = 180;
    pair[l.u] = l.u == present ? 30 : 70;
    pair[l.v] = l.v == present ? 30 : 210;
    uint8_t odd[12], full[8];
    EXPECT_EQ(l.routine(odd, 12, row, 6, 3, 1), S_FALSE);
    ASSERT_EQ(l.routine(full, 8, pair, 4, 2, 1), S_OK);
    EXPECT_EQ(0, std::memcmp(odd + 8, full, 4));
  }
}

// BGR24 widening keeps each row's padding and each pixel's fourth byte;
// flips move the colour bytes and leave the fourth byte.
TEST_P(PixelArithmetic, WideningAndFlipsStayInTheirBytes) {
  const int width = 21, height = 3, pitch = 21 * 3 + 1, dstPitch = 21 * 4 + 8;
  const auto src = RandomBytes(size_t(pitch) * height, 11);
  auto dst = RandomBytes(size_t(dstPitch) * height, 12);
  const auto before = dst;
  ASSERT_EQ(ImageConvert_BGR24_to_BGR32(dst.data(), dstPitch, src.data(), pitch, width, height),
            S_OK);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < dstPitch; ++x) {
      const size_t at = size_t(y) * dstPitch + x;
      const bool colour = x < width * 4 && x % 4 != 3;
      ASSERT_EQ(dst[at], colour ? src[size_t(y) * pitch + x / 4 * 3 + x % 4] : before[at]) << x;
    }
  }
  for (int bytes : {3, 4}) {
    std::vector<uint8_t> image(7 * 4 * bytes);
    for (size_t i = 0; i < image.size(); ++i) image[i] = uint8_t(i);
    const auto unflipped = image;
    ASSERT_EQ((bytes == 4 ? FlipRows32 : FlipRows24)(image.data(), 7, 4), S_OK);
    const int row = 7 * bytes;
    for (int at = 0; at < 4 * row; ++at) {
      const bool stays = bytes == 4 && at % 4 == 3;
      ASSERT_EQ(image[at], unflipped[stays ? at : (3 - at / row) * row + at % row]) << at;
    }
  }
}

// Null pointers and empty sizes, and a host's pitch that runs upward or is
// shorter than a row, or a source that overlaps the destination, which would
// have the exports write outside the buffers they were given: refused, and
// nothing in buf (where such calls would reach) changes.
TEST_P(PixelArithmetic, BadArgumentsPitchesAndOverlapsAreRefused) {
  const int w = 4, h = 4, row = w * 4;
  std::vector<uint8_t> buf(row * h * 6, kUntouched);
  const std::vector<uint8_t> before = buf;
  uint8_t* middle = buf.data() + row * h * 3;
  const std::vector<uint8_t> src = Flat32(w, h, {9, 9, 9});
  std::vector<uint8_t> scratch(w * h * 3 / 2);
  uint8_t* const sc = scratch.data();
  for (auto [width, height, s] : {std::tuple{1, 4, sc}, {4, 1, sc}, {4, 4, nullptr}})
    EXPECT_LT(ImageConvert_BGR32_to_NV12(middle, 4, src.data(), 16, width, height, s), 0);
  EXPECT_LT(ImageConvert_BGR32_to_I420(nullptr, 4, src.data(), 16, 4, 4), 0);
  EXPECT_LT(ImageConvert_I420_to_RGB32(middle, 16, src.data(), 4, 0, 4), 0);
  EXPECT_LT(ImageConvert_YUY2_to_BGR32(middle, 16, nullptr, 8, 4, 1), 0);
  EXPECT_LT(ImageCopy32(middle, 16, src.data(), 16, 4, 0), 0);
  EXPECT_LT(FillRect32(0, nullptr, 16, 4, 4), 0);
  EXPECT_LT(FlipRows24(nullptr, 4, 4), 0);
  EXPECT_EQ(CopyRect32(middle, -row, src.data(), row, w, h), E_INVALIDARG);
  EXPECT_EQ(CopyRect32(middle, row - 4, src.data(), row, w, h), E_INVALIDARG);
  EXPECT_EQ(CopyRect32(middle, row, middle - row, row, w, h), E_INVALIDARG);
  EXPECT_EQ(CopyRect32(middle, row, middle + 2 * row, row, w, h), E_INVALIDARG);
  EXPECT_EQ(ImageConvert_BGR32_to_NV12(middle, -w, src.data(), row, w, h, sc), E_INVALIDARG);
  EXPECT_EQ(ImageConvert_BGR32_to_NV12(middle, w - 2, src.data(), row, w, h, sc), E_INVALIDARG);
  EXPECT_EQ(ImageConvert_BGR32_to_NV12(middle, w, middle, -row, w, h, sc), E_INVALIDARG);
  // The source standing on the chroma rows below the luma.
  EXPECT_EQ(ImageConvert_BGR32_to_NV12(middle, w, middle + w * h, row, w, h, sc), E_INVALIDARG);
  EXPECT_EQ(buf, before);
}

INSTANTIATE_TEST_SUITE_P(Paths, PixelArithmetic, testing::ValuesIn(Levels()),
                         [](const testing::TestParamInfo<int32_t>& info) {
                           return "Level" + std::to_string(info.param);
                         });

struct Shape {
  int width, height, srcPitch, dstPitch;
};

using Size = std::function<size_t(const Shape&)>;
using Call = std::function<HRESULT(uint8_t* dst, const uint8_t* src, const Shape&)>;
using Routine = HRESULT (*)(BYTE*, int, const BYTE*, int, int, int);

struct Case {
  const char* name;
  int srcBytes, dstBytes;  // per pixel
  Size srcSize, dstSize;
  Call call;
};

Size Rows(int bytes, bool src) {
  return [=](const Shape& s) {
    return RowsSize(src ? s.srcPitch : s.dstPitch, s.height, s.width * bytes);
  };
}
Size I420(bool src) {
  return [=](const Shape& s) { return I420Size(src ? s.srcPitch : s.dstPitch, s.width, s.height); };
}
Size Nv12(bool src) {
  return [=](const Shape& s) { return Nv12Size(src ? s.srcPitch : s.dstPitch, s.width, s.height); };
}
Size Packed(int bytes) {
  return [=](const Shape& s) { return size_t(s.width) * s.height * bytes; };
}
Call Plain(Routine routine) {
  return [=](uint8_t* d, const uint8_t* p, const Shape& s) {
    return routine(d, s.dstPitch, p, s.srcPitch, s.width, s.height);
  };
}

const Case kCases[] = {
    {"BGR32_to_I420", 4, 1, Rows(4, true), I420(false), Plain(ImageConvert_BGR32_to_I420)},
    {"BGR32_to_NV12", 4, 1, Rows(4, true), Nv12(false),
     [](uint8_t* d, const uint8_t* p, const Shape& s) {
       std::vector<uint8_t> scratch(size_t(s.width) * s.height * 3 / 2 + 1);
       return ImageConvert_BGR32_to_NV12(d, s.dstPitch, p, s.srcPitch, s.width, s.height,
                                         scratch.data());
     }},
    {"I420_to_RGB32", 1, 4, I420(true), Rows(4, false), Plain(ImageConvert_I420_to_RGB32)},
    {"YV12_to_RGB32", 1, 4, I420(true), Rows(4, false), Plain(ImageConvert_YV12_to_RGB32)},
    {"NV12_to_BGR32", 1, 4, Nv12(true), Rows(4, false), Plain(ImageConvert_NV12_to_BGR32)},
    {"YUY2_to_BGR32", 2, 4, Rows(2, true), Rows(4, false), Plain(ImageConvert_YUY2_to_BGR32)},
    {"UYVY_to_BGR32", 2, 4, Rows(2, true), Rows(4, false), Plain(ImageConvert_UYVY_to_BGR32)},
    {"YVYU_to_BGR32", 2, 4, Rows(2, true), Rows(4, false), Plain(ImageConvert_YVYU_to_BGR32)},
    {"BGR24_to_BGR32", 3, 4, Rows(3, true), Rows(4, false), Plain(ImageConvert_BGR24_to_BGR32)},
    {"FillRect32", 4, 4, Rows(4, true), Rows(4, false),
     [](uint8_t* d, const uint8_t*, const Shape& s) {
       return FillRect32(0xA1B2C3D4u, d, s.dstPitch, s.width, s.height);
     }},
    {"FlipRows32", 4, 4, Packed(4), Packed(4),
     [](uint8_t* d, const uint8_t*, const Shape& s) { return FlipRows32(d, s.width, s.height); }},
    {"FlipRows24", 3, 3, Packed(3), Packed(3),
     [](uint8_t* d, const uint8_t*, const Shape& s) { return FlipRows24(d, s.width, s.height); }},
};

// Widths around the 16- and 32-pixel steps and their edges; the extra pitch
// bytes keep rows off any alignment.
std::vector<Shape> Shapes(const Case& c) {
  std::vector<Shape> shapes;
  std::mt19937 rng(7);
  for (int width : {1, 2, 3, 5, 6, 15, 16, 17, 18, 31, 32, 33, 34, 47, 63, 64, 65, 66, 97, 130}) {
    for (int height : {1, 2, 3, 4, 7, 8}) {
      const int srcExtra = int(rng() % 10), dstExtra = int(rng() % 10);
      shapes.push_back(
          {width, height, width * c.srcBytes + srcExtra, width * c.dstBytes + dstExtra});
    }
  }
  return shapes;
}

struct Outcome {
  HRESULT hr;
  std::vector<uint8_t> bytes;
};

// Buffers of exactly the sizes the routine may touch, so that the address
// sanitizer sees any access past the end.
Outcome RunAt(int32_t level, const Case& c, const Shape& s, const std::vector<uint8_t>& src,
              std::vector<uint8_t> dst) {
  AtLevel at(level);
  std::vector<uint8_t> in(src);
  const HRESULT hr = c.call(dst.data(), in.data(), s);
  EXPECT_EQ(in, src) << c.name << ": source changed";
  return {hr, std::move(dst)};
}

TEST(PixelPaths, VectorPathsMatchThePlainPath) {
  if (Levels().size() < 2) GTEST_SKIP() << "no vector path on this processor";
  uint32_t seed = 1;
  for (const Case& c : kCases) {
    for (const Shape& s : Shapes(c)) {
      const auto src = RandomBytes(c.srcSize(s), seed++);
      const auto dst = RandomBytes(c.dstSize(s), seed++);
      const Outcome plain = RunAt(0, c, s, src, dst);
      for (int32_t level : Levels()) {
        if (level == 0) continue;
        const Outcome other = RunAt(level, c, s, src, dst);
        EXPECT_EQ(other.hr, plain.hr) << c.name << " level " << level;
        if (other.bytes == plain.bytes) continue;
        size_t at = 0;
        while (other.bytes[at] == plain.bytes[at]) ++at;
        ADD_FAILURE() << c.name << " level " << level << " " << s.width << "x" << s.height
                      << " pitches " << s.srcPitch << "/" << s.dstPitch
                      << ": first difference at byte " << at;
      }
    }
  }
}

}  // namespace
