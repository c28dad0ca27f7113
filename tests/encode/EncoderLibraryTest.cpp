// The real Intel-slot library (libx264, libx265, mpeg2video) fed like a
// capture stream feeds it, its temp video checked with FFmpeg's own tools:
// the stream decodes in full, the index has one entry per picture with the
// true times, key frames where asked, and byte ranges that tile the stream.
#include <cairo.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "encode/VideoCodec.h"
#include "formats/FrameIndex.h"
#include "platform/Library.h"
#include "support/Engine.h"
#include "support/FrameIndexFile.h"
#include "support/Media.h"
#include "support/TestEnv.h"

namespace fs = std::filesystem;

namespace {

constexpr int64_t kSecond = 10000000;  // 100-ns units
constexpr int64_t kMillisecond = 10000;

CreateVideoCodecFn IntelCreator() {
  static void* library =
      dlopen((ov::HelperFolder() + "/libIntelCodec.so").c_str(), RTLD_NOW | RTLD_LOCAL);
  return library ? reinterpret_cast<CreateVideoCodecFn>(dlsym(library, "Intel_CreateVideoCodec"))
                 : nullptr;
}

// What the session hears from its encoder.
struct SessionProbe : public CWriterStatistics, public CFrameRateControl {
  void AddBytes(int64_t count) override { bytes += count; }
  void AddFrame() override { ++frames; }
  void ReportFrameTime(uint32_t) override { ++reports; }
  std::atomic<int64_t> bytes{0}, frames{0}, reports{0};
};

// A capture surface as the streams have it: rows of the region's width
// rounded up to 64, one spare row, the region at the top left, the rest
// black. The picture moves every time it is drawn.
struct SyntheticScreen {
  SyntheticScreen(int w, int h)
      : width(w),
        height(h),
        stride(((w + 63) & ~63) * 4),
        pixels(size_t(stride) * (((h + 63) & ~63) + 1)) {}
  uint8_t* At(int x, int y) { return pixels.data() + size_t(y) * stride + x * 4; }
  void Draw(int step) {
    const int boxX = (step * 13) % width, boxY = (step * 7) % height;
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const bool box = x >= boxX && x < boxX + width / 5 && y >= boxY && y < boxY + height / 5;
        uint8_t* p = At(x, y);
        p[0] = box ? 40 : uint8_t(x + step * 3);
        p[1] = box ? 200 : uint8_t(y * 2);
        p[2] = box ? 90 : uint8_t((x ^ y) + step);
      }
    }
  }
  int width, height, stride;
  std::vector<uint8_t> pixels;
};

const char* DemuxerOf(int codec) { return codec == 1 ? "h264" : codec == 2 ? "hevc" : "mpegvideo"; }
const char* ExtensionOf(int codec) { return codec == 1 ? ".h264" : codec == 2 ? ".h265" : ".mpg"; }

std::string Probe(int codec, const std::string& file, const std::string& entries) {
  return ovtest::Probe(
      file, std::string("-f ") + DemuxerOf(codec) + " -count_frames -show_entries " + entries);
}

std::string DecodeErrors(int codec, const std::string& file) {
  return ovtest::DecodeErrors(file, std::string("-f ") + DemuxerOf(codec));
}

class EncoderLibraryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(IntelCreator(), nullptr) << "libIntelCodec.so beside the test";
  }

  std::unique_ptr<CVideoCodec> Create(int codec) {
    return std::unique_ptr<CVideoCodec>(IntelCreator()(codec, &m_session, &m_session));
  }
  std::string PathFor(const std::string& name) const { return m_folder.Path() + "/" + name; }
  static std::wstring Wide(const std::string& path) { return fs::path(path).wstring(); }

  SessionProbe m_session;
  ovtest::ScratchFolder m_folder{"ovencode"};
};

class EncoderStreamTest : public EncoderLibraryTest, public ::testing::WithParamInterface<int> {};

