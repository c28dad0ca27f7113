// An annotated screenshot of a known scene, a drag selecting it under XTest
// and a rectangle, a text and a blurred box drawn on it, saved in each still
// format: each decodes, with that format's own library, to the selection's
// size with the shapes at their places and the scene's pixels everywhere
// else (exactly, but for JPEG: GIF keeps a picture's dominant colours);
// the clipboard hands another program the very PNG that was saved.
#include <gif_lib.h>
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <mutex>
#include <thread>

#include "orvanta/imagecapture.h"
#include "overlay/ImageFiles.h"
#include "platform/Text.h"
#include "support/Scene.h"
#include "support/TestEnv.h"

namespace {

// Blocks of 16 pixels in twelve colours, each unlike its neighbours.
uint32_t Scene(int x, int y) {
  const uint32_t i = (x / 16 + y / 16 * 5) % 12 + 1;
  return (i * 53 % 256) << 16 | (i * 97 % 256) << 8 | (i * 29 % 256);
}

struct Host : CImageCaptureCallback {
  void OnUndoState(BOOL, BOOL) override {}
  void OnNumberChanged(int) override {}
  void OnCancelled() override {
    Note([&] { cancelled = true; });
  }
  void OnClosed() override {}
  void OnSelected(const RECT* rc) override {
    Note([&] { selected = *rc; });
  }
  void OnAdjustBegin() override {
    Note([&] { ++begun; });
  }
  void OnAdjusting(const RECT* rc) override {
    Note([&] { selected = *rc; });
  }
  void OnAdjustEnd() override {
    Note([&] { ++ended; });
  }
  template <class F>
  void Note(F f) {
    std::lock_guard<std::mutex> lock(mutex);
    f();
    done.notify_all();
  }
  template <class F>
  bool WaitFor(F condition) {
    std::unique_lock<std::mutex> lock(mutex);
    return done.wait_for(lock, std::chrono::seconds(20), condition);
  }
  std::mutex mutex;
  std::condition_variable done;
  RECT selected{};
  bool cancelled = false;
  int begun = 0, ended = 0;
};

// The shapes' count once the capture has taken the events sent so far.
bool WaitForShapes(CImageCaptureObject* capture, int count) {
  for (int i = 0; i < 200 && capture->GetShapeCount() < count; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  return capture->GetShapeCount() == count;
}

std::vector<uint32_t> Decode(int encoder, const std::string& path, int* w, int* h) {
  std::vector<uint32_t> rgb;
  auto put = [&](uint8_t r, uint8_t g, uint8_t b) { rgb.push_back(r << 16 | g << 8 | b); };
  if (encoder == ov::kEncoderPng) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return rgb;
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> bytes(PNG_IMAGE_SIZE(image));
    png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr);
    *w = image.width, *h = image.height;
    for (size_t i = 0; i < bytes.size(); i += 3) put(bytes[i], bytes[i + 1], bytes[i + 2]);
  } else if (encoder == ov::kEncoderJpeg) {
    FILE* f = std::fopen(path.c_str(), "rb");
    jpeg_decompress_struct c{};
    jpeg_error_mgr errors{};
    c.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&c);
    jpeg_stdio_src(&c, f);
    jpeg_read_header(&c, TRUE);
    jpeg_start_decompress(&c);
    *w = c.output_width, *h = c.output_height;
    std::vector<uint8_t> row(c.output_width * 3);
    while (c.output_scanline < c.output_height) {
      JSAMPROW rows[1] = {row.data()};
      jpeg_read_scanlines(&c, rows, 1);
      for (size_t i = 0; i < row.size(); i += 3) put(row[i], row[i + 1], row[i + 2]);
    }
    jpeg_finish_decompress(&c);
    jpeg_destroy_decompress(&c);
    std::fclose(f);
  } else if (encoder == ov::kEncoderBmp) {
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> d{std::istreambuf_iterator<char>(in), {}};
    auto at = [&](size_t i) { return d[i] | d[i + 1] << 8 | d[i + 2] << 16 | d[i + 3] << 24; };
    *w = at(18), *h = at(22);
    const size_t row = (*w * 3 + 3) & ~3;
    for (int y = *h - 1; y >= 0; --y)
      for (int x = 0; x < *w; ++x) {
        const uint8_t* p = &d[at(10) + y * row + x * 3];
        put(p[2], p[1], p[0]);
      }
  } else if (encoder == ov::kEncoderGif) {
    GifFileType* gif = DGifOpenFileName(path.c_str(), nullptr);
    if (!gif || DGifSlurp(gif) != GIF_OK) return rgb;
    *w = gif->SWidth, *h = gif->SHeight;
    const ColorMapObject* map = gif->SColorMap;
    for (int i = 0; i < *w * *h; ++i) {
      const GifColorType& c = map->Colors[gif->SavedImages[0].RasterBits[i]];
      put(c.Red, c.Green, c.Blue);
    }
    DGifCloseFile(gif, nullptr);
  } else {
    TIFF* tiff = TIFFOpen(path.c_str(), "r");
    uint32_t tw = 0, th = 0;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &tw);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &th);
    std::vector<uint32_t> abgr(tw * th);
    TIFFReadRGBAImageOriented(tiff, tw, th, abgr.data(), ORIENTATION_TOPLEFT, 0);
    TIFFClose(tiff);
    *w = tw, *h = th;
    for (uint32_t p : abgr) put(TIFFGetR(p), TIFFGetG(p), TIFFGetB(p));
  }
  return rgb;
}

