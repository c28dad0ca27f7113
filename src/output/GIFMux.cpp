// GIF recordings are assembled by the GIF library itself; this side checks
// the request and hands it the recording's temp video and trim.
#include "core/Globals.h"
#include "core/Log.h"
#include "encode/VendorTable.h"
#include "orvanta/mux.h"
#include "orvanta/recorder.h"
#include "output/MuxOutput.h"

extern "C" HRESULT GIFMux(const wchar_t* pwszOutFile, int Duration, CMuxCallback* pCallback) {
  using namespace ov;
  if (!ov::MuxArgumentsPresent(pwszOutFile, pCallback, OV_FILE, __LINE__)) return E_FAIL;
  WriteLog(kMsg, "GIF Mux:%ls, Duration=%dSec\n", pwszOutFile, Duration);
  WriteLog(kMsg, "Trim: %lld->%lld\n", static_cast<long long>(g_Recording->nTrimStart),
           static_cast<long long>(g_Recording->nTrimEnd));
  // The recording's own files are never the output, and a recording of
  // another kind has no GIF to give.
  if (HRESULT hr = CheckMuxOutput(pwszOutFile, *g_Recording); FAILED(hr)) return hr;
  if (!g_Recording->bScreenStream || g_Recording->CodecType != CodecType_GIF || Duration < 0) {
    WriteLog(kErr, "Error: no GIF recording to assemble (codec %d, video %d, Duration %d)\n",
             g_Recording->CodecType, g_Recording->bScreenStream, Duration);
    return E_INVALIDARG;
  }
  GifMuxFn mux = GifMuxEntry();
  if (!mux) {
    WriteLog(kErr, "Error: no GIF library\n");
    return E_FAIL;
  }
  return mux(g_Recording->szScreenCaptureFile, pwszOutFile, g_Recording->nTrimStart,
             g_Recording->nTrimEnd, static_cast<REFERENCE_TIME>(Duration) * 10000000, pCallback);
}
