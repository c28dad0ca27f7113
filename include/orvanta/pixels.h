// Pixel routines for hosts that feed the engine's encoders or copy its frames.
//
// Frames are BGR32: four bytes per pixel (blue, green, red, unused), top row
// first. Pitches are in bytes, sizes in pixels. A negative result means nothing
// was done: E_POINTER for a null pointer, E_INVALIDARG (with a log line) for a
// size the routine cannot work on, a pitch below the bytes of a row (negative
// pitches included) or a source that overlaps the destination. S_FALSE means
// an odd width or height left the last column or row out.
#pragma once

#include "orvanta/types.h"

extern "C" {

// BGR32 to NV12 with full-range BT.601 luma and 2 x 2 averaged chroma. The
// destination holds a Y plane of nHeight rows at nPitch, then the interleaved
// U, V plane at pDst + nPitch * nHeight with the same pitch. Both sizes are
// taken down to even numbers and must then be at least 2; an odd last row or
// column of the destination is left as it was. pScratch is a work area of
// nWidth * nHeight * 3 / 2 bytes that the caller owns; it must not be null.
OV_API HRESULT ImageConvert_BGR32_to_NV12(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                          int nWidth, int nHeight, BYTE* pScratch);

// Copies nWidth * 4 bytes of each of nHeight rows.
OV_API HRESULT CopyRect32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch, int nWidth,
                          int nHeight);
}