// Fed like a capture stream feeds it: about 12.5 s at 10 frames a second with
// up to 2 ms of jitter, a run of the screen standing still every seven
// frames, key frames asked for every 5 s from the first frame on.
TEST_P(EncoderStreamTest, StreamDecodesInFullAndTheIndexDescribesIt) {
  const int codec = GetParam(), width = 641, height = 479;
  std::string file = PathFor(std::string("capture") + ExtensionOf(codec));
  auto encoder = Create(codec);
  ASSERT_NE(encoder, nullptr);
  ASSERT_EQ(encoder->Initialize(codec, width, height, 10, 3, Wide(file).c_str()), S_OK);

  SyntheticScreen screen(width, height);
  std::vector<int64_t> times;  // of the frames encoded, not skipped
  std::vector<bool> asked;     // for a key frame
  int64_t lastAsked = -100 * kSecond;
  for (int i = 0; i < 125; ++i) {
    const int64_t time = i == 0 ? 0 : (i * 100 + i % 3) * kMillisecond;
    const bool key = time - lastAsked >= 5 * kSecond, unchanged = i % 7 == 3 || i % 7 == 4;
    if (key) lastAsked = time;
    if (!unchanged) screen.Draw(i);
    EXPECT_EQ(encoder->WriteFrame(screen.pixels.data(), screen.stride, time, key, unchanged),
              unchanged && !key ? 1 : 0)
        << "frame " << i;
    if (!unchanged || key) times.push_back(time), asked.push_back(key);
  }
  encoder->Finish();

  ov::FrameIndexFile index = ovtest::ReadFrameIndex(file + ".idx");
  EXPECT_EQ(index.header.codecType, codec);
  EXPECT_EQ(index.header.width, 642u);
  EXPECT_EQ(index.header.height, 480u);
  ASSERT_EQ(index.entries.size(), times.size()) << "one entry per frame that was not skipped";

  // Asked for every 5 s, on the first frame at or after the mark.
  const int64_t keySpacing = ov::TimeToTicks(5 * kSecond + 102 * kMillisecond);
  const uint64_t streamSize = fs::file_size(file);
  uint64_t offset = 0;
  int64_t lastKey = 0;
  std::string keyFlags;
  for (size_t i = 0; i < times.size(); ++i) {
    const ov::FrameIndexEntry& e = index.entries[i];
    const bool key = e.pictureType == ov::kPictureKey;
    EXPECT_EQ(e.time, ov::TimeToTicks(times[i])) << i;
    EXPECT_EQ(e.offset, offset) << i;
    EXPECT_GT(e.size, 0u) << i;
    offset += e.size;
    EXPECT_TRUE(key || (!asked[i] && i > 0)) << i;
    EXPECT_LE(e.time - lastKey, keySpacing) << i;
    if (key) lastKey = e.time;
    keyFlags += key ? "1\n" : "0\n";
  }
  EXPECT_EQ(offset, streamSize) << "the entries tile the stream";
  EXPECT_EQ(m_session.bytes, static_cast<int64_t>(streamSize));
  EXPECT_EQ(m_session.frames, static_cast<int64_t>(times.size()));
  EXPECT_EQ(m_session.reports, static_cast<int64_t>(times.size() / 16));

  EXPECT_EQ(DecodeErrors(codec, file), "");
  EXPECT_EQ(Probe(codec, file, "stream=width,height,nb_read_frames"),
            "642\n480\n" + std::to_string(times.size()) + "\n");
  EXPECT_EQ(Probe(codec, file, "frame=key_frame"), keyFlags) << "the decoder's key frames";

  // Decoding can start at the last key frame: the stream repeats what a
  // decoder needs there.
  const size_t tailFrom = keyFlags.rfind("1\n") / 2;
  ASSERT_GT(tailFrom, 0u);
  std::string tail = PathFor(std::string("tail") + ExtensionOf(codec));
  ovtest::WriteFile(tail, ovtest::ReadFile(file).substr(index.entries[tailFrom].offset));
  EXPECT_EQ(DecodeErrors(codec, tail), "");
  EXPECT_EQ(Probe(codec, tail, "stream=nb_read_frames"),
            std::to_string(times.size() - tailFrom) + "\n");
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, EncoderStreamTest, ::testing::Values(1, 2, 3), [](const auto& info) {
      return std::string(info.param == 1 ? "H264" : info.param == 2 ? "H265" : "MPEG2");
    });

