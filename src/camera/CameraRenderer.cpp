#include "camera/CameraRenderer.h"

#include <jerror.h>
#include <jpeglib.h>

#include <algorithm>
#include <csetjmp>
#include <cstdlib>
#include <cstring>

#include "core/Log.h"
#include "overlay/ImageFiles.h"
#include "pixels/PixelDispatch.h"
#include "pixels/Pixels.h"

using ov::FourCC;

namespace {

using Conversion = HRESULT (*)(BYTE*, int, const BYTE*, int, int, int);

HRESULT CopyBgr32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch, int nWidth,
                  int nHeight) {
  return ImageCopy32(pDst, nPitch, pSrc, nSrcPitch, nWidth, nHeight);
}

}  // namespace

// Kinds of layout: how many bytes a row of the first plane takes, and how
// much the whole frame takes beyond the rows of that plane.
enum class RowLayout { kPacked32, kPacked24, kPacked16, kPlanar420, kSemiPlanar420, kCompressed };

struct CCameraRenderer::Format {
  const char* name;
  uint32_t fourcc;
  RowLayout layout;
  Conversion convert;  // null for the compressed formats, which are decoded
};

namespace {

// In the order a preview prefers them: the packed and semi-planar formats
// convert cheapest, JPEG is what cameras give at large sizes.
const CCameraRenderer::Format kFormats[] = {
    {"YUYV", FourCC('Y', 'U', 'Y', 'V'), RowLayout::kPacked16, ImageConvert_YUY2_to_BGR32},
    {"NV12", FourCC('N', 'V', '1', '2'), RowLayout::kSemiPlanar420, ImageConvert_NV12_to_BGR32},
    {"MJPEG", FourCC('M', 'J', 'P', 'G'), RowLayout::kCompressed, nullptr},
    {"JPEG", FourCC('J', 'P', 'E', 'G'), RowLayout::kCompressed, nullptr},
    {"UYVY", FourCC('U', 'Y', 'V', 'Y'), RowLayout::kPacked16, ImageConvert_UYVY_to_BGR32},
    {"YVYU", FourCC('Y', 'V', 'Y', 'U'), RowLayout::kPacked16, ImageConvert_YVYU_to_BGR32},
    {"RGB32", FourCC('B', 'G', 'R', '4'), RowLayout::kPacked32, CopyBgr32},
    {"XRGB32", FourCC('X', 'R', '2', '4'), RowLayout::kPacked32, CopyBgr32},
    {"ARGB32", FourCC('A', 'R', '2', '4'), RowLayout::kPacked32, CopyBgr32},
    {"RGB24", FourCC('B', 'G', 'R', '3'), RowLayout::kPacked24, ImageConvert_BGR24_to_BGR32},
    // Cameras give planar 4:2:0 in video range, as NV12: the chroma planes
    // are interleaved and shown through the NV12 kernel.
    {"I420", FourCC('Y', 'U', '1', '2'), RowLayout::kPlanar420, nullptr},
    {"YV12", FourCC('Y', 'V', '1', '2'), RowLayout::kPlanar420, nullptr},
};

const CCameraRenderer::Format* Find(uint32_t fourcc) {
  for (const auto& format : kFormats)
    if (format.fourcc == fourcc) return &format;
  return nullptr;
}

int TightRow(RowLayout layout, int32_t width) {
  switch (layout) {
    case RowLayout::kPacked32:
      return width * 4;
    case RowLayout::kPacked24:
      return width * 3;
    case RowLayout::kPacked16:
      return width * 2;
    default:
      return width;
  }
}

// Bytes of a whole frame with the given stride of the first plane.
size_t FrameBytes(RowLayout layout, int32_t stride, int32_t height) {
  const size_t plane = static_cast<size_t>(stride) * height;
  if (layout == RowLayout::kPlanar420 || layout == RowLayout::kSemiPlanar420) return plane * 3 / 2;
  return layout == RowLayout::kCompressed ? 0 : plane;
}

void ScaleAxis(int32_t source, int32_t target, std::vector<int32_t>* first,
               std::vector<int32_t>* weight) {
  first->resize(static_cast<size_t>(target));
  weight->resize(static_cast<size_t>(target));
  for (int32_t i = 0; i < target; ++i) {
    // The centre of output pixel i in source pixels, in 1 / 65536.
    int64_t at = ((2 * static_cast<int64_t>(i) + 1) * source << 16) / (2 * target) - 32768;
    at = std::clamp<int64_t>(at, 0, static_cast<int64_t>(source - 1) << 16);
    (*first)[i] = static_cast<int32_t>(at >> 16);
    (*weight)[i] = (*first)[i] + 1 < source ? static_cast<int32_t>((at >> 8) & 0xFF) : 0;
  }
}

}  // namespace

