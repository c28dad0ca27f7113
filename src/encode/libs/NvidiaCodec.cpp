// The newer Nvidia slot: NVENC through libavcodec, for H.264 and H.265.
// Entries are filled only when an encoder really opens on a device; without
// one the probe reports failure so that the older slot gets its turn.
#include <unistd.h>

#include <new>

#include "encode/VendorTable.h"
#include "encode/libs/EncoderSettings.h"
#include "encode/libs/LibavEncoder.h"
#include "encode/libs/LibavVideoCodec.h"

using namespace ov::enc;

namespace {

// Without the driver's control node there is nothing to open, and the CUDA
// libraries need not be loaded to find that out.
bool NvidiaDriverPresent() { return access("/dev/nvidiactl", F_OK) == 0; }

}  // namespace

extern "C" {

OV_API int32_t nvenc8_InitCodec(int32_t* vendorTable) {
  if (!NvidiaDriverPresent()) return 1;
  bool any = false;
  for (int32_t type : {kH264, kH265}) {
    if (CanOpen({Backend::Nvenc, {}}, type)) {
      vendorTable[type] = ov::kVendorNvidia8;
      any = true;
    }
  }
  return any ? 0 : 1;
}

OV_API CVideoCodec* nvenc8_CreateVideoCodec(int32_t codecType, CWriterStatistics* pStatistics,
                                            CFrameRateControl* pRateControl) {
  if (!EncoderName(Backend::Nvenc, codecType)) return nullptr;
  std::vector<BackendChoice> backends{{Backend::Nvenc, {}}, {Backend::Software, {}}};
  return new (std::nothrow) CLibavVideoCodec(std::move(backends), pStatistics, pRateControl);
}
}
