#include "capture/FramePng.h"

#include <cairo.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "core/Globals.h"
#include "platform/Files.h"

namespace ov {

bool SaveFramePng(const uint8_t* frame, int32_t pitch, int32_t width, int32_t height,
                  const wchar_t* path) {
  if (width <= 0 || height <= 0) return false;
  size_t bytes = static_cast<size_t>(pitch) * height;
  void* copy = nullptr;
  if (posix_memalign(&copy, 64, bytes) != 0) return false;
  {
    std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
    std::memcpy(copy, frame, bytes);
  }
  cairo_surface_t* surface = cairo_image_surface_create_for_data(
      static_cast<unsigned char*>(copy), CAIRO_FORMAT_RGB24, width, height, pitch);
  g_nGdiplusBitmaps.fetch_add(1);
  RemoveFile(path);
  bool ok = cairo_surface_write_to_png(surface, ToUtf8(path).c_str()) == CAIRO_STATUS_SUCCESS;
  cairo_surface_destroy(surface);
  g_nGdiplusBitmaps.fetch_sub(1);
  std::free(copy);
  return ok;
}

}  // namespace ov