// Quadrants of saturated colours, decoded back to RGB by FFmpeg as any
// player would: the conversion matches what the stream announces, and the
// coded margin of an odd-sized region repeats its edge.
TEST_F(EncoderLibraryTest, ColoursSurviveTheRoundTrip) {
  constexpr int kWidth = 641, kHeight = 479;
  struct Colour {
    uint8_t r, g, b;
  };
  const Colour quadrants[4] = {{220, 30, 30}, {30, 200, 40}, {40, 50, 210}, {128, 128, 128}};
  auto quadrant = [](int x, int y) { return (x < kWidth / 2 ? 0 : 1) + (y < kHeight / 2 ? 0 : 2); };
  SyntheticScreen screen(kWidth, kHeight);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const Colour& c = quadrants[quadrant(x, y)];
      uint8_t* p = screen.At(x, y);
      p[0] = c.b, p[1] = c.g, p[2] = c.r;
    }
  }
  for (int codec = 1; codec <= 3; ++codec) {
    std::string file = PathFor(std::string("colours") + ExtensionOf(codec));
    auto encoder = Create(codec);
    ASSERT_EQ(encoder->Initialize(codec, kWidth, kHeight, 30, 6, Wide(file).c_str()), S_OK);
    encoder->WriteFrame(screen.pixels.data(), screen.stride, 0, 1, 0);
    encoder->Finish();

    std::string rgb = PathFor("colours.rgb");
    ovtest::RunCapture(std::string("ffmpeg -nostdin -v error -y -f ") + DemuxerOf(codec) + " -i '" +
                       file + "' -frames:v 1 -f rawvideo -pix_fmt rgb24 '" + rgb + "'");
    std::string decoded = ovtest::ReadFile(rgb);
    const int codedWidth = kWidth + 1, codedHeight = kHeight + 1;
    ASSERT_EQ(decoded.size(), static_cast<size_t>(codedWidth) * codedHeight * 3) << codec;
    for (auto [x, y] : {std::pair{80, 60}, {560, 60}, {80, 420}, {kWidth, 420}, {560, kHeight}}) {
      const Colour& c = quadrants[quadrant(std::min(x, kWidth - 1), std::min(y, kHeight - 1))];
      const auto* got =
          reinterpret_cast<const uint8_t*>(&decoded[(size_t(y) * codedWidth + x) * 3]);
      for (int channel = 0; channel < 3; ++channel)
        EXPECT_NEAR(got[channel], (&c.r)[channel], 8)
            << "codec " << codec << " at " << x << "," << y;
    }
  }
}

// A small square moved over a still screen, as a pointer or a clock changes
// it, with the area that changed named as a capture stream names it, onto
// the picture's bottom right corner, where the coded width ends in part of a
// block and the coded height repeats the last row: every decoded frame shows
// the square where it was drawn and the screen again where it was before.
TEST_F(EncoderLibraryTest, SmallChangesOnAStillScreenAllReachTheStream) {
  constexpr int kWidth = 641, kHeight = 479, kSide = 20, kCodedWidth = 642;
  const std::pair<int, int> spots[] = {{100, 100}, {112, 100}, {124, 108}, {136, 116},
                                       {148, 124}, {160, 132}, {400, 300}, {412, 300},
                                       {630, 470}, {618, 470}, {0, 0},     {12, 0}};
  SyntheticScreen screen(kWidth, kHeight);
  screen.Draw(0);
  const std::vector<uint8_t> still = screen.pixels;
  const std::string file = PathFor("changes.h264");
  auto encoder = Create(1);
  ASSERT_EQ(encoder->Initialize(1, kWidth, kHeight, 30, 6, Wide(file).c_str()), S_OK);
  encoder->WriteFrame(screen.pixels.data(), screen.stride, 0, 1, 0);
  for (size_t i = 0; i < std::size(spots); ++i) {
    screen.pixels = still;
    for (int y = spots[i].second; y < std::min(spots[i].second + kSide, kHeight); ++y)
      for (int x = spots[i].first; x < std::min(spots[i].first + kSide, kWidth); ++x)
        memset(screen.At(x, y), 255, 3);
    // What a capture stream names as changed: the box around both squares.
    const auto [x0, y0] = spots[i ? i - 1 : 0];
    const auto [x1, y1] = spots[i];
    encoder->SetChangedArea(std::min(x0, x1), std::min(y0, y1), std::max(x0, x1) + kSide,
                            std::max(y0, y1) + kSide);
    encoder->WriteFrame(screen.pixels.data(), screen.stride, (i + 1) * 33 * kMillisecond, 0, 0);
  }
  encoder->Finish();

  const std::string rgb = PathFor("changes.rgb");
  ovtest::RunCapture("ffmpeg -nostdin -v error -y -f h264 -i '" + file +
                     "' -f rawvideo -pix_fmt rgb24 '" + rgb + "'");
  const std::string decoded = ovtest::ReadFile(rgb);
  const size_t frameBytes = size_t(kCodedWidth) * (kHeight + 1) * 3;
  ASSERT_EQ(decoded.size(), frameBytes * (std::size(spots) + 1));
  auto near = [&](size_t frame, int x, int y, const uint8_t* bgr) {
    const auto* got = reinterpret_cast<const uint8_t*>(
        &decoded[frame * frameBytes + (size_t(y) * kCodedWidth + x) * 3]);
    return std::abs(got[0] - bgr[2]) < 12 && std::abs(got[1] - bgr[1]) < 12 &&
           std::abs(got[2] - bgr[0]) < 12;
  };
  const uint8_t white[3] = {255, 255, 255};
  auto inside = [&](size_t i, int x, int y) {
    return x >= spots[i].first && x < spots[i].first + kSide && y >= spots[i].second &&
           y < spots[i].second + kSide;
  };
  for (size_t i = 0; i < std::size(spots); ++i) {
    for (size_t j = 0; j <= i; ++j) {  // this square and every one before it
      for (int d : {1, kSide / 2, kSide - 2}) {
        const int x = std::min(spots[j].first + d, kWidth - 1),
                  y = std::min(spots[j].second + d, kHeight - 1);
        const bool square = j == i;
        if (square || !inside(i, x, y)) {
          EXPECT_TRUE(near(i + 1, x, y, square ? white : &still[size_t(y) * screen.stride + x * 4]))
              << "square " << j << (square ? " missing" : " left") << " at " << x << "," << y
              << " in frame " << i + 1;
        }
      }
    }
  }
}

