#include "Listing.h"

#include <orvanta/orvanta.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Assembly.h"
#include "Console.h"
#include "Engine.h"
#include "RecordOptions.h"
#include "XDisplay.h"
#include "platform/Text.h"

namespace cli {

namespace {

bool NeedDisplay() {
  const char* display = getenv("DISPLAY");
  if (!display || !*display) {
    Error("no X display: set DISPLAY to list its displays");
    return false;
  }
  if (!DisplayAnswers()) {
    Error("cannot open the X display '%s'", display);
    return false;
  }
  return true;
}

using GetAudioDeviceInfoFn = const AudioDeviceInfo* (*)(int);
using GetAudioCodecInfoCountFn = int (*)(int);
using GetAudioCodecInfoFn = const AudioCodecInfo* (*)(int, int);

// Each default device with the WMA formats that a WMV recording can give its
// sound, best first.
void PrintAudioEndpoints() {
  std::printf("Audio endpoints\n");
  auto getDevice = reinterpret_cast<GetAudioDeviceInfoFn>(EngineSymbol("GetAudioDeviceInfo"));
  auto getCount =
      reinterpret_cast<GetAudioCodecInfoCountFn>(EngineSymbol("GetAudioCodecInfoCount"));
  auto getCodec = reinterpret_cast<GetAudioCodecInfoFn>(EngineSymbol("GetAudioCodecInfo"));
  if (!getDevice || !getCount || !getCodec) {
    std::printf("  not available yet (this build's engine has no audio device catalogue)\n");
    return;
  }
  const char* roles[] = {"system sound (loopback of the default output)",
                         "microphone (default input)"};
  for (int i = 0; i < 2; ++i) {
    const AudioDeviceInfo* device = getDevice(i);
    std::printf("  %-48s %s\n", roles[i],
                device ? ov::ToUtf8(device->szName).c_str() : "none found");
    if (!device) continue;
    const WAVEFORMATEX& f = device->Format.Format;
    std::printf("    %s, %u Hz, %u channels, %u bits\n", ov::ToUtf8(device->szId).c_str(),
                f.nSamplesPerSec, f.nChannels, f.wBitsPerSample);
    for (int n = 0; n < getCount(i); ++n) {
      const AudioCodecInfo* codec = getCodec(i, n);
      std::printf("    [%d] %s: %s\n", n, ov::ToUtf8(codec->szName).c_str(),
                  ov::ToUtf8(codec->szDescription).c_str());
    }
  }
}

void PrintEncoders() {
  std::printf("Video encoders\n");
  for (int32_t codec : {CodecType_H264, CodecType_H265, CodecType_MPEG2}) {
    if (!IsSupportHwVideoCodec(codec)) {
      std::printf("  %-6s not available (no encoder library offers it)\n", CodecName(codec));
      continue;
    }
    std::printf("  %-6s available%s\n", CodecName(codec),
                IsSupport4KCodec(codec) ? ", up to 4K" : "");
  }
  for (int32_t codec : {CodecType_WMV, CodecType_GIF}) {
    std::string missing = AssemblyMissing(codec);
    std::printf("  %-6s %s\n", CodecName(codec),
                missing.empty() ? "available" : "not available yet");
  }
  std::printf("Final-file assembly\n");
  std::string missing = AssemblyMissing(CodecType_H264);
  std::printf("  mp4    %s\n", missing.empty() ? "available" : "not available yet");
}

}  // namespace

int RunDisplays() {
  if (!NeedDisplay()) return kExitFailed;
  Engine engine;
  int count = GetDisplayCount();
  if (count <= 0) {
    Error("the engine found no display on DISPLAY=%s", getenv("DISPLAY"));
    return kExitFailed;
  }
  std::printf("%-3s %-12s %-11s %s\n", "#", "name", "size", "position");
  for (int i = 0; i < count; ++i) {
    const DisplayInfo* d = GetDisplayInfo(i);
    const RECT& r = d->rcMonitor;
    std::string size = std::to_string(r.right - r.left) + "x" + std::to_string(r.bottom - r.top);
    std::printf("%-3d %-12s %-11s %d,%d\n", i, ov::ToUtf8(d->szDevice).c_str(), size.c_str(),
                r.left, r.top);
  }
  return kExitOk;
}

int RunDevices() {
  // The catalogues are filled at start-up; without X the encoders still answer.
  Engine engine;
  PrintAudioEndpoints();
  PrintEncoders();
  return kExitOk;
}

}  // namespace cli
