// A picture saved in each still format decodes, with that format's own
// library, to its size and pixels (exact but for JPEG); the clipboard hands
// another program the very PNG we offered.
#include <gif_lib.h>
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "overlay/ImageFiles.h"
#include "platform/Clipboard.h"
#include "platform/Text.h"
#include "support/TestEnv.h"

namespace {

constexpr int kW = 97, kH = 61, kPitch = 104 * 4;  // odd sizes, rows with a gap

// Six blocks of colour, 0xRRGGBB.
uint32_t Scene(int x, int y) {
  static const uint32_t colours[6] = {0xFF0000, 0x00FF00, 0x0000FF, 0xFFFF00, 0x00FFFF, 0x404040};
  return colours[(x * 3 / kW) + 3 * (y * 2 / kH)];
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

TEST(StillFiles, EveryFormatDecodesToThePictureAndTheClipboardServesThePng) {
  std::vector<uint32_t> pixels(kPitch / 4 * kH, 0x12345678);
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) pixels[y * kPitch / 4 + x] = Scene(x, y) | 0xFF000000u;
  const ov::StillPicture picture{reinterpret_cast<const uint8_t*>(pixels.data()), kW, kH, kPitch};
  ovtest::ScratchFolder folder{"ovstill"};
  for (int encoder = 0; encoder < ov::kEncoderCount; ++encoder) {
    const std::string path = folder.Path() + "/shot" + std::to_string(encoder);
    ASSERT_EQ(ov::SaveImageFile(encoder, picture, ov::FromUtf8(path).c_str()), S_OK) << encoder;
    int w = 0, h = 0;
    const std::vector<uint32_t> rgb = Decode(encoder, path, &w, &h);
    ASSERT_EQ(w, kW) << encoder;
    ASSERT_EQ(h, kH) << encoder;
    for (int y = 0; y < kH; ++y)
      for (int x = 0; x < kW; ++x) {
        const uint32_t got = rgb[y * kW + x], want = Scene(x, y);
        if (encoder != ov::kEncoderJpeg) {
          ASSERT_EQ(got, want) << encoder << " at " << x << "," << y;
        } else if (x % 32 == 16 && y % 30 == 15) {  // block centres, away from the edges
          for (int shift = 0; shift < 24; shift += 8)
            EXPECT_NEAR(int(got >> shift & 0xFF), int(want >> shift & 0xFF), 8) << x << "," << y;
        }
      }
  }
  EXPECT_EQ(ov::SaveImageFile(5, picture, L"/tmp/x.png"), E_INVALIDARG);

  std::vector<uint8_t> png;
  ASSERT_TRUE(ov::EncodeImage(ov::kEncoderPng, picture, &png));
  auto offer = ov::OfferClipboard({{"image/png", png}});
  ASSERT_NE(offer, nullptr);
  EXPECT_EQ(ovtest::RunCapture("xclip -o -selection clipboard -t image/png"),
            std::string(png.begin(), png.end()));
  EXPECT_NE(ovtest::RunCapture("xclip -o -selection clipboard -t TARGETS").find("image/png"),
            std::string::npos);
  EXPECT_TRUE(offer->Owned());
}

}  // namespace
