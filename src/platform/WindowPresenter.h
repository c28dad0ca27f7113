// Pictures put into a window that someone else made (a host's), through a
// back buffer of the window's size in 32-bit pixels (B, G, R, unused).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "orvanta/types.h"

namespace ov {

class WindowPresenter {
 public:
  // E_INVALIDARG for 0 or a window that does not exist, E_FAIL without a
  // display or for a window whose pixels are not 32-bit.
  static HRESULT Open(HWND window, std::unique_ptr<WindowPresenter>* presenter);
  virtual ~WindowPresenter() = default;

  // Follows the window's size now: the back buffer is made anew when it has
  // changed, and then holds black. False when the window is gone.
  virtual bool Resize() = 0;
  int32_t Width() const { return m_width; }
  int32_t Height() const { return m_height; }
  uint8_t* Pixels() const { return m_pixels; }
  ptrdiff_t Pitch() const { return m_pitch; }
  // Puts the area of the back buffer on the window, at the same place.
  virtual bool Present(const RECT& area) = 0;

 protected:
  int32_t m_width = 0, m_height = 0;
  uint8_t* m_pixels = nullptr;
  ptrdiff_t m_pitch = 0;
};

}  // namespace ov
