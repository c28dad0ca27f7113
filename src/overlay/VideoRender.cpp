#include "overlay/VideoRender.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "core/Log.h"
#include "pixels/OverlayKernels.h"
#include "platform/OverlayWindow.h"

namespace {

constexpr size_t kAlignment = 64;

uint8_t* AllocatePixels(int32_t width, int32_t height) {
  size_t bytes = static_cast<size_t>(width) * 4 * static_cast<size_t>(height);
  bytes = (bytes + kAlignment - 1) & ~(kAlignment - 1);
  auto* p = static_cast<uint8_t*>(std::aligned_alloc(kAlignment, bytes));
  if (p) memset(p, 0, bytes);
  return p;
}

}  // namespace

CVideoRender::CVideoRender() = default;
CVideoRender::~CVideoRender() = default;

bool CVideoRender::Translucent() const { return m_window && m_window->Translucent(); }

HRESULT CVideoRender::Initialize(const RECT& rect, bool clickThrough) {
  ov::OverlayWindowOptions options;
  options.rect = rect;
  options.clickThrough = clickThrough;
  m_window = ov::CreateOverlayWindow(options);
  if (!m_window) {
    WriteLog(ov::kErr, "Unable to Create overlay window(%d, %d)\n", rect.right - rect.left,
             rect.bottom - rect.top);
    return E_FAIL;
  }
  if (!m_window->Translucent())
    WriteLog(ov::kWan, "No compositing manager: the overlay is shown opaque\n");
  m_hwnd = m_window->Handle();
  m_Width = m_window->Width();
  m_Height = m_window->Height();
  HRESULT hr = CreateObjects();
  if (SUCCEEDED(hr)) m_window->Show(true);
  return hr;
}

HRESULT CVideoRender::CreateObjects() {
  m_pTexture1.reset(AllocatePixels(m_Width, m_Height));
  m_pDimmed.reset(AllocatePixels(m_Width, m_Height));
  m_pTextureDynamic.reset(AllocatePixels(m_Width, m_Height));
  m_pBackBuffer.reset(AllocatePixels(m_Width, m_Height));
  if (!m_pTexture1 || !m_pDimmed || !m_pTextureDynamic || !m_pBackBuffer) {
    WriteLog(ov::kErr, "Failed(0x%x) in CreateObjects(%d, %d), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_OUTOFMEMORY), m_Width, m_Height, OV_FILE, __LINE__);
    return E_OUTOFMEMORY;
  }
  const float whole[4] = {0, 0, 1, 1};
  SetCropRect(whole);
  return S_OK;
}

HRESULT CVideoRender::Resize(const RECT& rect) {
  if (!m_window) return E_FAIL;
  if (!m_window->MoveResize(rect)) {
    WriteLog(ov::kErr, "Failed(0x%x) in m_window->MoveResize(%d, %d), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), rect.right - rect.left, rect.bottom - rect.top, OV_FILE,
             __LINE__);
    return E_FAIL;
  }
  m_Width = m_window->Width();
  m_Height = m_window->Height();
  return CreateObjects();
}

void CVideoRender::SetPicture(const uint8_t* pixels, int32_t pitch) {
  if (!m_pTexture1 || !pixels) return;
  for (int32_t y = 0; y < m_Height; ++y)
    memcpy(m_pTexture1.get() + static_cast<ptrdiff_t>(y) * m_Width * 4,
           pixels + static_cast<ptrdiff_t>(y) * pitch, static_cast<size_t>(m_Width) * 4);
  const ptrdiff_t rowBytes = static_cast<ptrdiff_t>(m_Width) * 4;
  ov::pixels::DimPicture(m_pDimmed.get(), rowBytes, m_pTexture1.get(), rowBytes, m_Width, m_Height);
}

void CVideoRender::SetCropRect(const float crop[4]) {
  // A fraction f of the width stands for the pixel column f * width; the
  // right and bottom edges are included, so (0, 0, 1, 1) keeps everything
  // and a rectangle of no area keeps the one line of pixels at its place.
  // Fractions made from whole pixels come back as those pixels, whatever
  // float rounding did to them.
  constexpr float kSlack = 1e-3f;
  m_crop[0] = static_cast<int32_t>(std::ceil(crop[0] * m_Width - kSlack));
  m_crop[1] = static_cast<int32_t>(std::ceil(crop[1] * m_Height - kSlack));
  m_crop[2] = static_cast<int32_t>(std::floor(crop[2] * m_Width + kSlack));
  m_crop[3] = static_cast<int32_t>(std::floor(crop[3] * m_Height + kSlack));
}

void CVideoRender::ShowFrameOnly(int32_t ring) {
  if (!m_window) return;
  const int32_t w = m_Width, h = m_Height;
  const RECT parts[4] = {{0, 0, w, ring},
                         {0, h - ring, w, h},
                         {0, ring, ring, h - ring},
                         {w - ring, ring, w, h - ring}};
  m_window->SetVisibleParts(parts, 4);
}

HRESULT CVideoRender::Draw() {
  if (!m_pBackBuffer) return E_FAIL;
  const ptrdiff_t pitch = static_cast<ptrdiff_t>(m_Width) * 4;
  ov::pixels::ComposeOverlay(m_pBackBuffer.get(), m_pTexture1.get(), m_pDimmed.get(),
                             m_pTextureDynamic.get(), pitch, m_Width, m_Height, m_crop[0],
                             m_crop[1], m_crop[2], m_crop[3]);
  return Present();
}

HRESULT CVideoRender::Present() {
  if (!m_window || !m_pBackBuffer) return E_FAIL;
  return m_window->Present(m_pBackBuffer.get(), static_cast<ptrdiff_t>(m_Width) * 4) ? S_OK
                                                                                     : E_FAIL;
}

HRESULT CVideoRender::GaussianBlur(const uint8_t* source, uint8_t* destination, int32_t passes) {
  if (!source || !destination || m_Width <= 0 || m_Height <= 0) return E_POINTER;
  const ptrdiff_t pitch = static_cast<ptrdiff_t>(m_Width) * 4;
  Pixels first(AllocatePixels(m_Width, m_Height)), second(AllocatePixels(m_Width, m_Height));
  if (!first || !second) {
    WriteLog(ov::kErr, "Failed(0x%x) in GaussianBlur(%d), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_OUTOFMEMORY), passes, OV_FILE, __LINE__);
    return E_OUTOFMEMORY;
  }
  memcpy(first.get(), source, static_cast<size_t>(pitch) * m_Height);
  for (int32_t i = 0; i < passes; ++i) {
    ov::pixels::GaussianBlurPass(second.get(), pitch, first.get(), pitch, m_Width, m_Height);
    std::swap(first, second);
  }
  memcpy(destination, first.get(), static_cast<size_t>(pitch) * m_Height);
  return S_OK;
}
