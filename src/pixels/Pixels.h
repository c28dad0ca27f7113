// The engine's pixel routines: colour conversions between the capture's BGR32
// frames and the planar and packed YUV formats of encoders, decoders and
// cameras, plus copy, fill and row flips. None of them allocates.
//
// Arguments: destination first, then source, pitches in bytes, sizes in
// pixels. A planar buffer is one block: its second plane starts at
// pitch * height, the third (I420, YV12) at pitch * height * 5 / 4, and the
// chroma planes of I420 and YV12 have the pitch pitch / 2. Results: negative
// for a null pointer or a size below 1 (nothing done), S_FALSE when an odd
// size left pixels out, S_OK otherwise.
#pragma once

#include "orvanta/pixels.h"
#include "orvanta/types.h"

// Full-range luma, chroma averaged over 2 x 2 blocks; an odd last column or
// row is not converted.
HRESULT ImageConvert_BGR32_to_I420(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight);

// Full-range YUV 4:2:0 to RGB32 by 2 x 2 blocks, the inverse of the chroma
// above: byte 0 is built from V, byte 2 from U, the fourth byte is 0.
HRESULT ImageConvert_I420_to_RGB32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight);
// As above, with the V plane stored before the U plane.
HRESULT ImageConvert_YV12_to_RGB32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight);

// Video-range BT.601 to BGR32 with the fourth byte 255. NV12 works by 2 x 2
// blocks; its UV plane has the pitch of the Y plane.
HRESULT ImageConvert_NV12_to_BGR32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight);
// The packed formats convert every pixel. An odd last pixel of a row takes
// the chroma sample its half pair lacks from the pair before it, or, in a row
// of one pixel, uses the one sample it has for both.
HRESULT ImageConvert_YUY2_to_BGR32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight);
HRESULT ImageConvert_UYVY_to_BGR32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight);
HRESULT ImageConvert_YVYU_to_BGR32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                   int nWidth, int nHeight);

// Copies blue, green and red; the destination's fourth byte stays as it was.
HRESULT ImageConvert_BGR24_to_BGR32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch,
                                    int nWidth, int nHeight);

// Copies nWidth * 4 bytes per row.
HRESULT ImageCopy32(BYTE* pDst, int nPitch, const BYTE* pSrc, int nSrcPitch, int nWidth,
                    int nHeight);

// Stores dwValue in every pixel of the rectangle.
HRESULT FillRect32(DWORD dwValue, BYTE* pDst, int nPitch, int nWidth, int nHeight);

// Turn a tightly packed image upside down in place. The 32-bit flip moves the
// first three bytes of each pixel and leaves every pixel's fourth byte where
// it was; the 24-bit one moves all bytes. With an odd height the middle row
// stays.
HRESULT FlipRows32(BYTE* pData, int nWidth, int nHeight);
HRESULT FlipRows24(BYTE* pData, int nWidth, int nHeight);
