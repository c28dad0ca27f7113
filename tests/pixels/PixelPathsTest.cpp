// Every vector path must give the plain path's bytes, on odd sizes and odd
// pitches, and must not write outside the rectangle: the destination starts
// out random and is compared whole, padding included.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "PixelTestSupport.h"
#include "pixels/Pixels.h"

namespace {

using pixtest::RandomBytes;
using pixtest::RowsSize;

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
  return [=](const Shape& s) {
    return pixtest::I420Size(src ? s.srcPitch : s.dstPitch, s.width, s.height);
  };
}
Size Nv12(bool src) {
  return [=](const Shape& s) {
    return pixtest::Nv12Size(src ? s.srcPitch : s.dstPitch, s.width, s.height);
  };
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
  pixtest::AtLevel at(level);
  std::vector<uint8_t> in(src);
  const HRESULT hr = c.call(dst.data(), in.data(), s);
  EXPECT_EQ(in, src) << c.name << ": source changed";
  return {hr, std::move(dst)};
}

TEST(PixelPaths, VectorPathsMatchThePlainPath) {
  if (pixtest::Levels().size() < 2) GTEST_SKIP() << "no vector path on this processor";
  uint32_t seed = 1;
  for (const Case& c : kCases) {
    for (const Shape& s : Shapes(c)) {
      const auto src = RandomBytes(c.srcSize(s), seed++);
      const auto dst = RandomBytes(c.dstSize(s), seed++);
      const Outcome plain = RunAt(0, c, s, src, dst);
      for (int32_t level : pixtest::Levels()) {
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