TEST(StillCapture, AnnotatedSelectionInEveryFormatAndOnTheClipboard) {
  ovtest::Scene scene;
  ASSERT_TRUE(scene.Ok());
  for (int y = 0; y < 480; y += 16)
    for (int x = 0; x < 640; x += 16) scene.Fill(x, y, 16, 16, Scene(x, y));
  scene.Sync();
  Host host;
  CImageCaptureObject* capture = CreateImageCapture(&host, 0);
  ASSERT_NE(capture, nullptr);
  ovtest::RunCapture(
      "xdotool mousemove 101 81 mousedown 1 mousemove 200 150 mousemove 400 300 "
      "mouseup 1");
  ASSERT_TRUE(host.WaitFor([&] { return host.selected.right == 400; }));
  const RECT sel = host.selected;
  EXPECT_EQ(sel.left, 101);
  EXPECT_EQ(sel.top, 81);
  EXPECT_EQ(sel.bottom, 300);
  const int kW = 299, kH = 219;

  capture->Start(1, 8, 0xFF0000, 0, nullptr, 0);
  ovtest::RunCapture(
      "xdotool mousemove 150 120 mousedown 1 mousemove 200 160 mousemove 250 200 "
      "mouseup 1");
  ASSERT_TRUE(WaitForShapes(capture, 1));
  capture->Start(8, 28, 0x00FF00, 0, L"Sans", 1);
  // Escape ends the text; while editing it cancels nothing.
  ovtest::RunCapture("xdotool mousemove 120 240 click 1 sleep 0.2 type HI");
  ovtest::RunCapture("xdotool key Escape");
  ASSERT_TRUE(WaitForShapes(capture, 2));
  capture->Start(12, 0, 0, 0, nullptr, 0);
  ovtest::RunCapture(
      "xdotool mousemove 300 120 mousedown 1 mousemove 340 160 mousemove 380 200 "
      "mouseup 1");
  ASSERT_TRUE(WaitForShapes(capture, 3));
  // A box of the frozen picture over part of the blur restores it there.
  capture->Start(10, 0, 0, 0, nullptr, 0);
  ovtest::RunCapture(
      "xdotool mousemove 330 130 mousedown 1 mousemove 350 160 mousemove 370 190 "
      "mouseup 1");
  ASSERT_TRUE(WaitForShapes(capture, 4));
  capture->Stop();

  // Where each shape lies on the screen, with a margin.
  const RECT rect{144, 114, 256, 206}, text{118, 238, 260, 300}, blur{298, 118, 382, 202},
      restored{330, 130, 370, 190};
  auto in = [](const RECT& r, int x, int y) {
    return x >= r.left && x < r.right && y >= r.top && y < r.bottom;
  };
  ovtest::ScratchFolder folder{"ovstill"};
  for (int encoder = 0; encoder < ov::kEncoderCount; ++encoder) {
    const std::string path = folder.Path() + "/shot" + std::to_string(encoder);
    ASSERT_EQ(capture->SaveToFile(encoder, ov::FromUtf8(path).c_str()), S_OK) << encoder;
    int w = 0, h = 0;
    const std::vector<uint32_t> rgb = Decode(encoder, path, &w, &h);
    ASSERT_EQ(w, kW) << encoder;
    ASSERT_EQ(h, kH) << encoder;
    const bool exact = encoder != ov::kEncoderJpeg;
    auto near = [&](uint32_t got, uint32_t want) {
      for (int shift = 0; shift < 24; shift += 8)
        if (std::abs(int(got >> shift & 0xFF) - int(want >> shift & 0xFF)) > (exact ? 0 : 24))
          return false;
      return true;
    };
    auto at = [&](int x, int y) { return rgb[(y - sel.top) * kW + (x - sel.left)]; };
    EXPECT_TRUE(near(at(150, 160), 0xFF0000)) << encoder << ": the rectangle's left side";
    EXPECT_TRUE(near(at(200, 168), Scene(200, 168))) << encoder << ": inside the rectangle";
    int green = 0, blurred = 0;
    for (int y = sel.top; y < sel.bottom; ++y)
      for (int x = sel.left; x < sel.right; ++x) {
        const uint32_t got = at(x, y);
        if (in(text, x, y)) {
          green += near(got, 0x00FF00);
        } else if (in(blur, x, y) && !in(restored, x, y)) {
          blurred += !near(got, Scene(x, y));
        } else if (!in(rect, x, y) && (exact || (x % 16 == 8 && y % 16 == 8))) {
          ASSERT_TRUE(near(got, Scene(x, y))) << encoder << " at " << x << "," << y;
        }
      }
    EXPECT_GT(green, 100) << encoder;
    EXPECT_GT(blurred, 84 * 84 / 3) << encoder;
  }
  EXPECT_EQ(capture->SaveToFile(5, L"/tmp/x.png"), E_INVALIDARG);

  capture->CopyToClipboard();
  EXPECT_TRUE(ovtest::RunCapture("xclip -o -selection clipboard -t image/png") ==
              ovtest::ReadFile(folder.Path() + "/shot0"));

  // The blur box follows the level.
  const std::string sharper = folder.Path() + "/sharper.png";
  capture->SetBlurLevel(1);
  ASSERT_EQ(capture->SaveToFile(ov::kEncoderPng, ov::FromUtf8(sharper).c_str()), S_OK);
  int w = 0, h = 0;
  const std::vector<uint32_t> before = Decode(ov::kEncoderPng, folder.Path() + "/shot0", &w, &h),
                              after = Decode(ov::kEncoderPng, sharper, &w, &h);
  const size_t inBlur = (160 - sel.top) * kW + (320 - sel.left);  // a block's corner
  EXPECT_NE(before[inBlur], after[inBlur]);
  EXPECT_EQ(before[0], after[0]);

  capture->Release();
}

