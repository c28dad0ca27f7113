// The final GIF of a recording: the trimmed stretch of the temp video, in two
// passes. The first finds the clip's palette (libavfilter's palettegen), the
// second maps every frame to it with error diffusion (paletteuse), only over
// the rectangle that changed, so that what stands still keeps its pixels and
// the GIF encoder stores just the changed part. A frame lasts until the next
// one; nothing is added where the screen stood still.
#pragma once

#include <cstdint>
#include <string>

#include "orvanta/mux.h"
#include "orvanta/types.h"

namespace ov::enc::gif {

struct GifJob {
  std::string tempVideo;  // UTF-8
  std::wstring outFile;
  int64_t trimStart = 0;  // 100-ns units; 0 and 0: all of it
  int64_t trimEnd = 0;
  int64_t limit = 0;  // longest result in 100-ns units, 0 for none
  CMuxCallback* callback = nullptr;
};

// Checks the job, then assembles on a thread of the library's own, which ends
// with callback->OnComplete. S_OK when that thread has started; otherwise the
// callback is never called.
HRESULT StartGifAssembly(GifJob job);

// Waits for the assemblies still running.
void JoinGifAssemblies();

}  // namespace ov::enc::gif