// Colour bars above a band of text at 1080p, decoded to the stream's own
// YUV: each bar's Y, Cb and Cr as BT.709 video range puts them, and the same
// picture from every instruction set the conversion runs on.
TEST_F(EncoderLibraryTest, ColourBarsAndTextAreTheSameOnEveryKernelPath) {
  constexpr int kWidth = 1920, kHeight = 1080, kBar = kWidth / 8, kBars = 800;
  const uint32_t bars[8] = {0xFFFFFF, 0xFFFF00, 0x00FFFF, 0x00FF00,
                            0xFF00FF, 0xFF0000, 0x0000FF, 0x101010};
  SyntheticScreen screen(kWidth, kHeight);
  cairo_surface_t* surface = cairo_image_surface_create_for_data(
      screen.pixels.data(), CAIRO_FORMAT_RGB24, kWidth, kHeight, screen.stride);
  cairo_t* cr = cairo_create(surface);
  for (int i = 0; i < 8; ++i) {
    cairo_set_source_rgb(cr, (bars[i] >> 16) / 255.0, (bars[i] >> 8 & 255) / 255.0,
                         (bars[i] & 255) / 255.0);
    cairo_rectangle(cr, i * kBar, 0, kBar, kBars);
    cairo_fill(cr);
  }
  cairo_set_source_rgb(cr, 0.9, 0.1, 0.2);
  cairo_set_font_size(cr, 23);
  for (int line = 0; line < 10; ++line) {
    cairo_move_to(cr, 10, kBars + 26 * (line + 1));
    cairo_show_text(cr, "The quick brown fox jumps over the lazy dog 0123456789 {}[]()/|\\");
  }
  cairo_destroy(cr);
  cairo_surface_destroy(surface);

  std::string first;
  for (const char* level : {"0", "1", "7"}) {
    setenv("ORVANTA_CPU_LEVEL", level, 1);
    const std::string file = PathFor(std::string("bars") + level + ".h264");
    auto encoder = Create(1);
    ASSERT_EQ(encoder->Initialize(1, kWidth, kHeight, 30, 6, Wide(file).c_str()), S_OK);
    encoder->WriteFrame(screen.pixels.data(), screen.stride, 0, 1, 0);
    encoder->Finish();
    unsetenv("ORVANTA_CPU_LEVEL");
    const std::string yuv = PathFor("bars.yuv");
    ovtest::RunCapture("ffmpeg -nostdin -v error -y -f h264 -i '" + file +
                       "' -f rawvideo -pix_fmt yuv420p '" + yuv + "'");
    const std::string decoded = ovtest::ReadFile(yuv);
    ASSERT_EQ(decoded.size(), size_t(kWidth) * kHeight * 3 / 2) << level;
    if (first.empty()) first = decoded;
    EXPECT_TRUE(decoded == first) << "level " << level << " differs from level 0";
    auto at = [&](int plane, int x, int y) {
      const size_t offset = plane == 0 ? 0 : size_t(kWidth) * kHeight * (plane == 1 ? 4 : 5) / 4;
      return int(uint8_t(decoded[offset + size_t(y) * (plane ? kWidth / 2 : kWidth) + x]));
    };
    for (int i = 0; i < 8; ++i) {
      const double r = (bars[i] >> 16) / 255.0, g = (bars[i] >> 8 & 255) / 255.0,
                   b = (bars[i] & 255) / 255.0, luma = 0.2126 * r + 0.7152 * g + 0.0722 * b;
      const double want[3] = {16 + 219 * luma, 128 + 224 * (b - luma) / 1.8556,
                              128 + 224 * (r - luma) / 1.5748};
      for (int y = 8; y < kBars - 8; y += 7) {
        for (int x = i * kBar + 8; x < (i + 1) * kBar - 8; x += 5) {
          ASSERT_NEAR(at(0, x, y), want[0], 3) << "bar " << i << " Y at " << x << "," << y;
          ASSERT_NEAR(at(1, x / 2, y / 2), want[1], 3) << "bar " << i << " Cb";
          ASSERT_NEAR(at(2, x / 2, y / 2), want[2], 3) << "bar " << i << " Cr";
        }
      }
    }
  }
}

