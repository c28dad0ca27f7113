// Basic types shared by every Orvanta header.
//
// The engine keeps the widths and field order of the records that hosts on
// other systems already know, so a record written by one build reads the same
// in another. Wire and file structures are packed and little-endian.
#pragma once

#include <cstdint>
#include <cwchar>

#if defined(_WIN32)
#define OV_API __declspec(dllexport)
#else
#define OV_API __attribute__((visibility("default")))
#endif

using HRESULT = int32_t;
using BOOL = int32_t;
using DWORD = uint32_t;
using LONG = int32_t;
using WORD = uint16_t;
using BYTE = uint8_t;
using UINT = uint32_t;
using LONGLONG = int64_t;
using REFERENCE_TIME = int64_t;  // 100-ns units

// An X11 window id; 0 is no window.
using HWND = uint64_t;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
inline constexpr HRESULT E_ABORT = static_cast<HRESULT>(0x80004004u);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);

inline constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
inline constexpr bool FAILED(HRESULT hr) { return hr < 0; }

inline constexpr REFERENCE_TIME REF_TIME_UNITS = 10000000;  // one second
inline constexpr REFERENCE_TIME REF_MSEC_UNITS = 10000;     // one millisecond

inline constexpr int OV_MAX_PATH = 260;

struct RECT {
  LONG left;
  LONG top;
  LONG right;   // exclusive
  LONG bottom;  // exclusive
};

struct POINT {
  LONG x;
  LONG y;
};

#pragma pack(push, 1)
struct GUID {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
};

struct WAVEFORMATEX {
  WORD wFormatTag;
  WORD nChannels;
  DWORD nSamplesPerSec;
  DWORD nAvgBytesPerSec;
  WORD nBlockAlign;
  WORD wBitsPerSample;
  WORD cbSize;
};

struct WAVEFORMATEXTENSIBLE {
  WAVEFORMATEX Format;
  union {
    WORD wValidBitsPerSample;
    WORD wSamplesPerBlock;
    WORD wReserved;
  } Samples;
  DWORD dwChannelMask;
  GUID SubFormat;
};
#pragma pack(pop)

static_assert(sizeof(RECT) == 16);
static_assert(sizeof(POINT) == 8);
static_assert(sizeof(GUID) == 16);
static_assert(sizeof(WAVEFORMATEX) == 18);
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40);

inline constexpr WORD WAVE_FORMAT_PCM = 1;
inline constexpr WORD WAVE_FORMAT_IEEE_FLOAT = 3;
inline constexpr WORD WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

// {00000001-0000-0010-8000-00aa00389b71} and {00000003-...}
inline constexpr GUID KSDATAFORMAT_SUBTYPE_PCM = {
    0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};
inline constexpr GUID KSDATAFORMAT_SUBTYPE_IEEE_FLOAT = {
    0x00000003, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};

inline bool IsEqualGUID(const GUID& a, const GUID& b) {
  return a.Data1 == b.Data1 && a.Data2 == b.Data2 && a.Data3 == b.Data3 &&
         a.Data4[0] == b.Data4[0] && a.Data4[1] == b.Data4[1] && a.Data4[2] == b.Data4[2] &&
         a.Data4[3] == b.Data4[3] && a.Data4[4] == b.Data4[4] && a.Data4[5] == b.Data4[5] &&
         a.Data4[6] == b.Data4[6] && a.Data4[7] == b.Data4[7];
}
