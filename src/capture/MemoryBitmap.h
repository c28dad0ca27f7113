// A 32-bit top-down pixel buffer that is also a cairo drawing surface over
// the same pixels. Rows are width * 4 bytes with no gaps; the buffer is 64-byte
// aligned and made once.
#pragma once

#include <cstdint>

#include "platform/NonCopyable.h"

typedef struct _cairo_surface cairo_surface_t;
typedef struct _cairo cairo_t;

class CMemoryBitmap : private ov::NonCopyable {
 public:
  // Drawing surface formats: opaque (the alpha byte is ignored), straight
  // alpha, premultiplied alpha. Cairo has only the premultiplied one, so
  // index 1 draws as premultiplied too.
  enum Format { kRgb = 0, kArgb = 1, kPargb = 2 };

  CMemoryBitmap() = default;
  ~CMemoryBitmap();

  bool Create(int32_t width, int32_t height);
  bool CreateGraphics(int formatIndex);

  uint8_t* m_pBits = nullptr;
  int32_t m_nWidth = 0;
  int32_t m_nHeight = 0;
  cairo_surface_t* m_pBitmap = nullptr;
  cairo_t* m_pGraphics = nullptr;
};
