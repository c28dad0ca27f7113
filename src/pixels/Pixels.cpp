#include "pixels/Pixels.h"

#include <cstdint>
#include <cstring>

#include "core/Log.h"
#include "pixels/PixelDispatch.h"

namespace {

using ov::ActivePixelKernels;
using ov::pixels::PackedLayout;

HRESULT CheckArguments(const void* a, const void* b, int width, int height) {
  if (!a || !b) return E_POINTER;
  if (width < 1 || height < 1) return E_INVALIDARG;
  return S_OK;
}

// Rows in memory as addresses: the first byte and one past the last.
struct Span {
  uintptr_t begin;
  uintptr_t end;
};

Span SpanOf(const BYTE* p, int pitch, int rows, int rowBytes) {
  const auto begin = reinterpret_cast<uintptr_t>(p);
  return {begin, begin + static_cast<uintptr_t>(pitch) * static_cast<uintptr_t>(rows - 1) +
                     static_cast<uintptr_t>(rowBytes)};
}

// What a host hands to an exported routine: rows as long as the pitch says,
// running downward, and a source apart from the destination. A negative or
// short pitch would have the routine write outside the buffer.
bool PitchesFit(const char* routine, int dstPitch, int dstRowBytes, int srcPitch, int srcRowBytes) {
  if (dstPitch >= dstRowBytes && srcPitch >= srcRowBytes) return true;
  WriteLog(ov::kErr, "Error: %s, pitch %d/%d below the row of %d/%d bytes\n", routine, dstPitch,
           srcPitch, dstRowBytes, srcRowBytes);
  return false;
}

bool ApartFrom(const char* routine, Span dst, Span src) {
  if (dst.end <= src.begin || src.end <= dst.begin) return true;
  WriteLog(ov::kErr, "Error: %s, source and destination overlap\n", routine);
  return false;
}

constexpr int kMaxHostWidth = INT32_MAX / 4;

HRESULT OddSizeStatus(int width, int height) { return ((width | height) & 1) ? S_FALSE : S_OK; }

// The planes of an I420 or YV12 block, in memory order.
struct Planar {
  ptrdiff_t second;
  ptrdiff_t third;
  ptrdiff_t chromaPitch;
};

Planar PlanesOf(int pitch, int height) {
  const ptrdiff_t luma = ptrdiff_t{pitch} * height;
  return {luma, luma * 5 / 4, pitch / 2};
}

HRESULT Yuv420ToRgb32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch, int nWidth,
                      int nHeight, bool bVFirst) {
  const HRESULT hr = CheckArguments(pDst, pSrc, nWidth, nHeight);
  if (FAILED(hr)) return hr;
  const int width = nWidth & ~1, height = nHeight & ~1;
  if (width > 0 && height > 0) {
    const Planar planes = PlanesOf(nSrcPitch, nHeight);
    const BYTE* first = pSrc + planes.second;
    const BYTE* second = pSrc + planes.third;
    const BYTE* u = bVFirst ? second : first;
    const BYTE* v = bVFirst ? first : second;
    ActivePixelKernels().i420ToRgb32(pDst, nPitch, pSrc, nSrcPitch, u, v, planes.chromaPitch, width,
                                     height);
  }
  return OddSizeStatus(nWidth, nHeight);
}

HRESULT PackedToBgr32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch, int nWidth,
                      int nHeight, PackedLayout layout) {
  const HRESULT hr = CheckArguments(pDst, pSrc, nWidth, nHeight);
  if (FAILED(hr)) return hr;
  ActivePixelKernels().packedToBgr32(pDst, nPitch, pSrc, nSrcPitch, nWidth, nHeight, layout);
  return OddSizeStatus(nWidth, 0);
}

}  // namespace

HRESULT ImageConvert_BGR32_to_I420(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight) {
  const HRESULT hr = CheckArguments(pDst, pSrc, nWidth, nHeight);
  if (FAILED(hr)) return hr;
  const int width = nWidth & ~1, height = nHeight & ~1;
  if (width > 0 && height > 0) {
    const Planar planes = PlanesOf(nPitch, nHeight);
    ActivePixelKernels().bgr32ToI420(pDst, nPitch, pDst + planes.second, pDst + planes.third,
                                     planes.chromaPitch, pSrc, nSrcPitch, width, height);
  }
  return OddSizeStatus(nWidth, nHeight);
}

// The result is the I420 conversion into pScratch (pitch nWidth) followed by
// the weave of its chroma into pairs. One pass straight into the destination
// gives the same bytes with less memory traffic on every encoded frame, so
// pScratch is checked but not written.
HRESULT ImageConvert_BGR32_to_NV12(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight, BYTE* pScratch) {
  HRESULT hr = CheckArguments(pDst, pSrc, nWidth, nHeight);
  if (FAILED(hr)) return hr;
  if (!pScratch) return E_POINTER;
  const int width = nWidth & ~1, height = nHeight & ~1;
  if (width < 2 || height < 2 || nWidth > kMaxHostWidth) return E_INVALIDARG;
  constexpr const char* kName = "ImageConvert_BGR32_to_NV12";
  if (!PitchesFit(kName, nPitch, width, nSrcPitch, width * 4)) return E_INVALIDARG;
  // The Y plane's rows, then the rows of chroma pairs below them.
  if (!ApartFrom(kName, SpanOf(pDst, nPitch, nHeight + height / 2, width),
                 SpanOf(pSrc, nSrcPitch, height, width * 4)))
    return E_INVALIDARG;
  ActivePixelKernels().bgr32ToNv12(pDst, pDst + ptrdiff_t{nPitch} * nHeight, nPitch, pSrc,
                                   nSrcPitch, width, height);
  return OddSizeStatus(nWidth, nHeight);
}

