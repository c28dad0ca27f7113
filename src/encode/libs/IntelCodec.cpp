// The Intel slot: the software encoders that every machine has (libx264,
// libx265, mpeg2video), and VA-API in front of them where an Intel GPU
// drives a render node.
#include <new>

#include "encode/VendorTable.h"
#include "encode/libs/EncoderSettings.h"
#include "encode/libs/LibavVideoCodec.h"
#include "encode/libs/RenderNode.h"

using namespace ov::enc;

namespace {

std::vector<BackendChoice> IntelBackends() {
  std::vector<BackendChoice> backends;
  std::string node = FindRenderNode({"i915", "xe"});
  if (!node.empty()) backends.push_back({Backend::Vaapi, node});
  backends.push_back({Backend::Software, {}});
  return backends;
}

}  // namespace

extern "C" {

OV_API int32_t Intel_InitCodec(int32_t* vendorTable, int32_t) {
  // H.264 is libx264, linked in; the others come from libavcodec.
  vendorTable[kH264] = ov::kVendorIntel;
  for (int32_t type : {kH265, kMpeg2}) {
    if (avcodec_find_encoder_by_name(EncoderName(Backend::Software, type)))
      vendorTable[type] = ov::kVendorIntel;
  }
  return 0;
}

// Software encoding takes any size up to 16384 pixels a side, and a
// hardware encoder that refuses a size hands over to it.
OV_API BOOL Intel_IsSupport4KCodec(int32_t) { return 1; }

OV_API CVideoCodec* Intel_CreateVideoCodec(int32_t codecType, CWriterStatistics* pStatistics,
                                           CFrameRateControl* pRateControl) {
  if (!EncoderName(Backend::Software, codecType)) return nullptr;
  return new (std::nothrow) CLibavVideoCodec(IntelBackends(), pStatistics, pRateControl);
}
}
