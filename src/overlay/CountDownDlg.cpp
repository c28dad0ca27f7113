// Pictures on the screen for the host, the countdown's digits above all: a
// click-through window showing one picture file, swapped in place.
#include <cairo.h>

#include <memory>
#include <new>

#include "core/Globals.h"
#include "core/Log.h"
#include "core/Resources.h"
#include "orvanta/pictures.h"
#include "overlay/VideoRender.h"
#include "platform/Text.h"

namespace {

class CCountDownDlg : public CPictureObject {
 public:
  bool Create(const wchar_t* path, const RECT& rect) {
    m_rect = rect;
    if (FAILED(m_render.Initialize(rect, true))) return false;
    ChangePicture(path);
    // The window shows from its making; an unreadable first picture leaves
    // it empty.
    m_render.Draw();
    return true;
  }

  void ChangePicture(const wchar_t* path) override {
    const std::string file = path ? ov::ToUtf8(path) : std::string();
    ov::Surface image;
    if (!file.empty())
      image = ov::CountedSurface(cairo_image_surface_create_from_png(file.c_str()));
    if (!image) {
      WriteLog(ov::kErr, "Failed to ChangePicture:%ls\n", path ? path : L"(null)");
      return;
    }
    const int w = m_rect.right - m_rect.left, h = m_rect.bottom - m_rect.top;
    uint32_t* pixels = m_render.Overlay();
    cairo_surface_t* target = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(pixels), CAIRO_FORMAT_ARGB32, w, h,
        m_render.OverlayStride() * 4);
    cairo_t* cr = cairo_create(target);
    cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
    cairo_paint(cr);
    cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
    cairo_scale(cr, static_cast<double>(w) / cairo_image_surface_get_width(image.get()),
                static_cast<double>(h) / cairo_image_surface_get_height(image.get()));
    cairo_set_source_surface(cr, image.get(), 0, 0);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
    cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
    cairo_paint(cr);
    cairo_destroy(cr);
    cairo_surface_flush(target);
    cairo_surface_destroy(target);
    m_render.Draw();
  }

 private:
  CVideoRender m_render;
  RECT m_rect{};
};

CPictureObject* Show(const wchar_t* path, const RECT& rect) {
  auto picture = std::unique_ptr<CCountDownDlg>(new (std::nothrow) CCountDownDlg);
  if (!picture || !picture->Create(path, rect)) return nullptr;
  return picture.release();
}

}  // namespace

extern "C" OV_API CPictureObject* ShowPictureOnScreen(const wchar_t* path, int width, int height) {
  const RECT& d = g_rcDisplay;
  const int x = d.left + (d.right - d.left - width) / 2;
  const int y = d.top + (d.bottom - d.top - height) / 2;
  return Show(path, RECT{x, y, x + width, y + height});
}

extern "C" OV_API CPictureObject* ShowPictureOnScreenEx(const wchar_t* path, const RECT* rect) {
  if (!rect) {
    OV_BAD_ARG(rect);
    return nullptr;
  }
  return Show(path, *rect);
}
