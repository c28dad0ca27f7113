// The engine under every overlay that shows a frozen or live picture at full
// size: an overlay window, the picture layer, a layer drawn over it that
// changes while the pointer moves, and the composing of the two that dims
// everything outside a rectangle. Also the blur of still captures.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "orvanta/types.h"
#include "platform/NonCopyable.h"

namespace ov {
class OverlayWindow;
}  // namespace ov

// A base for the boxes that own one; used only on their window's thread.
class CVideoRender : private ov::NonCopyable {
 public:
  CVideoRender();
  ~CVideoRender();

  // Makes the window over rect (root coordinates) and the layers; a
  // click-through window lets the pointer reach the windows below.
  HRESULT Initialize(const RECT& rect, bool clickThrough);
  // (Re)makes both layers at the window's size, clears them, and shows the
  // whole picture undimmed.
  HRESULT CreateObjects();
  // Copies a picture of the window's size (BGRA rows) into the picture layer;
  // its dimmed form is made here, once, since only the overlay changes
  // while the pointer moves.
  void SetPicture(const uint8_t* pixels, int32_t pitch);
  // The overlay layer: premultiplied BGRA, OverlayStride() pixels a row.
  uint32_t* Overlay() const { return reinterpret_cast<uint32_t*>(m_pTextureDynamic.get()); }
  int32_t OverlayStride() const { return m_Width; }
  // The rectangle left undimmed, as fractions of the window (left, top,
  // right, bottom), edges included.
  void SetCropRect(const float crop[4]);
  // Moves the window to rect and remakes the layers at its new size.
  HRESULT Resize(const RECT& rect);
  // Composes the layers and shows them.
  HRESULT Draw();
  // Shows what was composed last.
  HRESULT Present();
  // passes rounds of the 5 x 5 filter over a picture of the window's size
  // (BGRA rows of m_Width pixels); 0 passes copies.
  HRESULT GaussianBlur(const uint8_t* source, uint8_t* destination, int32_t passes);

  HWND Window() const { return m_hwnd; }
  // Shows only a frame ring pixels wide along the window's edges, so that a
  // window shown opaque hides nothing inside the frame.
  void ShowFrameOnly(int32_t ring);
  bool Translucent() const;

 protected:
  struct Free {
    void operator()(uint8_t* p) const { std::free(p); }
  };
  using Pixels = std::unique_ptr<uint8_t, Free>;

  int32_t m_Width = 0, m_Height = 0;
  HWND m_hwnd = 0;
  std::unique_ptr<ov::OverlayWindow> m_window;
  Pixels m_pTexture1;        // the picture
  Pixels m_pDimmed;          // the picture as it shows outside the kept rectangle
  Pixels m_pTextureDynamic;  // the overlay
  Pixels m_pBackBuffer;      // what is shown
  int32_t m_crop[4] = {};    // in pixels, edges included
};
