// Which encoder library serves each codec type, found by probing the
// libraries beside the engine at start-up.
#pragma once

#include <cstdint>
#include <string>

#include "encode/VideoCodec.h"

namespace ov {

inline constexpr int kVendorTableSize = 6;

// Vendor table values.
enum : int32_t {
  kVendorNone = 0,
  kVendorNvidia8 = 1,
  kVendorNvidia5 = 2,
  kVendorAmd2 = 3,
  kVendorAmd = 4,
  kVendorIntel = 5,
};

int32_t* VendorTable();

// Loads the encoder libraries beside the engine and lets each fill the
// table; a library that faults is logged and skipped. Runs once.
void ProbeVideoEncoders();
// The same on the libraries of another folder, from a table cleared first;
// the libraries loaded before stay loaded. For tests.
void ProbeVideoEncodersIn(const std::string& folder);

// The name of a codec type as the log prints it.
const char* CodecTypeName(int32_t codecType);

// A new encoder for a library codec type (1, 2, 3) or GIF (4), or null.
CVideoCodec* CreateLibraryVideoCodec(int32_t codecType, CWriterStatistics* pStatistics,
                                     CFrameRateControl* pRateControl);

// The GIF library's assembly and playback entry points, or null.
GifMuxFn GifMuxEntry();
GifCreateVideoReaderFn GifVideoReaderEntry();

}  // namespace ov
