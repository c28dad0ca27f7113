#include "core/Resources.h"

#include <cairo.h>

#include <cstring>

#include "core/Globals.h"
#include "core/Log.h"
#include "platform/Library.h"
#include "platform/Text.h"

wchar_t g_szResourcePath[OV_MAX_PATH];

namespace ov {

namespace {

cairo_surface_t* ReadPng(const std::string& path) {
  cairo_surface_t* image = cairo_image_surface_create_from_png(path.c_str());
  if (cairo_surface_status(image) == CAIRO_STATUS_SUCCESS) return image;
  cairo_surface_destroy(image);
  WriteLog(kErr, "Failed to load file:%ls\n", FromUtf8(path).c_str());
  return nullptr;
}

void DrawScaled(cairo_surface_t* target, cairo_surface_t* image, int width, int height) {
  cairo_t* cr = cairo_create(target);
  cairo_scale(cr, static_cast<double>(width) / cairo_image_surface_get_width(image),
              static_cast<double>(height) / cairo_image_surface_get_height(image));
  cairo_set_source_surface(cr, image, 0, 0);
  cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
  // The picture's own edge pixels reach its scaled edge, not a blend with
  // the clear outside.
  cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
  cairo_paint(cr);
  cairo_destroy(cr);
}

}  // namespace

void SurfaceRelease::operator()(cairo_surface_t* surface) const {
  cairo_surface_destroy(surface);
  g_nGdiplusBitmaps.fetch_sub(1);
}

Surface CountedSurface(cairo_surface_t* surface) {
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(surface);
    return nullptr;
  }
  g_nGdiplusBitmaps.fetch_add(1);
  return Surface(surface);
}

void InitializeResourceFolder() {
  std::wstring folder = FromUtf8(HelperFolder() + "/Resource");
  wcsncpy(g_szResourcePath, folder.c_str(), OV_MAX_PATH - 1);
  g_szResourcePath[OV_MAX_PATH - 1] = 0;
}

std::string ImagePath(const char* name) { return ToUtf8(g_szResourcePath) + "/Images/" + name; }

std::string CursorPath(const char* name) { return ToUtf8(g_szResourcePath) + "/Cursors/" + name; }

namespace {

Surface Scaled(cairo_surface_t* image, int width, int height) {
  Surface bitmap = CountedSurface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height));
  if (bitmap && image) {
    DrawScaled(bitmap.get(), image, width, height);
    cairo_surface_flush(bitmap.get());
  }
  if (image) cairo_surface_destroy(image);
  return bitmap;
}

}  // namespace

Surface LoadImageSized(const char* name, int width, int height) {
  return Scaled(ReadPng(ImagePath(name)), width, height);
}

Surface LoadImageNatural(const char* name) {
  cairo_surface_t* image = ReadPng(ImagePath(name));
  if (!image) return nullptr;
  // cairo hands out RGB24 for a picture without alpha; the overlays want
  // premultiplied ARGB everywhere.
  return Scaled(image, cairo_image_surface_get_width(image), cairo_image_surface_get_height(image));
}

void LoadImageInto(const char* name, int width, int height, uint8_t* pixels, int pitch) {
  for (int y = 0; y < height; ++y)
    memset(pixels + static_cast<ptrdiff_t>(y) * pitch, 0, width * 4u);
  cairo_surface_t* image = ReadPng(ImagePath(name));
  if (!image) return;
  cairo_surface_t* target =
      cairo_image_surface_create_for_data(pixels, CAIRO_FORMAT_ARGB32, width, height, pitch);
  DrawScaled(target, image, width, height);
  cairo_surface_flush(target);
  cairo_surface_destroy(target);
  cairo_surface_destroy(image);
}

}  // namespace ov

extern "C" OV_API void SetResourceFilePath(const wchar_t* path) {
  if (!path) {
    OV_BAD_ARG(path);
    return;
  }
  wcsncpy(g_szResourcePath, path, OV_MAX_PATH - 1);
  g_szResourcePath[OV_MAX_PATH - 1] = 0;
  size_t length = wcslen(g_szResourcePath);
  if (length > 0 && (g_szResourcePath[length - 1] == L'/' || g_szResourcePath[length - 1] == L'\\'))
    g_szResourcePath[length - 1] = 0;
}
