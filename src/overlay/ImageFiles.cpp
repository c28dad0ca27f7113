#include "overlay/ImageFiles.h"

#include <fcntl.h>
#include <gif_lib.h>
#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_map>

#include "core/Log.h"
#include "platform/Files.h"

namespace ov {

namespace {

void RgbRow(const StillPicture& p, int32_t y, uint8_t* rgb) {
  const uint8_t* src = p.pixels + static_cast<ptrdiff_t>(y) * p.pitch;
  for (int32_t x = 0; x < p.width; ++x) {
    rgb[3 * x] = src[4 * x + 2];
    rgb[3 * x + 1] = src[4 * x + 1];
    rgb[3 * x + 2] = src[4 * x];
  }
}

bool EncodePng(const StillPicture& p, std::vector<uint8_t>* out) {
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    return false;
  }
  std::vector<uint8_t> row(static_cast<size_t>(p.width) * 3);
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_set_write_fn(
      png, out,
      [](png_structp s, png_bytep data, png_size_t size) {
        auto* v = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(s));
        v->insert(v->end(), data, data + size);
      },
      nullptr);
  png_set_IHDR(png, info, static_cast<png_uint_32>(p.width), static_cast<png_uint_32>(p.height), 8,
               PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int32_t y = 0; y < p.height; ++y) {
    RgbRow(p, y, row.data());
    png_write_row(png, row.data());
  }
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return true;
}

bool EncodeJpeg(const StillPicture& p, std::vector<uint8_t>* out) {
  jpeg_compress_struct c{};
  jpeg_error_mgr errors{};
  c.err = jpeg_std_error(&errors);
  // The library ends the process on an error unless told otherwise; sizes
  // are checked before, so what is left is out of memory.
  errors.error_exit = [](j_common_ptr) { std::abort(); };
  jpeg_create_compress(&c);
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&c, &buffer, &size);
  c.image_width = static_cast<JDIMENSION>(p.width);
  c.image_height = static_cast<JDIMENSION>(p.height);
  c.input_components = 3;
  c.in_color_space = JCS_RGB;
  jpeg_set_defaults(&c);
  jpeg_set_quality(&c, 90, TRUE);
  jpeg_start_compress(&c, TRUE);
  std::vector<uint8_t> row(static_cast<size_t>(p.width) * 3);
  for (int32_t y = 0; y < p.height; ++y) {
    RgbRow(p, y, row.data());
    JSAMPROW rows[1] = {row.data()};
    jpeg_write_scanlines(&c, rows, 1);
  }
  jpeg_finish_compress(&c);
  out->assign(buffer, buffer + size);
  jpeg_destroy_compress(&c);
  std::free(buffer);
  return true;
}

void Put16(std::vector<uint8_t>* v, uint32_t x) {
  v->push_back(x & 0xFF);
  v->push_back((x >> 8) & 0xFF);
}
void Put32(std::vector<uint8_t>* v, uint32_t x) {
  Put16(v, x & 0xFFFF);
  Put16(v, x >> 16);
}

// 24-bit rows, bottom first, each padded to four bytes.
bool EncodeBmp(const StillPicture& p, std::vector<uint8_t>* out) {
  const uint32_t rowBytes = (static_cast<uint32_t>(p.width) * 3 + 3) & ~3u;
  const uint32_t imageBytes = rowBytes * static_cast<uint32_t>(p.height);
  out->reserve(54 + imageBytes);
  out->push_back('B');
  out->push_back('M');
  Put32(out, 54 + imageBytes);
  Put32(out, 0);
  Put32(out, 54);
  Put32(out, 40);
  Put32(out, static_cast<uint32_t>(p.width));
  Put32(out, static_cast<uint32_t>(p.height));
  Put16(out, 1);
  Put16(out, 24);
  Put32(out, 0);  // no compression
  Put32(out, imageBytes);
  Put32(out, 2835);  // 72 dots an inch
  Put32(out, 2835);
  Put32(out, 0);
  Put32(out, 0);
  for (int32_t y = p.height - 1; y >= 0; --y) {
    const uint8_t* src = p.pixels + static_cast<ptrdiff_t>(y) * p.pitch;
    for (int32_t x = 0; x < p.width; ++x) out->insert(out->end(), src + 4 * x, src + 4 * x + 3);
    out->resize(out->size() + rowBytes - static_cast<uint32_t>(p.width) * 3, 0);
  }
  return true;
}

