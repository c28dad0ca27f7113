#include "capture/CursorCatalogue.h"

#include <cairo.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "core/Log.h"
#include "core/Resources.h"
#include "platform/Text.h"

namespace ov {

CursorCatalogue g_Cursors;

namespace {

uint32_t Read16(const uint8_t* p) { return p[0] | p[1] << 8; }
uint32_t Read32(const uint8_t* p) { return Read16(p) | Read16(p + 2) << 16; }

struct PngReader {
  const uint8_t* data;
  size_t size, at;
};

cairo_status_t ReadPngBytes(void* closure, unsigned char* out, unsigned int length) {
  auto* reader = static_cast<PngReader*>(closure);
  if (reader->size - reader->at < length) return CAIRO_STATUS_READ_ERROR;
  memcpy(out, reader->data + reader->at, length);
  reader->at += length;
  return CAIRO_STATUS_SUCCESS;
}

void FromSurface(cairo_surface_t* surface, PointerShape* shape) {
  shape->width = cairo_image_surface_get_width(surface);
  shape->height = cairo_image_surface_get_height(surface);
  const int stride = cairo_image_surface_get_stride(surface);
  const uint8_t* data = cairo_image_surface_get_data(surface);
  shape->pixels.resize(static_cast<size_t>(shape->width) * shape->height);
  for (int y = 0; y < shape->height; ++y)
    memcpy(&shape->pixels[static_cast<size_t>(y) * shape->width], data + y * stride,
           static_cast<size_t>(shape->width) * 4);
}

bool LoadInto(PointerShape* shape, const char* file) {
  const std::string path = CursorPath(file);
  int error = 0;
  if (ReadCursorFile(path, shape, &error)) return true;
  WriteLog(kErr, "Failed(%d) to load file:%ls\n", error, FromUtf8(path).c_str());
  *shape = PointerShape();
  return false;
}

void Fallback(PointerShape* shape, const char* themeName) {
  if (!LoadThemeCursor(themeName, shape)) *shape = PointerShape();
}

}  // namespace

bool ReadCursorFile(const std::string& path, PointerShape* shape, int* error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *error = errno ? errno : ENOENT;
    return false;
  }
  std::vector<uint8_t> file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  *error = EINVAL;
  if (file.size() < 22 || Read16(&file[0]) != 0 || Read16(&file[2]) != 2 || Read16(&file[4]) < 1)
    return false;
  const uint8_t* entry = &file[6];
  const uint32_t bytes = Read32(entry + 8), offset = Read32(entry + 12);
  if (offset > file.size() || bytes > file.size() - offset || bytes < 40) return false;
  const uint8_t* image = &file[offset];
  shape->xHot = static_cast<int32_t>(Read16(entry + 4));
  shape->yHot = static_cast<int32_t>(Read16(entry + 6));
  if (memcmp(image, "\x89PNG", 4) == 0) {
    PngReader reader{image, bytes, 0};
    cairo_surface_t* png = cairo_image_surface_create_from_png_stream(ReadPngBytes, &reader);
    bool ok = cairo_surface_status(png) == CAIRO_STATUS_SUCCESS &&
              cairo_image_surface_get_format(png) == CAIRO_FORMAT_ARGB32;
    if (ok) FromSurface(png, shape);
    cairo_surface_destroy(png);
    return ok;
  }
  const int32_t width = static_cast<int32_t>(Read32(image + 4));
  const int32_t height = static_cast<int32_t>(Read32(image + 8)) / 2;
  const uint32_t headerSize = Read32(image), bits = Read16(image + 14);
  if (bits != 32 || width <= 0 || height <= 0 || width > 256 || height > 256 ||
      headerSize + static_cast<uint64_t>(width) * height * 4 > bytes)
    return false;
  shape->width = width;
  shape->height = height;
  shape->pixels.resize(static_cast<size_t>(width) * height);
  const uint8_t* rows = image + headerSize;
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t* row = rows + static_cast<size_t>(height - 1 - y) * width * 4;
    for (int32_t x = 0; x < width; ++x) {
      const uint32_t c = Read32(row + x * 4), a = c >> 24;
      uint32_t out = c & 0xFF000000u;
      for (int shift = 0; shift < 24; shift += 8)
        out |= (((c >> shift) & 0xFF) * a + 127) / 255 << shift;
      shape->pixels[static_cast<size_t>(y) * width + x] = out;
    }
  }
  *error = 0;
  return true;
}

