#include "Assembly.h"

#include <orvanta/orvanta.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <type_traits>

#include "Console.h"
#include "Engine.h"
#include "Interrupts.h"
#include "RecordOptions.h"
#include "platform/Text.h"

// The engine's interface for mux progress. Named here so that, once the
// engine's header declares it, the command derives from the real one.
class CMuxCallback;

namespace cli {

namespace {

template <class T, class = void>
constexpr bool kDeclared = false;
template <class T>
constexpr bool kDeclared<T, std::void_t<decltype(sizeof(T))>> = true;

// The table the engine calls through, in its order, for builds whose header
// does not declare the interface yet.
class MuxCallbackTable {
 public:
  virtual BOOL OnProgress(int percent) = 0;
  virtual void OnComplete(HRESULT result) = 0;

 protected:
  ~MuxCallbackTable() = default;
};

using MuxCallbackBase = std::conditional_t<kDeclared<CMuxCallback>, CMuxCallback, MuxCallbackTable>;

// Called on the muxer's own thread; the main thread polls the atomics.
class MuxProgress final : public MuxCallbackBase {
 public:
  BOOL OnProgress(int percent) override {
    m_percent.store(percent);
    return m_cancel.load() ? 0 : 1;
  }
  void OnComplete(HRESULT result) override {
    m_result.store(result);
    m_done.store(true);  // last: the main thread may move on at once
  }

  std::atomic<int> m_percent{0};
  std::atomic<bool> m_cancel{false};
  std::atomic<bool> m_done{false};
  std::atomic<HRESULT> m_result{E_FAIL};
};

using FFMuxFn = HRESULT (*)(int, int, const wchar_t*, int, MuxCallbackBase*);
using GIFMuxFn = HRESULT (*)(const wchar_t*, int, MuxCallbackBase*);
using WMMuxFn = HRESULT (*)(const wchar_t*, int, const void*, const void*, int, MuxCallbackBase*);
using GetAudioCodecInfoFn = const void* (*)(int, int);

bool EngineFileExists(const char* name, bool executable) {
  std::string path = EngineHelperFolder() + "/" + name;
  return access(path.c_str(), executable ? X_OK : R_OK) == 0;
}

// The engine keeps the callback pointer until OnComplete; one assembly per
// process, so one object for the life of the process is all it takes.
MuxProgress& Progress() {
  static MuxProgress progress;
  return progress;
}

HRESULT StartMux(int32_t codec, const std::wstring& out, MuxProgress* progress) {
  if (codec == CodecType_GIF)
    return reinterpret_cast<GIFMuxFn>(EngineSymbol("GIFMux"))(out.c_str(), 0, progress);
  if (codec == CodecType_WMV) {
    // The first format of each device's list is the one that suits it best.
    auto codecInfo = reinterpret_cast<GetAudioCodecInfoFn>(EngineSymbol("GetAudioCodecInfo"));
    CapturedFile* file = GetCapturedFile();
    const void* render = file->bWaveOutStream ? codecInfo(0, 0) : nullptr;
    const void* capture = file->bWaveInStream ? codecInfo(1, 0) : nullptr;
    return reinterpret_cast<WMMuxFn>(EngineSymbol("WMMux"))(out.c_str(), 0, render, capture, 1,
                                                            progress);
  }
  int muxer = FFMUX_MP4;
  if (codec == kAudioOnly) muxer = out.ends_with(L".mp3") ? FFMUX_MP3 : FFMUX_M4A;
  return reinterpret_cast<FFMuxFn>(EngineSymbol("FFMux"))(muxer, 0, out.c_str(), 0, progress);
}

}  // namespace

std::string AssemblyMissing(int32_t codec) {
  const char* missing = nullptr;
  if (codec == CodecType_GIF) {
    if (!EngineSymbol("GIFMux") || !EngineFileExists("libGifCodec.so", false)) missing = "GIF";
  } else if (codec == CodecType_WMV) {
    if (!EngineSymbol("WMMux") || !EngineSymbol("GetAudioCodecInfo")) missing = "WMV";
  } else if (!EngineSymbol("FFMux") || !EngineFileExists("mux", true)) {
    return "final-file assembly is not available in this build";
  }
  if (missing) return std::string(missing) + " recording is not available in this build yet";
  return {};
}

const char* OutputExtension(int32_t codec) {
  if (codec == CodecType_GIF) return ".gif";
  if (codec == CodecType_WMV) return ".wmv";
  if (codec == kAudioOnly) return ".m4a";
  return ".mp4";
}

Assembled Assemble(int32_t codec, const std::string& out, int32_t* result) {
  MuxProgress& progress = Progress();
  HRESULT started = StartMux(codec, ov::FromUtf8(out), &progress);
  if (started != S_OK) {
    *result = started;
    return Assembled::Failed;
  }
  ProgressBar bar("Assembling " + std::filesystem::path(out).filename().string());
  bar.Update(0);
  bool interrupted = false;
  while (!progress.m_done.load()) {
    if (Interrupts::Wait(100) && !interrupted) {
      // The muxer looks at this at its next progress report.
      interrupted = true;
      progress.m_cancel.store(true);
    }
    bar.Update(progress.m_percent.load());
  }
  *result = progress.m_result.load();
  bar.Finish(*result == S_OK);
  if (*result == S_OK) return Assembled::Done;
  return *result == E_ABORT ? Assembled::Cancelled : Assembled::Failed;
}

}  // namespace cli