// libjpeg-turbo, made once per preview; its errors end the frame through
// a jump back into Decode, where no object with a destructor lives.
class CCameraRenderer::JpegDecoder {
 public:
  JpegDecoder() {
    m_jpeg.err = jpeg_std_error(&m_error.base);
    m_error.base.error_exit = [](j_common_ptr jpeg) {
      std::longjmp(reinterpret_cast<ErrorManager*>(jpeg->err)->jump, 1);
    };
    m_error.base.output_message = [](j_common_ptr) {};
    // Of the warnings only a cut frame counts: many cameras send stray bytes
    // between markers in every frame.
    m_error.base.emit_message = [](j_common_ptr jpeg, int level) {
      if (level < 0 && jpeg->err->msg_code == JWRN_JPEG_EOF)
        reinterpret_cast<ErrorManager*>(jpeg->err)->cut = true;
    };
    jpeg_create_decompress(&m_jpeg);
  }
  ~JpegDecoder() { jpeg_destroy_decompress(&m_jpeg); }

  bool Decode(const uint8_t* data, size_t bytes, uint8_t* out, int32_t width, int32_t height) {
    if (setjmp(m_error.jump)) {
      jpeg_abort_decompress(&m_jpeg);
      return false;
    }
    m_error.cut = false;
    jpeg_mem_src(&m_jpeg, data, static_cast<unsigned long>(bytes));
    if (jpeg_read_header(&m_jpeg, TRUE) != JPEG_HEADER_OK ||
        m_jpeg.image_width != static_cast<JDIMENSION>(width) ||
        m_jpeg.image_height != static_cast<JDIMENSION>(height)) {
      jpeg_abort_decompress(&m_jpeg);
      return false;
    }
    m_jpeg.out_color_space = JCS_EXT_BGRX;
    jpeg_start_decompress(&m_jpeg);
    while (m_jpeg.output_scanline < m_jpeg.output_height) {
      JSAMPROW row = out + static_cast<size_t>(m_jpeg.output_scanline) * width * 4;
      jpeg_read_scanlines(&m_jpeg, &row, 1);
    }
    jpeg_finish_decompress(&m_jpeg);
    return !m_error.cut;
  }

 private:
  struct ErrorManager {
    jpeg_error_mgr base;
    std::jmp_buf jump;
    bool cut;
  };
  jpeg_decompress_struct m_jpeg{};
  ErrorManager m_error{};
};

CCameraRenderer::CCameraRenderer(CameraDevice* pDevice, HWND hWnd, CCameraCallback* pCallback)
    : pCallback(pCallback), m_pDevice(pDevice), m_hWnd(hWnd) {}

CCameraRenderer::~CCameraRenderer() {
  std::free(m_pFrame);
  std::free(m_pScratch);
}

bool CCameraRenderer::Shows(uint32_t fourcc) { return Find(fourcc) != nullptr; }

int CCameraRenderer::Preference(uint32_t fourcc) {
  const Format* format = Find(fourcc);
  return format ? static_cast<int>(format - kFormats) : -1;
}

const char* CCameraRenderer::FormatName(uint32_t fourcc) {
  const Format* format = Find(fourcc);
  return format ? format->name : "?";
}

HRESULT CCameraRenderer::Setup() {
  HRESULT hr;
  if (OV_FAILED(hr, ov::WindowPresenter::Open(m_hWnd, &m_pPresenter))) return hr;
  return S_OK;
}