void LoadCursors() {
  struct Sizing {
    int index;
    const char* file;
    const char* theme;
  };
  static const Sizing kSizing[] = {
      {0, nullptr, "left_ptr"},
      {1, "splitv.cur", "sb_v_double_arrow"},
      {2, "splitv.cur", "sb_v_double_arrow"},
      {3, "splith.cur", "sb_h_double_arrow"},
      {4, "splith.cur", "sb_h_double_arrow"},
      {5, nullptr, "size_fdiag"},
      {6, nullptr, "size_bdiag"},
      {7, nullptr, "size_bdiag"},
      {8, nullptr, "size_fdiag"},
      {9, "splitt.cur", "sb_v_double_arrow"},
      {10, "splitb.cur", "sb_v_double_arrow"},
      {11, "splitl.cur", "sb_h_double_arrow"},
      {12, "splitr.cur", "sb_h_double_arrow"},
      {13, nullptr, "fleur"},
  };
  for (const Sizing& s : kSizing) {
    if (!s.file || !LoadInto(&g_Cursors.size[s.index], s.file))
      Fallback(&g_Cursors.size[s.index], s.theme);
  }
  LoadInto(&g_Cursors.cross, "Cross.cur");
  LoadInto(&g_Cursors.rect, "Rect.cur");
  LoadInto(&g_Cursors.window, "Window.cur");
  Fallback(&g_Cursors.no, "crossed_circle");
  static const char* const kTools[] = {
      "Rect_Shape.cur", "Ellipse_Shape.cur",  "Brush_Shape.cur",  "Arrow_Shape.cur",
      "Line_Shape.cur", "Airbrush_Shape.cur", "Number_Shape.cur", "Text_Shape.cur"};
  for (int i = 0; i < 8; ++i) LoadInto(&g_Cursors.tools[i], kTools[i]);
  Fallback(&g_Cursors.tools[8], "crosshair");
  Fallback(&g_Cursors.tools[9], "crosshair");
}

PointerShape MakeBrushCursor(int32_t diameter) {
  diameter = std::clamp(diameter & ~1, 4, 62);
  constexpr int kSize = 64, kScale = 8;
  const double d = diameter * kScale, o = (kSize - diameter) / 2 * kScale;
  // Drawn at eight times the size and scaled down, for a smooth rim.
  cairo_surface_t* large =
      cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kSize * kScale, kSize * kScale);
  cairo_t* cr = cairo_create(large);
  cairo_arc(cr, o + d / 2, o + d / 2, (d + 12) / 2, 0, 2 * 3.14159265358979);
  cairo_set_source_rgba(cr, 1.0, 1.0, 0xF0 / 255.0, 0x80 / 255.0);
  cairo_fill(cr);
  cairo_arc(cr, o + d / 2, o + d / 2, d / 2, 0, 2 * 3.14159265358979);
  cairo_set_source_rgba(cr, 0, 0, 0, 1);
  cairo_set_line_width(cr, 8);
  cairo_stroke(cr);
  cairo_destroy(cr);
  cairo_surface_t* small = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kSize, kSize);
  cr = cairo_create(small);
  cairo_scale(cr, 1.0 / kScale, 1.0 / kScale);
  cairo_set_source_surface(cr, large, 0, 0);
  cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
  cairo_paint(cr);
  cairo_destroy(cr);
  cairo_surface_flush(small);
  PointerShape shape;
  FromSurface(small, &shape);
  shape.xHot = shape.yHot = kSize / 2;
  cairo_surface_destroy(small);
  cairo_surface_destroy(large);
  return shape;
}

}  // namespace ov