HRESULT ImageConvert_I420_to_RGB32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight) {
  return Yuv420ToRgb32(pDst, nPitch, pSrc, nSrcPitch, nWidth, nHeight, false);
}

HRESULT ImageConvert_YV12_to_RGB32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight) {
  return Yuv420ToRgb32(pDst, nPitch, pSrc, nSrcPitch, nWidth, nHeight, true);
}

HRESULT ImageConvert_NV12_to_BGR32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight) {
  const HRESULT hr = CheckArguments(pDst, pSrc, nWidth, nHeight);
  if (FAILED(hr)) return hr;
  const int width = nWidth & ~1, height = nHeight & ~1;
  if (width > 0 && height > 0) {
    ActivePixelKernels().nv12ToBgr32(pDst, nPitch, pSrc, pSrc + ptrdiff_t{nSrcPitch} * nHeight,
                                     nSrcPitch, width, height);
  }
  return OddSizeStatus(nWidth, nHeight);
}

HRESULT ImageConvert_YUY2_to_BGR32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight) {
  return PackedToBgr32(pDst, nPitch, pSrc, nSrcPitch, nWidth, nHeight, PackedLayout::kYuy2);
}

HRESULT ImageConvert_UYVY_to_BGR32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight) {
  return PackedToBgr32(pDst, nPitch, pSrc, nSrcPitch, nWidth, nHeight, PackedLayout::kUyvy);
}

HRESULT ImageConvert_YVYU_to_BGR32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight) {
  return PackedToBgr32(pDst, nPitch, pSrc, nSrcPitch, nWidth, nHeight, PackedLayout::kYvyu);
}

HRESULT ImageConvert_BGR24_to_BGR32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                    int nWidth, int nHeight) {
  const HRESULT hr = CheckArguments(pDst, pSrc, nWidth, nHeight);
  if (FAILED(hr)) return hr;
  ActivePixelKernels().bgr24ToBgr32(pDst, nPitch, pSrc, nSrcPitch, nWidth, nHeight);
  return S_OK;
}

// The C library's copy already picks the widest moves the processor has.
HRESULT ImageCopy32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch, int nWidth,
                    int nHeight) {
  const HRESULT hr = CheckArguments(pDst, pSrc, nWidth, nHeight);
  if (FAILED(hr)) return hr;
  const size_t rowBytes = size_t{static_cast<unsigned>(nWidth)} * 4;
  for (int row = 0; row < nHeight; ++row) {
    std::memcpy(pDst + ptrdiff_t{nPitch} * row, pSrc + ptrdiff_t{nSrcPitch} * row, rowBytes);
  }
  return S_OK;
}

HRESULT CopyRect32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch, int nWidth,
                   int nHeight) {
  HRESULT hr = CheckArguments(pDst, pSrc, nWidth, nHeight);
  if (FAILED(hr)) return hr;
  if (nWidth > kMaxHostWidth) return E_INVALIDARG;
  const int row = nWidth * 4;
  if (!PitchesFit("CopyRect32", nPitch, row, nSrcPitch, row) ||
      !ApartFrom("CopyRect32", SpanOf(pDst, nPitch, nHeight, row),
                 SpanOf(pSrc, nSrcPitch, nHeight, row)))
    return E_INVALIDARG;
  return ImageCopy32(pDst, nPitch, pSrc, nSrcPitch, nWidth, nHeight);
}

HRESULT FillRect32(DWORD dwValue, BYTE* pDst, int nPitch, int nWidth, int nHeight) {
  const HRESULT hr = CheckArguments(pDst, pDst, nWidth, nHeight);
  if (FAILED(hr)) return hr;
  ActivePixelKernels().fill32(dwValue, pDst, nPitch, nWidth, nHeight);
  return S_OK;
}

HRESULT FlipRows32(BYTE* pData, int nWidth, int nHeight) {
  const HRESULT hr = CheckArguments(pData, pData, nWidth, nHeight);
  if (FAILED(hr)) return hr;
  ActivePixelKernels().flipRows32(pData, nWidth, nHeight);
  return S_OK;
}

HRESULT FlipRows24(BYTE* pData, int nWidth, int nHeight) {
  const HRESULT hr = CheckArguments(pData, pData, nWidth, nHeight);
  if (FAILED(hr)) return hr;
  ActivePixelKernels().flipRows24(pData, nWidth, nHeight);
  return S_OK;
}
