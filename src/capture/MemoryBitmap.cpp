#include "capture/MemoryBitmap.h"

#include <cairo.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "core/Globals.h"

CMemoryBitmap::~CMemoryBitmap() {
  if (m_pBackGraphics) {
    cairo_destroy(m_pBackGraphics);
    g_nGdiplusGraphics.fetch_sub(1);
  }
  if (m_pBackBitmap) {
    cairo_surface_destroy(m_pBackBitmap);
    g_nGdiplusBitmaps.fetch_sub(1);
  }
  if (m_pGraphics) {
    cairo_destroy(m_pGraphics);
    g_nGdiplusGraphics.fetch_sub(1);
  }
  if (m_pBitmap) {
    cairo_surface_destroy(m_pBitmap);
    g_nGdiplusBitmaps.fetch_sub(1);
  }
  if (!m_external) std::free(m_pBits);
}

bool CMemoryBitmap::Create(int32_t width, int32_t height) {
  if (width <= 0 || height <= 0) return false;
  m_nWidth = width;
  m_nHeight = height;
  size_t bytes = static_cast<size_t>(width) * static_cast<size_t>(height) * 4;
  void* bits = nullptr;
  if (posix_memalign(&bits, 64, bytes) != 0) return false;
  std::memset(bits, 0, bytes);
  m_pBits = static_cast<uint8_t*>(bits);
  return true;
}

bool CMemoryBitmap::CreateGraphics(int formatIndex) {
  if (!m_pBits || m_pBitmap) return false;
  cairo_format_t format = formatIndex == kRgb ? CAIRO_FORMAT_RGB24 : CAIRO_FORMAT_ARGB32;
  m_pBitmap =
      cairo_image_surface_create_for_data(m_pBits, format, m_nWidth, m_nHeight, m_nWidth * 4);
  if (cairo_surface_status(m_pBitmap) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(m_pBitmap);
    m_pBitmap = nullptr;
    return false;
  }
  g_nGdiplusBitmaps.fetch_add(1);
  m_pGraphics = cairo_create(m_pBitmap);
  cairo_set_antialias(m_pGraphics, CAIRO_ANTIALIAS_GOOD);
  g_nGdiplusGraphics.fetch_add(1);
  return true;
}

bool CMemoryBitmap::MakeSurface(uint8_t* bits, cairo_surface_t** surface,
                                cairo_t** graphics) const {
  *surface = cairo_image_surface_create_for_data(bits, cairo_image_surface_get_format(m_pBitmap),
                                                 m_nWidth, m_nHeight, m_nWidth * 4);
  if (cairo_surface_status(*surface) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(*surface);
    *surface = nullptr;
    return false;
  }
  *graphics = cairo_create(*surface);
  cairo_set_antialias(*graphics, cairo_get_antialias(m_pGraphics));
  return true;
}

bool CMemoryBitmap::MoveBits(std::shared_ptr<uint8_t> bits) {
  if (!bits || !m_pBits || m_external) return false;
  cairo_surface_t* surface = nullptr;
  cairo_t* graphics = nullptr;
  if (m_pBitmap && !MakeSurface(bits.get(), &surface, &graphics)) return false;
  std::memcpy(bits.get(), m_pBits, static_cast<size_t>(m_nWidth) * m_nHeight * 4);
  std::free(m_pBits);
  m_pBits = bits.get();
  m_external = std::move(bits);
  if (surface) {
    // The counters stay: one bitmap and one graphics object, as before.
    cairo_destroy(m_pGraphics);
    cairo_surface_destroy(m_pBitmap);
    m_pBitmap = surface;
    m_pGraphics = graphics;
  }
  return true;
}

bool CMemoryBitmap::AddBackBuffer(std::shared_ptr<uint8_t> bits) {
  if (!bits || !m_external || !m_pBitmap || m_backOwner) return false;
  if (!MakeSurface(bits.get(), &m_pBackBitmap, &m_pBackGraphics)) return false;
  g_nGdiplusBitmaps.fetch_add(1);
  g_nGdiplusGraphics.fetch_add(1);
  m_pBackBits = bits.get();
  m_backOwner = std::move(bits);
  return true;
}

void CMemoryBitmap::SwapBuffers() {
  if (!m_backOwner) return;
  std::swap(m_pBits, m_pBackBits);
  std::swap(m_external, m_backOwner);
  std::swap(m_pBitmap, m_pBackBitmap);
  std::swap(m_pGraphics, m_pBackGraphics);
}
