// The end of a camera preview: takes the camera's frames in the formats
// cameras give, makes 32-bit pixels of them, and shows them in the host's
// window, centred and scaled down to fit. It also keeps the last frame for
// snapshots.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "orvanta/camera.h"
#include "platform/NonCopyable.h"
#include "platform/VideoCaptureDevice.h"
#include "platform/WindowPresenter.h"

class CCameraRenderer : private ov::NonCopyable {
 public:
  CCameraRenderer(CameraDevice* pDevice, HWND hWnd, CCameraCallback* pCallback);
  ~CCameraRenderer();

  // Opens the window for presenting.
  HRESULT Setup();
  // Takes the camera's format (with the stride of its first plane, 0 for
  // tight rows). A format without a conversion is refused with
  // E_INVALIDARG. Writes the size and rate into the device's record and
  // tells the host the size.
  HRESULT CheckMediaType(const ov::CameraMode& mode, int32_t stride);
  // Shows one frame; the frame is skipped (S_FALSE) when it is shorter than
  // its format needs or does not decode.
  HRESULT DoRenderSample(const ov::CameraFrame& frame);
  HRESULT SaveImage(int encoder, const wchar_t* pwszFile);

  // The picture is laid out anew at the next frame.
  void RequestLayout() { m_bLayoutRequest.store(1); }
  void GetVideoSize(int* pWidth, int* pHeight) const;

  // The formats the renderer shows, best first.
  static bool Shows(uint32_t fourcc);
  static int Preference(uint32_t fourcc);  // lower is better; -1 for none
  static const char* FormatName(uint32_t fourcc);
  struct Format;

 private:
  class JpegDecoder;
  void Layout();
  void Stretch();
  void ConvertPlanar(const uint8_t* y);

  CCameraCallback* pCallback;
  std::unique_ptr<ov::WindowPresenter> m_pPresenter;
  CameraDevice* m_pDevice;
  HWND m_hWnd;
  RECT m_rcDest{};
  std::atomic<int32_t> m_VideoWidth{0}, m_VideoHeight{0};
  const Format* m_pFormat = nullptr;
  std::atomic<int32_t> m_bLayoutRequest{1};
  int32_t m_nSrcStride = 0;
  size_t m_nSrcBytes = 0;  // the least a whole frame takes
  std::unique_ptr<JpegDecoder> m_pJpeg;

  // The last frame in 32-bit pixels, tight rows, 64-byte aligned.
  uint8_t* m_pFrame = nullptr;
  size_t m_nFrameBytes = 0;
  // Planar chroma interleaved at the source's stride, or the picture a JPEG
  // frame is decoded into before it replaces the last one.
  uint8_t* m_pScratch = nullptr;
  bool m_bHaveFrame = false;
  // Bilinear scaling: per output column and row, the first source column or
  // row and the weight (0..256) of the one after it.
  std::vector<int32_t> m_xSource, m_xWeight, m_ySource, m_yWeight;
  // Frames render on the preview's thread, snapshots on the host's.
  mutable std::mutex m_csRender;
};
