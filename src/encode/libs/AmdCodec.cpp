// The newer AMD slot: VA-API on a render node that amdgpu (or radeon)
// drives. Its entries are filled only for the codecs whose encoder really
// opens there, so a machine without such a GPU keeps the Intel slot's.
#include <new>

#include "encode/VendorTable.h"
#include "encode/libs/EncoderSettings.h"
#include "encode/libs/LibavEncoder.h"
#include "encode/libs/LibavVideoCodec.h"
#include "encode/libs/RenderNode.h"

using namespace ov::enc;

namespace {

std::string AmdRenderNode() { return FindRenderNode({"amdgpu", "radeon"}); }

}  // namespace

extern "C" {

OV_API int32_t AMD2_InitCodec(int32_t* vendorTable) {
  std::string node = AmdRenderNode();
  if (node.empty()) return 1;
  bool any = false;
  for (int32_t type : {kH264, kH265, kMpeg2}) {
    if (CanOpen({Backend::Vaapi, node}, type)) {
      vendorTable[type] = ov::kVendorAmd2;
      any = true;
    }
  }
  return any ? 0 : 1;
}

// A size that the GPU refuses is encoded in software instead.
OV_API BOOL AMD2_IsSupport4KCodec(int32_t) { return 1; }

OV_API CVideoCodec* AMD2_CreateVideoCodec(int32_t codecType, CWriterStatistics* pStatistics,
                                          CFrameRateControl* pRateControl) {
  if (!EncoderName(Backend::Vaapi, codecType)) return nullptr;
  std::vector<BackendChoice> backends;
  std::string node = AmdRenderNode();
  if (!node.empty()) backends.push_back({Backend::Vaapi, node});
  backends.push_back({Backend::Software, {}});
  return new (std::nothrow) CLibavVideoCodec(std::move(backends), pStatistics, pRateControl);
}
}