// A palette of 256 colours chosen for the picture.
bool EncodeGif(const StillPicture& p, std::vector<uint8_t>* out) {
  const size_t count = static_cast<size_t>(p.width) * p.height;
  std::vector<GifByteType> r(count), g(count), b(count), indices(count);
  for (int32_t y = 0; y < p.height; ++y) {
    const uint8_t* src = p.pixels + static_cast<ptrdiff_t>(y) * p.pitch;
    for (int32_t x = 0; x < p.width; ++x) {
      const size_t i = static_cast<size_t>(y) * p.width + x;
      b[i] = src[4 * x], g[i] = src[4 * x + 1], r[i] = src[4 * x + 2];
    }
  }
  // A picture of at most 256 colours (most screenshots of windows) keeps
  // them exactly. Others keep their dominant colours (the flat areas of a
  // screenshot, the pen of a drawing) exactly too, and the rest share the
  // palette's other entries, chosen for them.
  GifColorType palette[256] = {};
  std::unordered_map<uint32_t, uint32_t> histogram;
  for (size_t i = 0; i < count; ++i)
    ++histogram[static_cast<uint32_t>(r[i]) << 16 | g[i] << 8 | b[i]];
  std::vector<std::pair<uint32_t, uint32_t>> byCount(histogram.begin(), histogram.end());
  std::sort(byCount.begin(), byCount.end(), [](const auto& a, const auto& b) {
    return a.second > b.second || (a.second == b.second && a.first < b.first);
  });
  const bool fits = byCount.size() <= 256;
  const size_t dominantMinimum = std::max<size_t>(16, count / 1000);
  size_t kept = 0;
  while (kept < byCount.size() && (fits || (kept < 128 && byCount[kept].second >= dominantMinimum)))
    ++kept;
  std::unordered_map<uint32_t, GifByteType> exact;
  for (size_t k = 0; k < kept; ++k) {
    const uint32_t c = byCount[k].first;
    exact.emplace(c, static_cast<GifByteType>(k));
    palette[k] = {static_cast<GifByteType>(c >> 16), static_cast<GifByteType>(c >> 8),
                  static_cast<GifByteType>(c)};
  }
  std::vector<size_t> rest;
  for (size_t i = 0; i < count; ++i) {
    auto it = exact.find(static_cast<uint32_t>(r[i]) << 16 | g[i] << 8 | b[i]);
    if (it != exact.end())
      indices[i] = it->second;
    else
      rest.push_back(i);
  }
  if (!rest.empty()) {
    std::vector<GifByteType> rr(rest.size()), rg(rest.size()), rb(rest.size()), ri(rest.size());
    for (size_t k = 0; k < rest.size(); ++k)
      rr[k] = r[rest[k]], rg[k] = g[rest[k]], rb[k] = b[rest[k]];
    int colours = static_cast<int>(256 - kept);
    if (GifQuantizeBuffer(static_cast<unsigned>(rest.size()), 1, &colours, rr.data(), rg.data(),
                          rb.data(), ri.data(), palette + kept) == GIF_ERROR)
      return false;
    for (size_t k = 0; k < rest.size(); ++k)
      indices[rest[k]] = static_cast<GifByteType>(kept + ri[k]);
  }
  int error = 0;
  GifFileType* gif = EGifOpen(
      out,
      [](GifFileType* f, const GifByteType* data, int size) {
        auto* v = static_cast<std::vector<uint8_t>*>(f->UserData);
        v->insert(v->end(), data, data + size);
        return size;
      },
      &error);
  if (!gif) return false;
  ColorMapObject* map = GifMakeMapObject(256, palette);
  bool ok = map && EGifPutScreenDesc(gif, p.width, p.height, 8, 0, map) == GIF_OK &&
            EGifPutImageDesc(gif, 0, 0, p.width, p.height, false, nullptr) == GIF_OK;
  for (int32_t y = 0; ok && y < p.height; ++y)
    ok = EGifPutLine(gif, indices.data() + static_cast<size_t>(y) * p.width, p.width) == GIF_OK;
  GifFreeMapObject(map);
  return EGifCloseFile(gif, &error) == GIF_OK && ok;
}

