// Start and stop of the engine.
#include "orvanta/module.h"

#include <new>

#include "audio/AudioCatalogue.h"
#include "camera/CameraDevice.h"
#include "capture/CursorCatalogue.h"
#include "capture/DisplayCatalogue.h"
#include "capture/MagnifierHost.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "core/ObjectRegistry.h"
#include "core/Resources.h"
#include "encode/VendorTable.h"
#include "output/MuxWorkers.h"
#include "output/WmaFormats.h"
#include "overlay/ImageCapture.h"
#include "pixels/PixelDispatch.h"
#include "platform/ChildProcess.h"
#include "platform/GraphicsProbe.h"
#include "platform/Thread.h"
#include "platform/XServer.h"
#include "session/CrashReporter.h"
#include "session/SystemReport.h"

namespace ov {

namespace {

uint32_t g_mainThreadId;

// operator new's handler is not told the size; the line keeps its shape.
void OnAllocationFailure() {
  WriteLog(kErr, "Failed to alloc memory: size=%d\n", 0);
  std::set_new_handler(nullptr);
  throw std::bad_alloc();
}

// X reports physical pixels everywhere, so the engine is DPI-aware by
// construction: per-monitor awareness (2).
void WriteDisplayReport() {
  int32_t width = 0, height = 0;
  ScreenSize(&width, &height);
  WriteLog(kMsg, "===================\n");
  WriteLog(kMsg, "Screen: %dx%d\n", width, height);
  WriteLog(kMsg, "IsDPIAware=%d\n", 1);
  WriteLog(kMsg, "DpiAwareness=%d\n", 2);
  WriteLog(kMsg, "===================\n\n");
}

struct FeatureLevel {
  int32_t level;
  const char* text;
};

const FeatureLevel kFeatureLevels[] = {
    {0xC100, "Targets features supported by Direct3D 12.1 including shader model 5."},
    {0xC000, "Targets features supported by Direct3D 12.0 including shader model 5."},
    {0xB100,
     "Targets features supported by Direct3D 11.1 including shader model 5 and logical blend "
     "operations."},
    {0xB000, "Targets features supported by Direct3D 11.0 including shader model 5."},
    {0xA100, "Targets features supported by Direct3D 10.1 including shader model 4."},
    {0xA000, "Targets features supported by Direct3D 10.0 including shader model 4."},
    {0x9300, "Targets features supported by feature level 9.3 including shader model 2.0b."},
    {0x9200, "Targets features supported by feature level 9.2 including shader model 2."},
    {0x9100, "Targets features supported by feature level 9.1 including shader model 2."},
};

// The GPU's generation, told in the feature levels that the rest of the
// engine reasons in. OpenGL versions map onto the level whose shader and
// texture features they match:
//   GL 4.6          -> 0xC100    GL 3.3          -> 0xA100
//   GL 4.5          -> 0xC000    GL 3.0 - 3.2    -> 0xA000
//   GL 4.3 - 4.4    -> 0xB100    GL 2.1          -> 0x9300
//   GL 4.0 - 4.2    -> 0xB000    GL 2.0          -> 0x9200
//   anything older  -> 0x9100    no OpenGL       -> 0 (not set)
int32_t FeatureLevelOf(int major, int minor) {
  int v = major * 10 + minor;
  if (v >= 46) return 0xC100;
  if (v >= 45) return 0xC000;
  if (v >= 43) return 0xB100;
  if (v >= 40) return 0xB000;
  if (v >= 33) return 0xA100;
  if (v >= 30) return 0xA000;
  if (v >= 21) return 0x9300;
  if (v >= 20) return 0x9200;
  return 0x9100;
}

void ProbeGraphics() {
  GlInfo gl;
  std::string error;
  bool cached = false;
  const bool probed = ProbeOpenGl(&gl, &error, &cached);
  if (cached) WriteLog(kDbg, "OpenGL probe: the answer kept from an earlier start\n");
  if (!probed) {
    WriteLog(kMsg, "Failed(%d) to load:%s\n", -1, error.c_str());
    return;
  }
  g_D3DFeatureLevel = FeatureLevelOf(gl.major, gl.minor);
  WriteLog(kMsg, "OpenGL %s (%s)\n", gl.version.c_str(), gl.renderer.c_str());
  for (const FeatureLevel& level : kFeatureLevels) {
    if (level.level == g_D3DFeatureLevel) WriteLog(kMsg, "%s\n", level.text);
  }
  if (g_D3DFeatureLevel < 0xB000) WriteLog(kErr, "Not support Direct3D 11\n");
}

}  // namespace

uint32_t MainThreadId() { return g_mainThreadId; }
int32_t FeatureLevelForGl(int major, int minor) { return FeatureLevelOf(major, minor); }

}  // namespace ov

extern "C" HRESULT ovInitialize() {
  using namespace ov;
  WriteSystemReport();
  WriteDisplayReport();
  g_mainThreadId = CurrentThreadId();
  InstallCrashReporter(g_mainThreadId);
  // The steps of subsystems still to come take their places in this order:
  // the image encoders after the displays.
  std::set_new_handler(OnAllocationFailure);
  ReportVideoHardware();
  BuildDisplayCatalogue();
  InitializeResourceFolder();
  InitializePixelDispatch();
  LoadCursors();
  ProbeVideoEncoders();
  BuildCameraCatalogue();
  BuildAudioCatalogue(EnumAudioCodecs);
  ProbeGraphics();
  ProbeHardwareCapture();
  SuspendScreenSaver(true);
  return S_OK;
}

extern "C" void ovUninitialize() {
  using namespace ov;
  EndChildProcesses();
  JoinMuxWorkers();
  DropCopiedImage();
  ReportLiveObjects();
  WriteLog(kMsg, "Gdiplus::Bitmap=%d\n", g_nGdiplusBitmaps.load());
  WriteLog(kMsg, "Gdiplus::Graphics=%d\n", g_nGdiplusGraphics.load());
  SuspendScreenSaver(false);
}
