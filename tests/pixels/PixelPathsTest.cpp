// Every vector path must give the plain path's bytes, on odd sizes and odd
// pitches, and must not write outside the rectangle: the destination starts
// out random and is compared whole, padding included.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "PixelTestSupport.h"
#include "pixels/Pixels.h"

namespace {

using pixtest::AtLevel;
using pixtest::RandomBytes;

struct Shape {
  int width;
  int height;
  int srcPitch;
  int dstPitch;
};

// Widths around the 16- and 32-pixel steps and their edges; the extra pitch
// bytes keep rows off any alignment.
std::vector<Shape> Shapes(int srcBytesPerPixel, int dstBytesPerPixel) {
  std::vector<Shape> shapes;
  std::mt19937 rng(7);
  for (int width : {1, 2, 3, 5, 6, 15, 16, 17, 18, 31, 32, 33, 34, 47, 63, 64, 65, 66, 97, 130}) {
    for (int height : {1, 2, 3, 4, 7, 8}) {
      const int srcExtra = static_cast<int>(rng() % 10);
      const int dstExtra = static_cast<int>(rng() % 10);
      shapes.push_back({width, height, width * srcBytesPerPixel + srcExtra,
                        width * dstBytesPerPixel + dstExtra});
    }
  }
  return shapes;
}

struct Outcome {
  HRESULT hr;
  std::vector<uint8_t> bytes;
};

// One call of a routine on fresh copies of src and dst, at one level.
using Call = std::function<HRESULT(uint8_t* dst, const uint8_t* src)>;

Outcome RunAt(int32_t level, const Call& call, const std::vector<uint8_t>& src,
              std::vector<uint8_t> dst) {
  AtLevel at(level);
  // Copies of exactly the original sizes, so reads past the end are caught.
  std::vector<uint8_t> in(src);
  const HRESULT hr = call(dst.data(), in.data());
  EXPECT_EQ(in, src) << "source changed";
  return {hr, std::move(dst)};
}

void ExpectPathsAgree(const char* name, const Call& call, const std::vector<uint8_t>& src,
                      const std::vector<uint8_t>& dst, const Shape& s) {
  const Outcome plain = RunAt(0, call, src, dst);
  for (int32_t level : pixtest::Levels()) {
    if (level == 0) continue;
    const Outcome other = RunAt(level, call, src, dst);
    EXPECT_EQ(other.hr, plain.hr) << name << " level " << level;
    if (other.bytes != plain.bytes) {
      size_t at = 0;
      while (other.bytes[at] == plain.bytes[at]) ++at;
      ADD_FAILURE() << name << " level " << level << " " << s.width << "x" << s.height
                    << " pitches " << s.srcPitch << "/" << s.dstPitch
                    << ": first difference at byte " << at << " (" << int(other.bytes[at])
                    << " vs plain " << int(plain.bytes[at]) << ")";
    }
  }
}

class PixelPaths : public testing::Test {
 protected:
  void SetUp() override {
    if (pixtest::Levels().size() < 2) GTEST_SKIP() << "no vector path on this processor";
  }
};

TEST_F(PixelPaths, Bgr32ToPlanarYuvMatchesPlain) {
  uint32_t seed = 1;
  for (const Shape& s : Shapes(4, 1)) {
    const auto src = RandomBytes(pixtest::RowsSize(s.srcPitch, s.height, s.width * 4), seed++);
    const auto i420 = RandomBytes(pixtest::I420Size(s.dstPitch, s.width, s.height), seed++);
    ExpectPathsAgree(
        "BGR32_to_I420",
        [&](uint8_t* d, const uint8_t* p) {
          return ImageConvert_BGR32_to_I420(d, s.dstPitch, p, s.srcPitch, s.width, s.height);
        },
        src, i420, s);
    const auto nv12 = RandomBytes(pixtest::Nv12Size(s.dstPitch, s.width, s.height), seed++);
    std::vector<uint8_t> scratch(size_t(s.width) * s.height * 3 / 2 + 1);
    ExpectPathsAgree(
        "BGR32_to_NV12",
        [&](uint8_t* d, const uint8_t* p) {
          return ImageConvert_BGR32_to_NV12(d, s.dstPitch, p, s.srcPitch, s.width, s.height,
                                            scratch.data());
        },
        src, nv12, s);
  }
}

TEST_F(PixelPaths, PlanarYuvToRgbMatchesPlain) {
  uint32_t seed = 1000;
  for (const Shape& s : Shapes(1, 4)) {
    const auto i420 = RandomBytes(pixtest::I420Size(s.srcPitch, s.width, s.height), seed++);
    const auto nv12 = RandomBytes(pixtest::Nv12Size(s.srcPitch, s.width, s.height), seed++);
    const auto dst = RandomBytes(pixtest::RowsSize(s.dstPitch, s.height, s.width * 4), seed++);
    ExpectPathsAgree(
        "I420_to_RGB32",
        [&](uint8_t* d, const uint8_t* p) {
          return ImageConvert_I420_to_RGB32(d, s.dstPitch, p, s.srcPitch, s.width, s.height);
        },
        i420, dst, s);
    ExpectPathsAgree(
        "YV12_to_RGB32",
        [&](uint8_t* d, const uint8_t* p) {
          return ImageConvert_YV12_to_RGB32(d, s.dstPitch, p, s.srcPitch, s.width, s.height);
        },
        i420, dst, s);
    ExpectPathsAgree(
        "NV12_to_BGR32",
        [&](uint8_t* d, const uint8_t* p) {
          return ImageConvert_NV12_to_BGR32(d, s.dstPitch, p, s.srcPitch, s.width, s.height);
        },
        nv12, dst, s);
  }
}

TEST_F(PixelPaths, PackedYuvToBgrMatchesPlain) {
  using Routine = HRESULT (*)(BYTE*, int, const BYTE*, int, int, int);
  const std::pair<const char*, Routine> routines[] = {
      {"YUY2_to_BGR32", ImageConvert_YUY2_to_BGR32},
      {"UYVY_to_BGR32", ImageConvert_UYVY_to_BGR32},
      {"YVYU_to_BGR32", ImageConvert_YVYU_to_BGR32},
  };
  uint32_t seed = 2000;
  for (const Shape& s : Shapes(2, 4)) {
    const auto src = RandomBytes(pixtest::RowsSize(s.srcPitch, s.height, s.width * 2), seed++);
    const auto dst = RandomBytes(pixtest::RowsSize(s.dstPitch, s.height, s.width * 4), seed++);
    for (const auto& [name, routine] : routines) {
      ExpectPathsAgree(
          name,
          [&, routine = routine](uint8_t* d, const uint8_t* p) {
            return routine(d, s.dstPitch, p, s.srcPitch, s.width, s.height);
          },
          src, dst, s);
    }
  }
}

TEST_F(PixelPaths, Bgr24CopyAndFillMatchPlain) {
  uint32_t seed = 3000;
  for (const Shape& s : Shapes(3, 4)) {
    const auto bgr24 = RandomBytes(pixtest::RowsSize(s.srcPitch, s.height, s.width * 3), seed++);
    const auto dst = RandomBytes(pixtest::RowsSize(s.dstPitch, s.height, s.width * 4), seed++);
    ExpectPathsAgree(
        "BGR24_to_BGR32",
        [&](uint8_t* d, const uint8_t* p) {
          return ImageConvert_BGR24_to_BGR32(d, s.dstPitch, p, s.srcPitch, s.width, s.height);
        },
        bgr24, dst, s);
    ExpectPathsAgree(
        "FillRect32",
        [&](uint8_t* d, const uint8_t*) {
          return FillRect32(0xA1B2C3D4u, d, s.dstPitch, s.width, s.height);
        },
        bgr24, dst, s);
  }
}

TEST_F(PixelPaths, FlipsMatchPlain) {
  uint32_t seed = 4000;
  for (const Shape& s : Shapes(4, 4)) {
    const auto image32 = RandomBytes(size_t(s.width) * s.height * 4, seed++);
    ExpectPathsAgree(
        "FlipRows32", [&](uint8_t* d, const uint8_t*) { return FlipRows32(d, s.width, s.height); },
        image32, image32, s);
    const auto image24 = RandomBytes(size_t(s.width) * s.height * 3, seed++);
    ExpectPathsAgree(
        "FlipRows24", [&](uint8_t* d, const uint8_t*) { return FlipRows24(d, s.width, s.height); },
        image24, image24, s);
  }
}

}  // namespace
