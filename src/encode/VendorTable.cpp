#include "encode/VendorTable.h"

namespace ov {

namespace {
int32_t g_vendorTable[kVendorTableSize] = {};
}

int32_t* VendorTable() { return g_vendorTable; }

void ProbeVideoEncoders() {}

const char* CodecTypeName(int32_t codecType) {
  static const char* const kNames[] = {"WMV", "H264", "H265", "MPEG2", "GIF"};
  return codecType >= 0 && codecType <= 4 ? kNames[codecType] : "Unknown";
}

CVideoCodec* CreateLibraryVideoCodec(int32_t, CWriterStatistics*, CFrameRateControl*) {
  return nullptr;
}

}  // namespace ov