HRESULT CCameraRenderer::CheckMediaType(const ov::CameraMode& mode, int32_t stride) {
  const Format* format = Find(mode.fourcc);
  if (!format) {
    WriteLog(ov::kErr, "Unsupported Software Conversion.\n");
    return E_INVALIDARG;
  }
  if (mode.width < 2 || mode.height < 2 || mode.width > 16384 || mode.height > 16384) {
    WriteLog(ov::kErr, "ERROR Buffer Size !");
    return E_INVALIDARG;
  }
  std::lock_guard<std::mutex> lock(m_csRender);
  if (format->layout == RowLayout::kCompressed && !m_pJpeg)
    m_pJpeg = std::make_unique<JpegDecoder>();
  m_nSrcStride = std::max(stride, TightRow(format->layout, mode.width));
  m_nSrcBytes = FrameBytes(format->layout, m_nSrcStride, mode.height);
  const size_t bytes = (static_cast<size_t>(mode.width) * 4 * mode.height + 63) / 64 * 64;
  if (bytes != m_nFrameBytes) {
    std::free(m_pFrame);
    m_pFrame = static_cast<uint8_t*>(std::aligned_alloc(64, bytes));
    m_nFrameBytes = m_pFrame ? bytes : 0;
    if (!m_pFrame) return E_OUTOFMEMORY;
  }
  std::memset(m_pFrame, 0, bytes);
  std::free(m_pScratch);
  m_pScratch = nullptr;
  size_t scratch = 0;
  if (format->layout == RowLayout::kPlanar420)
    scratch = (static_cast<size_t>(m_nSrcStride) * (mode.height / 2) + 63) / 64 * 64;
  else if (format->layout == RowLayout::kCompressed)
    scratch = bytes;
  if (scratch) {
    m_pScratch = static_cast<uint8_t*>(std::aligned_alloc(64, scratch));
    if (!m_pScratch) return E_OUTOFMEMORY;
  }
  m_bHaveFrame = false;
  m_pFormat = format;
  m_VideoWidth = mode.width;
  m_VideoHeight = mode.height;
  if (m_pDevice) {
    m_pDevice->width = mode.width;
    m_pDevice->height = mode.height;
    m_pDevice->frameRate =
        mode.rateDenominator
            ? static_cast<int32_t>((mode.rateNumerator + mode.rateDenominator / 2) /
                                   mode.rateDenominator)
            : 0;
  }
  if (pCallback) pCallback->OnVideoSize(mode.width, mode.height);
  m_bLayoutRequest = 1;
  return S_OK;
}

void CCameraRenderer::GetVideoSize(int* pWidth, int* pHeight) const {
  if (!m_pFormat) return;
  if (pWidth) *pWidth = m_VideoWidth;
  if (pHeight) *pHeight = m_VideoHeight;
}

// Centred at its own size when the window is large enough, otherwise scaled
// down to the window's width or height, keeping its shape; never up.
void CCameraRenderer::Layout() {
  if (!m_pPresenter->Resize()) return;
  const int32_t cw = m_pPresenter->Width(), ch = m_pPresenter->Height();
  const int32_t w = m_VideoWidth, h = m_VideoHeight;
  if (cw >= w && ch >= h) {
    m_rcDest = {(cw - w) / 2, (ch - h) / 2, (cw - w) / 2 + w, (ch - h) / 2 + h};
  } else if (static_cast<int64_t>(h) * cw <= static_cast<int64_t>(w) * ch) {
    const auto height = static_cast<int32_t>(static_cast<int64_t>(h) * cw / w);
    m_rcDest = {0, (ch - height) / 2, cw, (ch - height) / 2 + height};
  } else {
    const auto width = static_cast<int32_t>(static_cast<int64_t>(w) * ch / h);
    m_rcDest = {(cw - width) / 2, 0, (cw - width) / 2 + width, ch};
  }
  ScaleAxis(w, m_rcDest.right - m_rcDest.left, &m_xSource, &m_xWeight);
  ScaleAxis(h, m_rcDest.bottom - m_rcDest.top, &m_ySource, &m_yWeight);
  FillRect32(0, m_pPresenter->Pixels(), static_cast<int>(m_pPresenter->Pitch()), cw, ch);
  m_pPresenter->Present({0, 0, cw, ch});
}

HRESULT CCameraRenderer::DoRenderSample(const ov::CameraFrame& frame) {
  std::lock_guard<std::mutex> lock(m_csRender);
  if (!m_pFormat || !frame.data) return E_FAIL;
  if (m_bLayoutRequest.exchange(0)) Layout();
  const int32_t w = m_VideoWidth, h = m_VideoHeight;
  if (m_pFormat->layout == RowLayout::kCompressed) {
    // A frame that does not decode whole (a camera short of bandwidth sends
    // cut ones) leaves the last good picture in place.
    if (!m_pJpeg->Decode(frame.data, frame.bytes, m_pScratch, w, h)) return S_FALSE;
    std::swap(m_pFrame, m_pScratch);
  } else {
    if (frame.bytes < m_nSrcBytes) return S_FALSE;
    if (m_pFormat->convert)
      m_pFormat->convert(m_pFrame, w * 4, frame.data, m_nSrcStride, w, h);
    else
      ConvertPlanar(frame.data);
  }
  m_bHaveFrame = true;
  Stretch();
  return m_pPresenter->Present(m_rcDest) ? S_OK : E_FAIL;
}

