// A 32-bit top-down pixel buffer that is also a cairo drawing surface over
// the same pixels. Rows are width * 4 bytes with no gaps; the buffer is 64-byte
// aligned and made once.
#pragma once

#include <cstdint>
#include <memory>

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
  // Moves the pixels, as they are, into memory that someone else made (at
  // least width * height * 4 bytes), kept alive by the given owner; the
  // drawing surface follows. False, and nothing changed, if it cannot.
  bool MoveBits(std::shared_ptr<uint8_t> bits);
  // A second buffer of the same size in memory that someone else made, with
  // a drawing surface of its own, after MoveBits. SwapBuffers exchanges the
  // two, surfaces and all, so that a whole frame can be kept without a copy.
  // False, and nothing changed, if it cannot.
  bool AddBackBuffer(std::shared_ptr<uint8_t> bits);
  uint8_t* BackBits() const { return m_pBackBits; }
  void SwapBuffers();

  uint8_t* m_pBits = nullptr;
  int32_t m_nWidth = 0;
  int32_t m_nHeight = 0;
  cairo_surface_t* m_pBitmap = nullptr;
  cairo_t* m_pGraphics = nullptr;

 private:
  // Wraps memory of this bitmap's size in a surface of this bitmap's format.
  bool MakeSurface(uint8_t* bits, cairo_surface_t** surface, cairo_t** graphics) const;

  std::shared_ptr<uint8_t> m_external;  // the owner of m_pBits after MoveBits
  std::shared_ptr<uint8_t> m_backOwner;
  uint8_t* m_pBackBits = nullptr;
  cairo_surface_t* m_pBackBitmap = nullptr;
  cairo_t* m_pBackGraphics = nullptr;
};
