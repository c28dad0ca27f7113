// The GIF library: recording into a lossless temp video, the final GIF with
// its trim, and a reader that plays the temp video back.
#include <new>

#include "encode/libs/GifAssembly.h"
#include "encode/libs/GifVideoCodec.h"
#include "encode/libs/GifVideoReader.h"
#include "platform/Text.h"

using namespace ov::enc::gif;

extern "C" {

OV_API CVideoCodec* GIF_CreateVideoCodec(CWriterStatistics* pStatistics,
                                         CFrameRateControl* pRateControl) {
  if (!pStatistics || !pRateControl) return nullptr;
  return new (std::nothrow) CGifVideoCodec(pStatistics, pRateControl);
}

OV_API CBaseMediaReader* GIF_CreateVideoReader(CMediaVideoRender* pRender, int32_t nIndex,
                                               const wchar_t* pwszTempFile) {
  if (!pRender || !pwszTempFile) return nullptr;
  auto* reader = new (std::nothrow) CGifVideoReader(pRender, nIndex, pwszTempFile);
  if (reader && FAILED(reader->Initialize())) {
    delete reader;
    return nullptr;
  }
  return reader;
}

OV_API HRESULT GIF_Mux(const wchar_t* pwszTempFile, const wchar_t* pwszOutFile,
                       REFERENCE_TIME nTrimStart, REFERENCE_TIME nTrimEnd, REFERENCE_TIME nLimit,
                       CMuxCallback* pCallback) {
  if (!pwszTempFile || !pwszOutFile || !pCallback) return E_INVALIDARG;
  GifJob job;
  job.tempVideo = ov::ToUtf8(pwszTempFile);
  job.outFile = pwszOutFile;
  job.trimStart = nTrimStart;
  job.trimEnd = nTrimEnd;
  job.limit = nLimit;
  job.callback = pCallback;
  return StartGifAssembly(std::move(job));
}
}