// A region of one pixel in every codec, an encoder with no frame, and one
// destroyed without Finish: each leaves a stream and an index that agree.
TEST_F(EncoderLibraryTest, TinyEmptyAndAbandonedStreamsAreComplete) {
  auto encode = [this](int codec, int size, int frames, const std::string& file) {
    auto encoder = Create(codec);
    EXPECT_EQ(encoder->Initialize(codec, size, size, 30, 3, Wide(file).c_str()), S_OK) << codec;
    SyntheticScreen screen(size, size);
    for (int i = 0; i < frames; ++i) {
      screen.Draw(i);
      encoder->WriteFrame(screen.pixels.data(), screen.stride, i * 33 * kMillisecond, i == 0, 0);
    }
    return encoder;
  };
  for (int codec = 1; codec <= 3; ++codec) {
    std::string file = PathFor(std::string("tiny") + ExtensionOf(codec));
    encode(codec, 1, 3, file)->Finish();
    ov::FrameIndexFile index = ovtest::ReadFrameIndex(file + ".idx");
    EXPECT_EQ(index.entries.size(), 3u) << codec;
    EXPECT_EQ(index.header.width, codec == 2 ? 16u : 2u);
    EXPECT_EQ(Probe(codec, file, "stream=nb_read_frames"), "3\n") << codec;
  }
  const std::string empty = PathFor("empty.h264");
  encode(1, 640, 0, empty)->Finish();
  EXPECT_EQ(ovtest::ReadFrameIndex(empty + ".idx").fileBytes, sizeof(ov::FrameIndexHeader));
  EXPECT_EQ(fs::file_size(empty), 0u);

  const std::string abandoned = PathFor("abandoned.h265");
  encode(2, 320, 10, abandoned).reset();
  EXPECT_EQ(ovtest::ReadFrameIndex(abandoned + ".idx").entries.size(), 10u);
  EXPECT_EQ(DecodeErrors(2, abandoned), "");
}

TEST_F(EncoderLibraryTest, RefusedEncodersAreSafeToUseAndMakeNoFile) {
  for (int codec : {0, 4, 5, -1}) EXPECT_EQ(Create(codec), nullptr) << codec;
  SyntheticScreen screen(64, 64);
  const struct {
    int codec, width, height;
    std::string file;
    HRESULT hr;
  } cases[] = {
      {1, 64, 64, PathFor("no/such/folder/capture.h264"), E_FAIL},
      {1, 0, 64, PathFor("a.h264"), E_INVALIDARG},
      {1, 64, 100000, PathFor("b.h264"), E_INVALIDARG},
      {5, 64, 64, PathFor("c.h264"), E_INVALIDARG},
  };
  for (const auto& c : cases) {
    auto encoder = Create(1);
    EXPECT_EQ(encoder->Initialize(c.codec, c.width, c.height, 30, 3, Wide(c.file).c_str()), c.hr);
    EXPECT_EQ(encoder->WriteFrame(screen.pixels.data(), screen.stride, 0, 1, 0), 0);
    encoder->Finish();
    EXPECT_FALSE(fs::exists(c.file));
  }
  EXPECT_EQ(m_session.bytes, 0);
}

}  // namespace