// Escape before the selection cancels, and once it stands does nothing; an
// edge dragged past the opposite one stops 8 pixels from it; a moved
// selection stops at the surface's edge.
TEST(StillCapture, AdjustingByHandles) {
  Host first;
  ASSERT_NE(CreateImageCapture(&first, 0), nullptr);
  ovtest::RunCapture("xdotool key Escape");
  ASSERT_TRUE(first.WaitFor([&] { return first.cancelled; }));

  Host host;
  CImageCaptureObject* capture = CreateImageCapture(&host, 0);
  ASSERT_NE(capture, nullptr);
  ovtest::RunCapture(
      "xdotool mousemove 100 100 mousedown 1 mousemove 200 150 mousemove 300 200 "
      "mouseup 1 key Escape");
  ASSERT_TRUE(host.WaitFor([&] { return host.selected.right == 300; }));
  ovtest::RunCapture(
      "xdotool mousemove 200 130 mousedown 1 mousemove 100 130 mousemove 50 130 "
      "mouseup 1");
  ASSERT_TRUE(host.WaitFor([&] { return host.ended == 1; }));
  EXPECT_EQ(host.selected.left, 0);
  EXPECT_EQ(host.selected.right, 200);
  ovtest::RunCapture(
      "xdotool mousemove 199 150 mousedown 1 mousemove 100 150 mousemove 20 150 "
      "mousemove 5 150 mouseup 1");
  ASSERT_TRUE(host.WaitFor([&] { return host.ended == 2; }));
  EXPECT_EQ(host.begun, 2);
  EXPECT_EQ(host.selected.left, 0);
  EXPECT_EQ(host.selected.right, 8);
  EXPECT_EQ(host.selected.top, 100);
  EXPECT_EQ(host.selected.bottom, 200);
  EXPECT_FALSE(host.cancelled);

  ovtest::ScratchFolder folder{"ovstill"};
  const std::string path = folder.Path() + "/narrow.png";
  ASSERT_EQ(capture->SaveToFile(ov::kEncoderPng, ov::FromUtf8(path).c_str()), S_OK);
  int w = 0, h = 0;
  Decode(ov::kEncoderPng, path, &w, &h);
  EXPECT_EQ(w, 8);
  EXPECT_EQ(h, 100);
  capture->Release();
}

}  // namespace