// libtiff writes files only; the picture goes through a temporary one.
bool EncodeTiff(const StillPicture& p, std::vector<uint8_t>* out) {
  char name[] = "/tmp/ovtiffXXXXXX";
  const int fd = mkstemp(name);
  if (fd < 0) return false;
  TIFFSetWarningHandler(nullptr);
  TIFF* tiff = TIFFFdOpen(fd, name, "w");
  bool ok = tiff != nullptr;
  if (ok) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(p.width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(p.height));
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
    std::vector<uint8_t> row(static_cast<size_t>(p.width) * 3);
    for (int32_t y = 0; ok && y < p.height; ++y) {
      RgbRow(p, y, row.data());
      ok = TIFFWriteScanline(tiff, row.data(), static_cast<uint32_t>(y), 0) == 1;
    }
    TIFFClose(tiff);  // closes fd too
  } else {
    close(fd);
  }
  if (ok) {
    FILE* f = std::fopen(name, "rb");
    ok = f != nullptr;
    uint8_t chunk[65536];
    size_t n;
    while (f && (n = std::fread(chunk, 1, sizeof chunk, f)) > 0)
      out->insert(out->end(), chunk, chunk + n);
    if (f) std::fclose(f);
  }
  unlink(name);
  return ok;
}

}  // namespace

const char* ImageEncoderType(int32_t encoder) {
  static const char* const kTypes[kEncoderCount] = {"image/png", "image/jpeg", "image/bmp",
                                                    "image/gif", "image/tiff"};
  return encoder >= 0 && encoder < kEncoderCount ? kTypes[encoder] : nullptr;
}

bool EncodeImage(int32_t encoder, const StillPicture& picture, std::vector<uint8_t>* out) {
  out->clear();
  if (!picture.pixels || picture.width <= 0 || picture.height <= 0 ||
      picture.pitch < picture.width * 4)
    return false;
  bool ok = false;
  switch (encoder) {
    case kEncoderPng:
      ok = EncodePng(picture, out);
      break;
    case kEncoderJpeg:
      ok = EncodeJpeg(picture, out);
      break;
    case kEncoderBmp:
      ok = EncodeBmp(picture, out);
      break;
    case kEncoderGif:
      ok = EncodeGif(picture, out);
      break;
    case kEncoderTiff:
      ok = EncodeTiff(picture, out);
      break;
    default:
      break;
  }
  if (!ok) out->clear();
  return ok;
}

HRESULT SaveImageFile(int32_t encoder, const StillPicture& picture, const wchar_t* path) {
  std::string utf8;
  if (!ImageEncoderType(encoder) || !CheckedPath(path, &utf8)) return E_INVALIDARG;
  std::vector<uint8_t> bytes;
  if (!EncodeImage(encoder, picture, &bytes)) {
    WriteLog(kErr, "Failed to encode %s\n", ImageEncoderType(encoder));
    return E_FAIL;
  }
  unlink(utf8.c_str());
  const int fd = open(utf8.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return E_FAIL;
  const bool ok = WriteAll(fd, bytes.data(), bytes.size()) == 0;
  return close(fd) == 0 && ok ? S_OK : E_FAIL;
}

}  // namespace ov