void CCameraRenderer::ConvertPlanar(const uint8_t* y) {
  const int32_t w = m_VideoWidth & ~1, h = m_VideoHeight & ~1, stride = m_nSrcStride;
  const uint8_t* first = y + static_cast<size_t>(stride) * m_VideoHeight;
  const uint8_t* second = first + static_cast<size_t>(stride / 2) * (m_VideoHeight / 2);
  const bool vFirst = m_pFormat->fourcc == FourCC('Y', 'V', '1', '2');
  const uint8_t* u = vFirst ? second : first;
  const uint8_t* v = vFirst ? first : second;
  for (int32_t row = 0; row < h / 2; ++row) {
    uint8_t* uv = m_pScratch + static_cast<size_t>(row) * stride;
    const size_t at = static_cast<size_t>(row) * (stride / 2);
    for (int32_t k = 0; k < w / 2; ++k) uv[2 * k] = u[at + k], uv[2 * k + 1] = v[at + k];
  }
  ov::ActivePixelKernels().nv12ToBgr32(m_pFrame, m_VideoWidth * 4, y, m_pScratch, stride, w, h);
}

void CCameraRenderer::Stretch() {
  const int32_t dw = m_rcDest.right - m_rcDest.left, dh = m_rcDest.bottom - m_rcDest.top;
  if (dw <= 0 || dh <= 0 || !m_pPresenter->Pixels()) return;
  const ptrdiff_t pitch = m_pPresenter->Pitch();
  uint8_t* target = m_pPresenter->Pixels() + m_rcDest.top * pitch + m_rcDest.left * 4;
  const size_t row = static_cast<size_t>(m_VideoWidth) * 4;
  if (dw == m_VideoWidth && dh == m_VideoHeight) {
    ImageCopy32(target, static_cast<int>(pitch), m_pFrame, static_cast<int>(row), dw, dh);
    return;
  }
  for (int32_t y = 0; y < dh; ++y) {
    const uint8_t* top = m_pFrame + m_ySource[y] * row;
    const uint8_t* bottom = m_yWeight[y] ? top + row : top;
    const uint32_t wy = static_cast<uint32_t>(m_yWeight[y]);
    uint8_t* out = target + y * pitch;
    for (int32_t x = 0; x < dw; ++x, out += 4) {
      const size_t at = static_cast<size_t>(m_xSource[x]) * 4;
      const size_t next = m_xWeight[x] ? at + 4 : at;
      const uint32_t wx = static_cast<uint32_t>(m_xWeight[x]);
      for (int c = 0; c < 4; ++c) {
        const uint32_t upper = top[at + c] * (256 - wx) + top[next + c] * wx;
        const uint32_t lower = bottom[at + c] * (256 - wx) + bottom[next + c] * wx;
        out[c] = static_cast<uint8_t>((upper * (256 - wy) + lower * wy + 32768) >> 16);
      }
    }
  }
}

// The frame is copied under the lock and encoded outside it, so that the
// preview does not stand still while a file is written.
HRESULT CCameraRenderer::SaveImage(int encoder, const wchar_t* pwszFile) {
  std::vector<uint8_t> pixels;
  int32_t width, height;
  {
    std::lock_guard<std::mutex> lock(m_csRender);
    if (!m_bHaveFrame) {
      WriteLog(ov::kErr, "No camera picture to save yet\n");
      return E_FAIL;
    }
    width = m_VideoWidth, height = m_VideoHeight;
    pixels.assign(m_pFrame, m_pFrame + static_cast<size_t>(width) * 4 * height);
  }
  const ov::StillPicture picture{pixels.data(), width, height, width * 4};
  HRESULT hr;
  if (OV_FAILED(hr, ov::SaveImageFile(encoder, picture, pwszFile))) return hr;
  return S_OK;
}
